// Signing out while a shard runs, as the settings page does it: the real session in a scratch
// home, enrolled against the local coordinator, with the generated model. The shard in hand is
// reported once as "worker_shutdown", then the enrolment goes.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(SignOut, WhileAShardRunsItIsReportedOnceAndThenTheCredentialsGo) {
    ScratchFolder home;
    home.write("audio/speech.wav", wavBytes(sineSamples(2.0)));
    dev::DevCoordinator::Options options;
    options.audioDir = home / "audio";
    dev::DevCoordinator coordinator(options);
    dev::ScriptedReply stalled;
    stalled.delaySeconds = 60;  // the shard's audio never arrives while the test runs
    coordinator.enqueueReply("/audio/", stalled);
    coordinator.addShard(
        {"job-out", "out-1", "speech.wav", std::nullopt, std::nullopt, std::nullopt});

    std::string grid = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 7; ++day) {
        grid += "    - [true";
        for (int hour = 1; hour < 24; ++hour) grid += ", true";
        grid += "]\n";
    }
    const fs::path config =
        home.write("varnix/config.yaml", "coordinator_url: \"" + coordinator.baseURL() +
                                             "\"\nworker_id: \"w-out\"\n" + grid);
    auto credentials = std::make_shared<FileCredentialBackend>(home / "varnix/credentials");
    KeychainStore(credentials).storePythonWorkerToken("dev-token", coordinator.baseURL(), "w-out");
    const fs::path weights = home / "weights/whisper-cpp-swift--whisper-large-v3-turbo-q4--1" /
                             WhisperImpl::defaultModelFilename;
    fs::create_directories(weights.parent_path());
    fs::copy_file(whisperTestModelFile(), weights);

    AppEnvironment env;
    env.configPath = config;
    env.runtimeStatePath = home / "varnix/worker-runtime-state.json";
    env.modelRoot = home / "weights";
    env.parakeetDirectory = home / "weights/parakeet";
    env.tempDirectory = home / "shards";
    env.userDefaultsFile = home / "defaults.json";
    env.logDirectory = home / "logs";
    env.credentials = credentials;
    env.session = std::make_shared<const http::Session>();
    env.machine = std::make_shared<ProcMachineProbe>();
    env.samplerProbes =
        std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{});
    env.secondsSinceLastInput = [] { return std::optional<double>(3600.0); };  // away
    env.isOnACPower = [] { return true; };
    env.meetingProbe = [] { return MeetingDetector::Snapshot{}; };

    ManualExecutor main;
    AppSession session(main, std::move(env));
    session.launch();
    // The worker posts to the main sequence from its threads; the monitors tick on it.
    const auto deadline = std::chrono::steady_clock::now() + 120s;
    auto audioAsked = [&] {
        return std::ranges::any_of(coordinator.requests(),
                                   [](const auto& r) { return r.path.starts_with("/audio/"); });
    };
    while (!audioAsked() && std::chrono::steady_clock::now() < deadline) {
        main.advance(0.5);
        std::this_thread::sleep_for(5ms);
    }
    ASSERT_TRUE(audioAsked()) << "the shard never started";
    ASSERT_EQ(session.model().phase(), AppPhase::enrolled);

    session.model().signOut();
    const auto failures = coordinator.failures();
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_EQ(failures[0].shardID, "out-1");
    EXPECT_EQ(failures[0].error.substr(0, 20), "code=worker_shutdown");
    EXPECT_FALSE(fs::exists(config));
    EXPECT_EQ(KeychainStore(credentials).pythonWorkerToken(coordinator.baseURL(), "w-out"),
              std::nullopt);
    EXPECT_EQ(session.model().phase(), AppPhase::notEnrolled);
    EXPECT_EQ(session.model().statusLabel(), "Not enrolled");
    session.terminate();
    EXPECT_EQ(coordinator.failures().size(), 1u) << "nothing reported twice";
}

}  // namespace
}  // namespace corvane::testing
