// The worker as the application builds it, against the local coordinator: many shards, hostile
// audio among them (empty, truncated, not audio at all, missing, cut off mid-transfer), and no
// shard audio left anywhere afterwards. What an earlier run left goes before the first poll; a
// shard folder that cannot be made holds the worker back in words until it can.

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <chrono>
#include <fstream>

#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/models/AudioFixtures.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::vector<std::string> shardEntries(const fs::path& directory) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(directory, ignored)) {
        if (entry.path().filename().string().starts_with(shardAudioPrefix))
            names.push_back(entry.path().filename().string());
    }
    return names;
}

class ShardAudioEndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        // Whatever in this process asks for the temporary folder gets this one.
        ::setenv("TMPDIR", tmp.path().c_str(), 1);
        fs::path weights = home / "models" / "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
        fs::create_directories(weights);
        fs::copy_file(whisperTestModelFile(), weights / WhisperImpl::defaultModelFilename);
    }
    void TearDown() override {
        if (delegate) delegate->terminate();
        ::unsetenv("TMPDIR");
    }

    void startCoordinator(std::vector<dev::ShardSpec> shards) {
        coordinator = std::make_unique<dev::DevCoordinator>(
            dev::DevCoordinator::Options{.audioDir = AudioFixtures::directory(),
                                         .shards = std::move(shards),
                                         .suggestedMaxShards = kInFlight});
        const auto url = coordinator->baseURL();
        fs::create_directories(home / "varnix");
        writeFileAtomically(home / "varnix" / "config.yaml",
                            "coordinator_url: \"" + url + "\"\nworker_id: \"worker-e2e\"\n", 0600);
        KeychainStore(credentials()).storePythonWorkerToken("dev-token", url, "worker-e2e");
    }
    std::shared_ptr<CredentialBackend> credentials() {
        return std::make_shared<FileCredentialBackend>(home / "varnix" / "credentials");
    }

    void buildWorker() {
        AppEnvironment env;
        env.configPath = home / "varnix" / "config.yaml";
        env.runtimeStatePath = home / "varnix" / "worker-runtime-state.json";
        env.modelRoot = home / "models";
        env.parakeetDirectory = home / "parakeet";
        env.tempDirectory = shards;
        env.userDefaultsFile = home / "defaults.json";
        env.version = "e2e";
        env.credentials = credentials();
        env.session = std::make_shared<const http::Session>();
        env.machine = std::make_shared<ProcMachineProbe>();
        env.secondsSinceLastInput = [] { return std::optional<double>(); };
        delegate = AppDelegate::create(main, std::move(env));
        delegate->buildAndStartWorkerIfPossible();
    }

    std::size_t reports() const {
        return coordinator->results().size() + coordinator->failures().size();
    }
    std::size_t polls() const {
        std::size_t count = 0;
        for (const auto& request : coordinator->requests())
            count += request.path.starts_with("/api/v1/workers/poll");
        return count;
    }
    // Runs the main sequence (model ready, worker events) until `condition` holds; each turn
    // also notes how many shard files the folder holds.
    bool runUntil(const std::function<bool()>& condition, std::chrono::seconds limit = 240s) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) return false;
            main.runUntilIdle();
            mostFiles = std::max(mostFiles, shardEntries(shards).size());
            coordinator->waitUntil([&](const dev::DevCoordinator&) { return condition(); }, 5ms);
        }
        return true;
    }

    static constexpr int kInFlight = 4;
    ScratchFolder home;
    ScratchFolder tmp;
    fs::path shards = home / "cache" / "Corvane" / "shards";
    ManualExecutor main;
    std::unique_ptr<dev::DevCoordinator> coordinator;
    std::shared_ptr<AppDelegate> delegate;
    std::size_t mostFiles = 0;
};

TEST_F(ShardAudioEndToEnd, ManyShardsHostileAudioIncludedLeaveNoAudioBehind) {
    const auto speech = AudioFixtures::speech();
    AudioFixtures::ffmpeg("e2e-speech.mp3", {"-i", speech.string()});
    AudioFixtures::ffmpeg("e2e-speech.flac", {"-i", speech.string()});
    std::ifstream in(speech, std::ios::binary);
    const std::string wav{std::istreambuf_iterator<char>(in), {}};
    AudioFixtures::bytes("hostile-empty.wav", "");
    AudioFixtures::bytes("hostile-truncated.wav", wav.substr(0, wav.size() / 2));
    AudioFixtures::bytes("hostile-text.mp3", "this is not audio at all\n");
    AudioFixtures::bytes("hostile-dropped.wav", wav);

    // Spoken shards of one job in three formats, a whole job, then the hostile ones.
    std::vector<dev::ShardSpec> specs;
    for (const auto& [job, shard, file] :
         std::vector<std::tuple<std::string, std::string, std::string>>{
             {"job-good", "wav", speech.filename().string()},
             {"job-good", "mp3", "e2e-speech.mp3"},
             {"job-good", "flac", "e2e-speech.flac"},
             {"job-whole", "", speech.filename().string()},
             {"job-bad", "empty", "hostile-empty.wav"},
             {"job-bad", "truncated", "hostile-truncated.wav"},
             {"job-bad", "text", "hostile-text.mp3"},
             {"job-bad", "missing", "hostile-missing.wav"},
             {"job-bad", "dropped", "hostile-dropped.wav"}}) {
        specs.push_back({.jobID = job,
                         .shardID = shard.empty() ? std::nullopt : std::optional(shard),
                         .audioFile = file});
    }
    for (int i = 0; i < 5; ++i)
        specs.push_back({.jobID = "job-more",
                         .shardID = "m" + std::to_string(i),
                         .audioFile = "e2e-speech.mp3"});
    startCoordinator(specs);
    coordinator->enqueueReply(
        "/audio/hostile-dropped.wav",
        dev::ScriptedReply{.body = wav, .contentType = "audio/wav", .dropMidBody = true});

    // What a run killed earlier left behind.
    fs::create_directories(shards / "varnix-shard-job-gone-1.wav");
    std::ofstream(shards / "varnix-shard-job-gone-1.wav" / "x") << "x";
    std::ofstream(shards / "varnix-shard-job-gone-2.flac") << "audio";
    std::ofstream(shards / "varnix-shard-Q7w2Zk.download") << "half";
    buildWorker();
    EXPECT_EQ(shardEntries(shards), std::vector<std::string>{}) << "gone as the worker is built";
    EXPECT_EQ(polls(), 0u) << "before the first poll";

    ASSERT_TRUE(runUntil([&] { return reports() >= specs.size(); }));
    // Each shard's audio goes as its report returns, while the worker runs on.
    ASSERT_TRUE(runUntil([&] { return shardEntries(shards).empty(); }, 20s))
        << shardEntries(shards).front();
    EXPECT_LE(mostFiles, std::size_t{kInFlight}) << "never more than the shards in flight";

    delegate->terminate();
    EXPECT_EQ(reports(), specs.size()) << "one report per shard";
    EXPECT_EQ(coordinator->results().size(), 9u) << "every spoken shard came through";
    for (const auto& failure : coordinator->failures())
        EXPECT_EQ(failure.jobID, "job-bad") << failure.error;

    EXPECT_EQ(shardEntries(shards), std::vector<std::string>{});
    struct stat status {};
    ASSERT_EQ(::stat(shards.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700u);
    EXPECT_TRUE(fs::is_empty(tmp.path())) << "nothing in the temporary folder";
}

TEST_F(ShardAudioEndToEnd, AShardFolderThatCannotBeMadeHoldsTheWorkerInWordsUntilItCan) {
    LogCapture logs;
    startCoordinator({{.jobID = "job-1",
                       .shardID = "s1",
                       .audioFile = AudioFixtures::speech().filename().string()}});
    std::ofstream(home / "cache") << "a file where the cache folder goes";
    buildWorker();
    const std::string why = "Cannot create the shard folder " + shards.string() +
                            ": Not a directory (at " + (home / "cache" / "Corvane").string() + ")";
    EXPECT_EQ(delegate->eligibilityGate().pauseReasons(), std::vector<std::string>{why});
    ASSERT_TRUE(runUntil([&] { return logs.contains("runLoop paused: ineligible"); }));
    main.advance(30);  // a retry, still failing, adds no second hold
    EXPECT_EQ(delegate->eligibilityGate().pauseReasons(), std::vector<std::string>{why});
    EXPECT_EQ(polls(), 0u) << "no shard is claimed only to fail";

    fs::remove(home / "cache");
    main.advance(30);
    EXPECT_TRUE(delegate->eligibilityGate().pauseReasons().empty());
    ASSERT_TRUE(runUntil([&] { return reports() >= 1; }));
    EXPECT_EQ(coordinator->results().size(), 1u);
    ASSERT_TRUE(runUntil([&] { return shardEntries(shards).empty(); }, 20s));
}

}  // namespace
}  // namespace corvane::testing
