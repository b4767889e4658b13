// The models screen's install and remove, as the application carries them out: one download at a
// time, progress the screens can show, failures in words, and the bytes a removal freed.

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/parakeet/ParakeetFixtures.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using Progress = ModelDownloadProgress;

// A port that accepts connections and never answers: a download from it stays in progress.
class SilentServer {
public:
    SilentServer() {
        fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), length) != 0 || ::listen(fd_, 8) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    ~SilentServer() { ::close(fd_); }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    const std::string& url() const { return url_; }

private:
    int fd_ = -1;
    std::string url_;
};

class ModelInstall : public ::testing::Test {
protected:
    std::shared_ptr<AppDelegate> makeDelegate(std::shared_ptr<const ParakeetRuntime> runtime) {
        AppEnvironment env;
        env.configPath = folder.path() / "varnix" / "config.yaml";
        env.runtimeStatePath = folder.path() / "varnix" / "worker-runtime-state.json";
        env.modelRoot = folder.path() / "weights";
        env.parakeetDirectory = folder.path() / "models" / "parakeet-tdt-0.6b-v2";
        env.parakeetRuntime = std::move(runtime);
        env.tempDirectory = folder.path();
        env.userDefaultsFile = folder.path() / "defaults.json";
        env.version = "test";
        env.credentials = std::make_shared<FileCredentialBackend>(folder.path() / "varnix" / "credentials");
        env.session = std::make_shared<const http::Session>();
        env.machine = std::make_shared<ProcMachineProbe>();
        return AppDelegate::create(main, std::move(env));
    }

    // The install task reports through the main sequence from its own thread.
    bool drainUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            main.runUntilIdle();
            std::this_thread::yield();
        }
        return true;
    }

    static bool failed(const std::optional<Progress>& p) {
        return p && std::holds_alternative<Progress::Failed>(p->phase);
    }
    static std::string failureText(const std::optional<Progress>& p) {
        return failed(p) ? std::get<Progress::Failed>(p->phase).description : "";
    }

    ScratchFolder folder;
    ManualExecutor main;
    LogCapture logs;
};

TEST_F(ModelInstall, ParakeetInstallsReportsAndIsRemovedWithTheBytesItFreed) {
    installScriptedParakeet(folder);  // the set is in place: the install only proves it loads
    auto delegate = makeDelegate(scriptedParakeetRuntime());
    int notified = 0;
    auto subscription = delegate->observe([&] { ++notified; });

    delegate->requestModelInstall(parakeetModelIdentifier());
    const std::uint64_t total = catalogueEntry(parakeetModelIdentifier())->downloadSizeBytes;
    EXPECT_EQ(delegate->modelDownloadProgress(), (Progress{"Parakeet TDT v2", Progress::Downloading{0, total}}));
    ASSERT_TRUE(drainUntil([&] { return !delegate->modelDownloadProgress(); }));
    EXPECT_TRUE(delegate->installedModelIDs().contains(parakeetModelIdentifier()));
    EXPECT_TRUE(logs.contains("startParakeetInstallTask: Parakeet weights ready"));
    EXPECT_GE(notified, 2);

    std::uint64_t onDisk = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path() / "models")) {
        if (entry.is_regular_file()) onDisk += entry.file_size();
    }
    EXPECT_EQ(delegate->requestModelRemove(parakeetModelIdentifier()), onDisk);
    EXPECT_FALSE(fs::exists(folder.path() / "models" / "parakeet-tdt-0.6b-v2"));
    EXPECT_FALSE(delegate->installedModelIDs().contains(parakeetModelIdentifier()));
    EXPECT_TRUE(logs.contains("removeParakeetCache: removed " + std::to_string(onDisk) + " bytes at"));
    // Whisper's weights are absent: removing them frees nothing and fails nothing.
    EXPECT_EQ(delegate->requestModelRemove(whisperModelIdentifier()), 0u);
    delegate->terminate();
}

TEST_F(ModelInstall, AFailedParakeetInstallShowsWhyAndAStaleReportIsDropped) {
    struct Row {
        const char* name;
        bool runtime;
        const char* text;
    };
    for (const Row& row : {Row{"no runtime here", false, "No runtime on this computer can run Parakeet"},
                           Row{"no hub reachable", true, ""}}) {
        SCOPED_TRACE(row.name);
        auto delegate = makeDelegate(row.runtime ? scriptedParakeetRuntime() : nullptr);
        delegate->requestModelInstall(parakeetModelIdentifier());
        ASSERT_TRUE(drainUntil([&] { return failed(delegate->modelDownloadProgress()); }));
        EXPECT_EQ(delegate->modelDownloadProgress()->modelDisplayName, "Parakeet TDT v2");
        if (*row.text) {
            EXPECT_EQ(failureText(delegate->modelDownloadProgress()), row.text);
        }
        EXPECT_FALSE(failureText(delegate->modelDownloadProgress()).empty());
        EXPECT_TRUE(logs.contains("startParakeetInstallTask failed: " + failureText(delegate->modelDownloadProgress())));
        EXPECT_FALSE(delegate->installedModelIDs().contains(parakeetModelIdentifier()));

        // A removal while the next install runs clears its progress; that task's late report
        // must not bring it back.
        delegate->requestModelInstall(parakeetModelIdentifier());
        EXPECT_EQ(delegate->requestModelRemove(parakeetModelIdentifier()), 0u);
        EXPECT_EQ(delegate->modelDownloadProgress(), std::nullopt);
        main.runUntilIdle();
        EXPECT_EQ(delegate->modelDownloadProgress(), std::nullopt);
        delegate->terminate();
    }
}

TEST_F(ModelInstall, ParakeetWaitsWhileWhisperIsDownloading) {
    SilentServer hub;
    ::setenv("REGISTRY_URL", hub.url().c_str(), 1);  // read once, as the model cache is made
    auto delegate = makeDelegate(scriptedParakeetRuntime());
    ::unsetenv("REGISTRY_URL");
    const auto coordinator = "http://127.0.0.1:9";
    fs::create_directories(folder.path() / "varnix");
    writeFileAtomically(folder.path() / "varnix" / "config.yaml",
                        std::string("coordinator_url: \"") + coordinator + "\"\nworker_id: \"w1\"\n", 0600);
    KeychainStore(std::make_shared<FileCredentialBackend>(folder.path() / "varnix" / "credentials"))
        .storePythonWorkerToken("token", coordinator, "w1");
    delegate->buildAndStartWorkerIfPossible();  // the Whisper weights now download, and stall
    ASSERT_EQ(delegate->modelDownloadProgress(), (Progress{"Whisper large-v3 turbo", Progress::Downloading{}}));

    delegate->requestModelInstall(parakeetModelIdentifier());
    EXPECT_EQ(delegate->modelDownloadProgress(),
              (Progress{"Parakeet TDT v2",
                        Progress::Failed{"Wait for Whisper large-v3 turbo to finish downloading, then try again."}}));
    EXPECT_TRUE(logs.contains("startParakeetInstallTask: blocked \u2014 Whisper large-v3 turbo is already downloading"));
    main.runUntilIdle();
    EXPECT_FALSE(logs.contains("startParakeetInstallTask: downloading")) << "nothing was started";
    delegate->terminate();  // cancels the stalled download
    EXPECT_EQ(delegate->modelDownloadProgress(), std::nullopt);
}

}  // namespace
}  // namespace corvane::testing
