// The Models page against a real application session and a local model hub on 127.0.0.1: a
// download that the file system refuses part way (a file size limit standing in for a full disk)
// fails in words with a retry; once the room is back, the retry resumes and installs Whisper; the
// remove then frees its bytes and says so.

#include <gtest/gtest.h>

#include <httplib.h>
#include <signal.h>
#include <sys/resource.h>

#include <QLabel>
#include <QPushButton>

#include <mutex>
#include <thread>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/ui/dashboard/pages/ModelsPage.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/widgets/ModelRowView.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

// Serves one file at the hub's path for the Whisper weights; httplib honours "Range: bytes=N-".
class LocalHub {
  public:
    explicit LocalHub(std::string weights) : weights_(std::move(weights)) {
        server_.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
            if (!request.path.ends_with("/ggml-large-v3-turbo-q5_0.bin")) {
                response.status = 404;
                return;
            }
            {
                std::lock_guard lock(mutex_);
                ranges_.push_back(request.get_header_value("Range"));
            }
            // The server answers a Range itself: 206 with that part of the whole body.
            response.set_content(weights_, "application/octet-stream");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~LocalHub() {
        server_.stop();
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::vector<std::string> ranges() {
        std::lock_guard lock(mutex_);
        return ranges_;
    }

  private:
    const std::string weights_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::vector<std::string> ranges_;  // the Range header of each download, "" without one
};

// Files this process writes may grow to `bytes` at most while it lives; a write beyond fails
// with EFBIG, as one on a full disk fails with ENOSPC.
class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        ::getrlimit(RLIMIT_FSIZE, &saved_);
        previousSignal_ = ::signal(SIGXFSZ, SIG_IGN);
        rlimit limited = saved_;
        limited.rlim_cur = bytes;
        ::setrlimit(RLIMIT_FSIZE, &limited);
    }
    ~FileSizeLimit() { lift(); }
    void lift() {
        if (lifted_) return;
        lifted_ = true;
        ::setrlimit(RLIMIT_FSIZE, &saved_);
        ::signal(SIGXFSZ, previousSignal_);
    }

  private:
    rlimit saved_{};
    sighandler_t previousSignal_ = SIG_DFL;
    bool lifted_ = false;
};

std::string joined(const std::vector<std::string>& lines) {
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

TEST(ModelsPageTest, AFullDiskFailsTheDownloadRetryResumesItAndRemoveFreesTheBytes) {
    auto& app = testing::qtTestApp();
    testing::LogCapture logs;
    testing::ScratchFolder folder;
    const auto weights =
        readFile(fs::path(CORVANE_WHISPER_TEST_MODEL_DIR) / "ggml-large-v3-turbo-q5_0.bin");
    ASSERT_TRUE(weights && weights->size() > 2'000'000) << "the generated test model";
    LocalHub hub(*weights);

    // An enrolled computer whose coordinator is not there: the worker only needs its model.
    const std::string coordinator = "http://127.0.0.1:9";
    fs::create_directories(folder / "varnix");
    writeFileAtomically(folder / "varnix/config.yaml",
                        "coordinator_url: '" + coordinator + "'\nworker_id: 'w-models'\n", 0600);
    auto credentials = std::make_shared<FileCredentialBackend>(folder / "varnix/credentials");
    KeychainStore(credentials).storePythonWorkerToken("token", coordinator, "w-models");
    AppEnvironment env = AppEnvironment::system("0.2.0");
    env.configPath = folder / "varnix/config.yaml";
    env.runtimeStatePath = folder / "varnix/worker-runtime-state.json";
    env.modelRoot = folder / "weights";
    env.parakeetDirectory = folder / "parakeet";
    env.tempDirectory = folder / "shards";
    env.userDefaultsFile = folder / "defaults.json";
    env.credentials = credentials;
    env.session = std::make_shared<const http::Session>();
    env.secondsSinceLastInput = [] { return std::optional<double>(0); };
    env.isOnACPower = [] { return true; };
    env.meetingProbe = [] { return MeetingDetector::Snapshot{}; };
    env.modelRetrySeconds = 0;  // only the page retries

    QtExecutor main(app);
    ::setenv("REGISTRY_URL", hub.url().c_str(), 1);  // read once, as the model cache is made
    AppSession session(main, env);
    ::unsetenv("REGISTRY_URL");
    PageContext context{session, main, [](DashPage) {}, [] {}};
    ModelsPage page(context);
    auto row = [&] { return page.row("whisper-large-v3-turbo"); };
    Subscription follow;
    auto button = [&](const char* name) { return page.findChild<QPushButton*>(name); };

    {
        FileSizeLimit disk(1'000'000);
        session.launch();  // enrolled: the Whisper download starts
        // What the dashboard window does for the page it shows.
        follow = session.model().observe([&](ModelParts parts) {
            if (parts.intersects(page.observedParts())) page.refresh();
        });
        page.show();
        page.refresh();
        page.shown();
        ASSERT_TRUE(testing::runEventsUntil([&] { return button("whisper-large-v3-turbo-retry"); }))
            << joined(logs.lines());
    }
    auto* failure = row()->findChild<QLabel*>("modelProgressText");
    EXPECT_TRUE(failure->text().startsWith("I/O error at ")) << failure->text().toStdString();
    EXPECT_EQ(row()->findChild<QLabel*>("modelStatus")->text(), "Download failed");
    const auto partial = folder /
                         "weights/whisper-cpp-swift--whisper-large-v3-turbo-q4--1/"
                         "ggml-large-v3-turbo-q5_0.bin.partial";
    ASSERT_TRUE(fs::exists(partial));
    const auto kept = fs::file_size(partial);
    EXPECT_GT(kept, 0u);

    // Room again: the retry resumes where the full disk stopped it, and Whisper loads.
    button("whisper-large-v3-turbo-retry")->click();
    ASSERT_TRUE(testing::runEventsUntil([&] {
        return button("whisper-large-v3-turbo-remove") != nullptr;
    })) << joined(logs.lines());
    EXPECT_EQ(row()->findChild<QLabel*>("modelStatus")->text(), "Installed")
        << joined(logs.lines());
    ASSERT_GE(hub.ranges().size(), 2u);
    EXPECT_EQ(hub.ranges().back(), "bytes=" + std::to_string(kept) + "-");
    const auto installed = folder /
                           "weights/whisper-cpp-swift--whisper-large-v3-turbo-q4--1/"
                           "ggml-large-v3-turbo-q5_0.bin";
    EXPECT_TRUE(readFile(installed) == weights) << "the installed weights are the hub's";

    button("whisper-large-v3-turbo-remove")->click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return button("whisper-large-v3-turbo-install"); }));
    EXPECT_FALSE(fs::exists(installed));
    EXPECT_EQ(page.findChild<QLabel*>("removalText")->text().toStdString(),
              "Removed Whisper large-v3-turbo · freed " +
                  std::to_string(weights->size() / 1'000'000) + " MB");
    // Parakeet has no runtime in this build: nothing to install, and it says why.
    EXPECT_EQ(page.findChild<QPushButton*>("parakeet-tdt-0.6b-v2-install"), nullptr);
    EXPECT_TRUE(page.row("parakeet-tdt-0.6b-v2")
                    ->findChild<QLabel*>("modelNote")
                    ->text()
                    .contains("no runtime for Parakeet"));
    session.terminate();
}

}  // namespace
}  // namespace corvane
