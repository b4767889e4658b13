// The Whisper weights' download as the popover shows it: a local server hands out the weights one
// piece at a time, when the test says, and the popover's download row follows them from 0% to
// gone once the model is ready and the worker starts.

#include <gtest/gtest.h>

#include <httplib.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/dashboard/PopoverState.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/WhisperFixtures.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

// Serves one file in `pieces` parts; each part goes out only once the test releases it.
class PiecewiseServer {
  public:
    PiecewiseServer(std::string body, int pieces) : body_(std::move(body)), pieces_(pieces) {
        server_.Get(".*", [this](const httplib::Request&, httplib::Response& response) {
            response.set_content_provider(
                body_.size(), "application/octet-stream",
                [this](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                    const std::size_t piece = (body_.size() + pieces_ - 1) / pieces_;
                    const int index = int(offset / piece);
                    std::unique_lock lock(mutex_);
                    released_.wait(lock, [&] { return releasedPieces_ > index || stopped_; });
                    if (stopped_) return false;
                    lock.unlock();
                    return sink.write(body_.data() + offset,
                                      std::min(piece, body_.size() - offset));
                });
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
    }
    ~PiecewiseServer() {
        {
            std::lock_guard lock(mutex_);
            stopped_ = true;
        }
        released_.notify_all();
        server_.stop();
        thread_.join();
    }
    std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/weights"; }
    void release() {
        {
            std::lock_guard lock(mutex_);
            ++releasedPieces_;
        }
        released_.notify_all();
    }

  private:
    std::string body_;
    int pieces_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable released_;
    int releasedPieces_ = 0;  // guarded by mutex_
    bool stopped_ = false;    // guarded by mutex_
};

TEST(DownloadProgress, ThePopoverRowFollowsTheWeightsFromNothingToReady) {
    ScratchFolder home;
    const std::string weights = *readFile(whisperTestModelFile());
    PiecewiseServer server(weights, 4);

    // An enrolled home whose coordinator is never reached while the model downloads.
    fs::create_directories(home.path() / "varnix");
    writeFileAtomically(home.path() / "varnix" / "config.yaml",
                        "coordinator_url: \"http://127.0.0.1:9\"\nworker_id: \"wk_dl\"\n", 0600);
    auto credentials =
        std::make_shared<FileCredentialBackend>(home.path() / "varnix" / "credentials");
    KeychainStore(credentials).storePythonWorkerToken("token", "http://127.0.0.1:9", "wk_dl");

    AppEnvironment env;
    env.configPath = home.path() / "varnix" / "config.yaml";
    env.runtimeStatePath = home.path() / "varnix" / "worker-runtime-state.json";
    env.modelRoot = home.path() / "models";
    env.parakeetDirectory = home.path() / "parakeet";
    env.tempDirectory = home.path() / "shards";
    env.userDefaultsFile = home.path() / "defaults.json";
    env.version = "test";
    env.credentials = credentials;
    env.session = std::make_shared<const http::Session>();
    env.machine = std::make_shared<ProcMachineProbe>();
    env.samplerProbes =
        std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{});
    env.isOnACPower = [] { return true; };
    env.meetingProbe = [] { return MeetingDetector::Snapshot{}; };
    env.secondsSinceLastInput = [] { return std::optional<double>(); };
    env.modelRegistry = ModelCacheRegistry(
        HubSettings{}, {ModelSpec{whisperModelIdentifier(), server.url(),
                                  "ggml-large-v3-turbo-q5_0.bin", weights.size(), std::nullopt}});

    ManualExecutor main;
    AppSession session(main, std::move(env));
    session.launch();
    std::vector<std::string> rows;  // each distinct row the popover showed, in order
    auto note = [&] {
        auto row = downloadRowState(session.model());
        const std::string text = row ? row->subtitle : "(none)";
        if (rows.empty() || rows.back() != text) rows.push_back(text);
    };
    auto waitFor = [&](const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        note();
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            main.runUntilIdle();
            note();
            std::this_thread::sleep_for(5ms);  // the transfer runs on its own thread
        }
        return true;
    };
    auto shownPercent = [&]() -> int {
        auto row = downloadRowState(session.model());
        return row && !row->failed ? std::stoi(row->subtitle) : -1;
    };

    ASSERT_TRUE(waitFor([&] { return shownPercent() == 0; })) << ::testing::PrintToString(rows);
    EXPECT_EQ(session.model().statusLabel(), "Downloading model");
    ASSERT_FALSE(rows.empty());
    EXPECT_TRUE(rows.back().ends_with(" / 8 MB")) << rows.back();
    // Each piece moves the row on (the cache writes in blocks, so a row may trail a piece by a
    // block; it never stands still for a whole piece).
    for (int piece = 1; piece < 4; ++piece) {
        const int before = shownPercent();
        server.release();
        ASSERT_TRUE(waitFor([&] { return shownPercent() > before; }))
            << ::testing::PrintToString(rows);
    }
    server.release();
    ASSERT_TRUE(waitFor([&] {
        return !downloadRowState(session.model()) &&
               session.model().modelInstall().installedModelIDs().contains(
                   whisperModelIdentifier());
    })) << ::testing::PrintToString(rows);
    EXPECT_NE(session.model().statusLabel(), "Downloading model");
    // Never backwards: each row shows at least the percentage of the one before.
    int last = -1;
    for (const auto& row : rows) {
        if (row == "(none)") continue;
        const int percent = std::stoi(row);
        EXPECT_GE(percent, last) << ::testing::PrintToString(rows);
        last = percent;
    }
    EXPECT_EQ(rows.back(), "(none)");
    session.terminate();
}

}  // namespace
}  // namespace corvane::testing
