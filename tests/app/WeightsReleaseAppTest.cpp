// The application lets a paused worker's Whisper weights go, on the generated model: after the
// delay of an owner's pause the engine has released them while every input of the status words
// stays as it was, and a model file that went or broke meanwhile is fetched anew when the next
// shard cannot load it.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/WhisperFixtures.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using Progress = ModelDownloadProgress;

// Nothing listens there: the coordinator and the hub both refuse at once.
constexpr const char* kNobody = "http://127.0.0.1:9";

class WeightsReleaseApp : public ::testing::Test {
  protected:
    void SetUp() override {
        const fs::path varnix = folder.path() / "varnix";
        fs::create_directories(varnix);
        // RAM ceilings no machine reaches, so that memory admission never refuses the reload here.
        writeFileAtomically(varnix / "config.yaml",
                            std::string("coordinator_url: \"") + kNobody +
                                "\"\nworker_id: \"w1\"\nresource_policy:\n"
                                "  away_ram_ceiling_gb: 100000\n  in_use_ram_ceiling_gb: 100000\n",
                            0600);
        KeychainStore(std::make_shared<FileCredentialBackend>(varnix / "credentials"))
            .storePythonWorkerToken("token", kNobody, "w1");
        fs::create_directories(modelFile().parent_path());
        fs::copy_file(whisperTestModelFile(), modelFile());

        ::setenv("REGISTRY_URL", kNobody, 1);  // read once, as the model cache is made
        AppEnvironment env;
        env.configPath = varnix / "config.yaml";
        env.runtimeStatePath = varnix / "worker-runtime-state.json";
        env.modelRoot = folder.path() / "weights";
        env.parakeetDirectory = folder.path() / "parakeet";
        env.tempDirectory = folder.path();
        env.userDefaultsFile = folder.path() / "defaults.json";
        env.credentials = std::make_shared<FileCredentialBackend>(varnix / "credentials");
        env.session = std::make_shared<const http::Session>();
        env.machine = std::make_shared<ProcMachineProbe>();
        env.secondsSinceLastInput = [] { return std::optional<double>(0.0); };
        delegate = AppDelegate::create(main, std::move(env));
        ::unsetenv("REGISTRY_URL");
    }
    void TearDown() override { delegate->terminate(); }

    fs::path modelFile() const {
        return folder.path() / "weights" / "whisper-cpp-swift--whisper-large-v3-turbo-q4--1" /
               WhisperImpl::defaultModelFilename;
    }
    // The model task and the repair report through the main sequence from their own threads.
    bool waitUntil(const std::function<bool()>& condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            main.runUntilIdle();
            std::this_thread::yield();
        }
        return true;
    }
    // A shard's inference on the current handler, as the worker would run it.
    std::string shardError() {
        const auto audio = folder.write("speech.wav", wavBytes(sineSamples(2)));
        const ClaimedJob job{"job-1",
                             "s-1",
                             ModelCategory::transcription,
                             whisperModelIdentifier(),
                             audio.string(),
                             systemNow(),
                             std::nullopt};
        return modelErrorOf([&] { delegate->currentHandler()->handle(job, {}, {}); });
    }
    bool downloading() const {
        const auto& progress = delegate->modelDownloadProgress();
        return progress && std::holds_alternative<Progress::Downloading>(progress->phase);
    }
    bool failed() const {
        const auto& progress = delegate->modelDownloadProgress();
        return progress && std::holds_alternative<Progress::Failed>(progress->phase);
    }

    ScratchFolder folder;
    ManualExecutor main;
    std::shared_ptr<AppDelegate> delegate;
};

TEST_F(WeightsReleaseApp, AnOwnersPauseReleasesTheWeightsAndTheStatusInputsStayAsTheyWere) {
    delegate->buildAndStartWorkerIfPossible();
    ASSERT_TRUE(waitUntil([&] { return delegate->modelReady(); }));
    const bool running = delegate->workerBridge()->isRunning();
    LogCapture logs;
    auto hold = delegate->eligibilityGate().pause("Paused by you");
    main.advance(599);
    EXPECT_FALSE(logs.contains("Whisper weights released"));
    main.advance(1);
    EXPECT_TRUE(logs.contains("Whisper weights released while the worker is paused"));
    // What the status words are made of: the model is ready and not downloading, the worker runs.
    EXPECT_TRUE(delegate->modelReady());
    EXPECT_EQ(delegate->modelDownloadProgress(), std::nullopt);
    EXPECT_EQ(delegate->workerBridge()->isRunning(), running);
    EXPECT_EQ(delegate->currentHandler()->releaseWeights(), WeightsRelease::nothingHeld);
}

TEST_F(WeightsReleaseApp, AModelFileThatWentOrBrokeWhileReleasedIsFetchedAgain) {
    delegate->buildAndStartWorkerIfPossible();
    ASSERT_TRUE(waitUntil([&] { return delegate->modelReady(); }));
    ASSERT_EQ(delegate->currentHandler()->releaseWeights(), WeightsRelease::released);

    // Gone: the shard fails with the model error, and the cache sets out to fetch the file (from
    // a hub that refuses here, so that ends in a failure the models page shows).
    fs::remove(modelFile());
    LogCapture logs;
    EXPECT_EQ(shardError(), "modelNotInstalled");
    main.runUntilIdle();
    EXPECT_TRUE(logs.contains("repairWhisperWeights: the Whisper weights could not be reloaded"));
    EXPECT_TRUE(downloading() || failed());
    ASSERT_TRUE(waitUntil([&] { return failed(); }));

    // Broken: a file at the cache's final path counts as complete, so the repair removes it
    // before fetching; the shard has the model error of a file whisper.cpp cannot load.
    writeFileAtomically(modelFile(), std::string(4096, 'x'));
    EXPECT_EQ(shardError(), "backendCrashed(underlying: contextInitFailed)");
    main.runUntilIdle();
    EXPECT_FALSE(fs::exists(modelFile()));
    EXPECT_TRUE(downloading() || failed());
    ASSERT_TRUE(waitUntil([&] { return failed(); }));
}

}  // namespace
}  // namespace corvane::testing
