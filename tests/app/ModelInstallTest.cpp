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
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
            ::listen(fd, 8) != 0 ||
            ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot listen on 127.0.0.1");
        }
        url = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port));
    }
    ~SilentServer() { ::close(fd); }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;

    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    std::string url;
};

TEST(ModelInstall, ParakeetFailsInWordsInstallsIsRemovedAndWaitsWhileWhisperDownloads) {
    ScratchFolder folder;
    ManualExecutor main;
    LogCapture logs;
    SilentServer hub;
    ::setenv("REGISTRY_URL", hub.url.c_str(), 1);  // read once, as the model cache is made
    AppEnvironment env;
    env.configPath = folder.path() / "varnix" / "config.yaml";
    env.runtimeStatePath = folder.path() / "varnix" / "worker-runtime-state.json";
    env.modelRoot = folder.path() / "weights";
    env.parakeetDirectory = folder.path() / "models" / "parakeet-tdt-0.6b-v2";
    env.parakeetRuntime = scriptedParakeetRuntime();
    env.tempDirectory = folder.path() / "shards";
    env.userDefaultsFile = folder.path() / "defaults.json";
    env.credentials =
        std::make_shared<FileCredentialBackend>(folder.path() / "varnix" / "credentials");
    env.session = std::make_shared<const http::Session>();
    env.machine = std::make_shared<ProcMachineProbe>();
    auto delegate = AppDelegate::create(main, std::move(env));
    ::unsetenv("REGISTRY_URL");
    int notified = 0;
    auto subscription = delegate->observe([&] { ++notified; });
    // The install task reports through the main sequence from its own thread; `drain` delivers.
    auto waitUntil = [&](const std::function<bool()>& condition, bool drain = true) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            if (drain) main.runUntilIdle();
            std::this_thread::yield();
        }
        return true;
    };

    // Nothing on disk, no hub: the install fails. A removal after the task has posted that
    // failure clears the progress, and the late report must not bring it back.
    delegate->requestModelInstall(parakeetModelIdentifier());
    ASSERT_TRUE(waitUntil([&] { return logs.contains("startParakeetInstallTask failed"); }, false));
    EXPECT_EQ(delegate->requestModelRemove(parakeetModelIdentifier()), 0u);
    main.runUntilIdle();
    EXPECT_EQ(delegate->modelDownloadProgress(), std::nullopt);
    delegate->requestModelInstall(parakeetModelIdentifier());
    ASSERT_TRUE(waitUntil([&] {
        return std::holds_alternative<Progress::Failed>(
            delegate->modelDownloadProgress().value().phase);
    }));
    EXPECT_NE(std::get<Progress::Failed>(delegate->modelDownloadProgress()->phase).description, "")
        << "why, in words";

    installScriptedParakeet(folder);  // the set is in place: the install only proves it loads
    notified = 0;
    delegate->requestModelInstall(parakeetModelIdentifier());
    const std::uint64_t total = catalogueEntry(parakeetModelIdentifier())->downloadSizeBytes;
    EXPECT_EQ(delegate->modelDownloadProgress(),
              (Progress{"Parakeet TDT v2", Progress::Downloading{0, total}}));
    ASSERT_TRUE(waitUntil([&] { return !delegate->modelDownloadProgress(); }));
    EXPECT_GE(notified, 2);
    std::uint64_t onDisk = 0;
    for (const auto& entry : fs::recursive_directory_iterator(folder.path() / "models")) {
        if (entry.is_regular_file()) onDisk += entry.file_size();
    }
    EXPECT_EQ(delegate->requestModelRemove(parakeetModelIdentifier()), onDisk);
    EXPECT_FALSE(delegate->installedModelIDs().contains(parakeetModelIdentifier()));

    const auto coordinator = "http://127.0.0.1:9";
    fs::create_directories(folder.path() / "varnix");
    writeFileAtomically(
        folder.path() / "varnix" / "config.yaml",
        std::string("coordinator_url: \"") + coordinator + "\"\nworker_id: \"w1\"\n", 0600);
    KeychainStore(std::make_shared<FileCredentialBackend>(folder.path() / "varnix" / "credentials"))
        .storePythonWorkerToken("token", coordinator, "w1");
    delegate->buildAndStartWorkerIfPossible();  // the Whisper weights now download, and stall
    const auto whisper = delegate->modelDownloadProgress();  // from 0 of the expected size
    ASSERT_TRUE(whisper && whisper->modelDisplayName == "Whisper large-v3 turbo");
    ASSERT_TRUE(std::holds_alternative<Progress::Downloading>(whisper->phase));
    delegate->requestModelInstall(parakeetModelIdentifier());
    EXPECT_EQ(
        delegate->modelDownloadProgress(),
        (Progress{"Parakeet TDT v2",
                  Progress::Failed{
                      "Wait for Whisper large-v3 turbo to finish downloading, then try again."}}));
    delegate->terminate();  // cancels the stalled download
}

}  // namespace
}  // namespace corvane::testing
