// The whole road on real objects: the local coordinator hands out spoken English in three formats,
// and the worker polls, downloads, decodes, transcribes on the generated model and submits. A model
// file that cannot load ends its shard in one failure report, and the worker polls on. Claims of
// both model families swap between Whisper and Parakeet (on the scripted runtime).

#include <gtest/gtest.h>

#include <chrono>
#include <set>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/worker/PerformanceMetadata.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tests/models/AudioFixtures.h"
#include "tests/parakeet/ParakeetFixtures.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace corvane::testing {
namespace {

constexpr std::chrono::seconds kSafetyLimit{240};  // only a broken worker gets near it

class EndToEnd : public ::testing::Test {
  protected:
    void SetUp() override {
        // The daemon's runtime-state file caps the work at half the machine.
        home.write(".varnix-compute/worker-runtime-state.json",
                   R"({"thermal": {"effective_resource_percent": 50}})");
    }

    WhisperHandler::Options handlerOptions() {
        WhisperHandler::Options options;
        options.impl.threadInputs = {
            [] {
                return WhisperThreadInputs::Settings{5, 50, 100};
            },
            [] { return std::optional<double>(); },
            [path = runtimeStatePath(home.path())] { return runtimeEffectivePercent(path); },
            [] { return std::int64_t{2}; }};
        return options;
    }

    void startCoordinator(std::vector<dev::ShardSpec> shards) {
        coordinator = std::make_unique<dev::DevCoordinator>(dev::DevCoordinator::Options{
            .audioDir = AudioFixtures::directory(), .shards = std::move(shards)});
    }

    void startWorker(WorkerController::HandlerLoader loader = {}) {
        auto session = std::make_shared<const http::Session>();
        WorkerController::Dependencies d;
        d.http = std::make_shared<WorkerHTTPClient>(coordinator->baseURL(), "dev-token",
                                                    "worker-e2e", "e2e", session);
        CapabilityAdvertiser::Providers capabilities;
        capabilities.capabilityProvider = [] {
            return std::vector<WorkerCapabilities::Capability>{
                {"whisper-cpp-swift", "whisper-large-v3-turbo-q4", true, "q5_0"}};
        };
        capabilities.chipTierProvider = [] { return std::string("t1"); };
        capabilities.ramGBProvider = [] { return std::int64_t{16}; };
        d.capabilities = std::make_shared<CapabilityAdvertiser>(std::move(capabilities));
        d.handlerLookup = [box = box](const ModelIdentifier&) { return box->current(); };
        d.materialiser = ClaimMaterialiser(session, downloads.path());
        d.isEligible = [] { return true; };
        d.config.pollInterval = 0.2;
        d.config.eligibilityRecheckInterval = 0.2;
        d.config.maxShardsInFlightOverride = 4;
        d.sleepProvider = std::make_shared<TaskSleepProvider>();
        d.resourceAggregator = [](Date) {
            return std::optional<ResourceAggregate>({80, 1 << 30, 7, {}, {}});
        };  // 7 samples
        PerformanceMetadataSources metadata;
        metadata.runtimeEffectivePercent = [path = runtimeStatePath(home.path())] {
            return readRuntimeEffectiveResourcePercent(path);
        };
        metadata.activeProcessorCount = [] { return 2; };
        d.performanceMetadataProvider = makePerformanceMetadataProvider(std::move(metadata));
        d.handlerLoader = std::move(loader);
        worker = WorkerController::create(std::move(d));
        worker->start();
    }

    ScratchFolder home;
    ScratchFolder downloads;
    std::shared_ptr<HandlerBox> box = std::make_shared<HandlerBox>();
    std::unique_ptr<dev::DevCoordinator> coordinator;
    std::shared_ptr<WorkerController> worker;
};

TEST_F(EndToEnd, ThreeShardsOfSpeechEachReachTheCoordinatorAsOneTranscript) {
    const auto speech = AudioFixtures::speech();
    AudioFixtures::ffmpeg("e2e-speech.mp3", {"-i", speech.string()});
    AudioFixtures::ffmpeg("e2e-speech.flac", {"-i", speech.string()});
    AudioFixtures::ffmpeg("e2e-speech.ogg", {"-i", speech.string()});
    startCoordinator({{.jobID = "job-1",
                       .shardID = "s-mp3",
                       .audioFile = "e2e-speech.mp3",
                       .startSeconds = 0,
                       .endSeconds = 3},
                      {.jobID = "job-1", .shardID = "s-flac", .audioFile = "e2e-speech.flac"},
                      {.jobID = "job-2",
                       .shardID = "s-ogg",
                       .audioFile = "e2e-speech.ogg",
                       .modelIdentifier = whisperModelIdentifier()}});
    box->replace(std::make_shared<WhisperHandler>(whisperTestModelDirectory(), ChipTier::t1,
                                                  handlerOptions()));
    startWorker();

    ASSERT_TRUE(coordinator->waitUntil(
        [](auto& c) { return c.results().size() + c.failures().size() >= 3; }, kSafetyLimit));
    worker->stop();
    worker.reset();

    EXPECT_TRUE(coordinator->failures().empty());
    const auto results = coordinator->results();
    ASSERT_EQ(results.size(), 3u);
    std::set<std::string> shards;
    for (const auto& result : results) {
        const auto& body = result.body;
        SCOPED_TRACE(body.dump());
        shards.insert(result.shardID.value_or("none"));
        ASSERT_TRUE(body.contains("transcript") && body["transcript"].is_string());
        EXPECT_EQ(body["backend"], "whisper-cpp-swift");
        EXPECT_EQ(body["model"], "whisper-large-v3-turbo-q4");
        EXPECT_EQ(body["language"], "en");
        ASSERT_TRUE(body.contains("performance"));
        const auto& performance = body["performance"];
        for (const char* key :
             {"wall_clock_seconds", "sample_count", "download_seconds", "decode_seconds",
              "inference_seconds", "poll_rtt_ms", "effective_percent", "thread_limit",
              "cpu_count_total", "resource_mode", "quantization"}) {
            EXPECT_TRUE(performance.contains(key)) << key;
        }
        EXPECT_EQ(performance["effective_percent"], 50);  // from the runtime-state file
        EXPECT_EQ(performance["thread_limit"], 1);
        EXPECT_EQ(performance["sample_count"], 7);  // from the resource aggregate
    }
    EXPECT_EQ(shards, (std::set<std::string>{"s-mp3", "s-flac", "s-ogg"}));
}

TEST_F(EndToEnd, AModelThatCannotLoadFailsItsShardOnceAndTheWorkerPollsOn) {
    const auto speech = AudioFixtures::speech();
    const std::string model = tools::makeWhisperTestModel({});
    const struct {
        const char* name;
        std::optional<std::string> bytes;  // absent: no weights at all
        const char* error;
    } rows[] = {
        {"truncated", model.substr(0, model.size() * 2 / 3),
         "backendCrashed(underlying: contextInitFailed)"},
        {"random", std::string(1 << 20, '\x6b'), "backendCrashed(underlying: contextInitFailed)"},
        {"missing", std::nullopt, "modelNotInstalled"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScratchFolder weights;
        if (row.bytes) weights.write(WhisperImpl::defaultModelFilename, *row.bytes);
        startCoordinator({{.jobID = "job-bad",
                           .shardID = "s-1",
                           .audioFile = speech.filename().string(),
                           .modelIdentifier = whisperModelIdentifier()}});
        box->replace(nullptr);
        // The application's loader for the whisper backend: build over the folder, then swap in.
        startWorker([&](const ModelIdentifier&, std::stop_token) {
            box->replace(
                std::make_shared<WhisperHandler>(weights.path(), ChipTier::t1, handlerOptions()));
        });

        ASSERT_TRUE(
            coordinator->waitUntil([](auto& c) { return !c.failures().empty(); }, kSafetyLimit));
        const auto failures = coordinator->failures();
        ASSERT_EQ(failures.size(), 1u);
        EXPECT_EQ(
            failures[0].error,
            std::string("code=handler_load_failed; retryable=true; message=handler load failed for "
                        "whisper-large-v3-turbo-q4: ") +
                row.error);

        // Polling goes on, and the shard is reported only once.
        const auto requestsSoFar = coordinator->requests().size();
        ASSERT_TRUE(coordinator->waitUntil(
            [&](auto& c) { return c.requests().size() >= requestsSoFar + 2; }, kSafetyLimit));
        worker->stop();
        worker.reset();
        EXPECT_EQ(coordinator->failures().size(), 1u);
        EXPECT_TRUE(coordinator->results().empty());
    }
}

// One poll brings Whisper and Parakeet claims together: the Parakeet ones wait until the Whisper
// ones are done, then start together on one swap made by the application's handler loader, and a
// later Whisper claim swaps back. Every shard ends in exactly one result.
TEST_F(EndToEnd, ClaimsOfTheOtherModelWaitThenRunTogetherOnOneSwap) {
    const auto audio = AudioFixtures::bytes("hello-world.wav", wavBytes(helloWorldAudio()));
    HandlerLoader::Dependencies loading;
    loading.box = box;
    loading.modelCache = modelCacheAt(home / "cache");
    auto whisperFile = loading.modelCache->modelDirectory(whisperModelIdentifier()) /
                       loading.modelCache->registry().spec(whisperModelIdentifier())->filename;
    std::filesystem::create_directories(whisperFile.parent_path());
    std::filesystem::copy_file(whisperTestModelFile(), whisperFile);
    loading.chipTier = [] { return ChipTier::t1; };
    loading.whisper = handlerOptions();
    loading.parakeet = std::make_shared<const ParakeetCache>(installScriptedParakeet(home),
                                                             scriptedParakeetRuntime());
    HandlerLoader loader(std::move(loading));
    loader(whisperModelIdentifier());  // the start-up's first handler

    auto shard = [&](std::string job, std::string id, std::optional<ModelIdentifier> model) {
        return dev::ShardSpec{.jobID = job,
                              .shardID = id,
                              .audioFile = audio.filename().string(),
                              .modelIdentifier = model};
    };
    startCoordinator({shard("job-w", "w1", whisperModelIdentifier()),
                      shard("job-p", "p1", parakeetModelIdentifier()),
                      shard("job-w", "w2", std::nullopt),
                      shard("job-p", "p2", parakeetModelIdentifier())});
    startWorker(loader);
    auto reports = [](const dev::DevCoordinator& c) {
        return c.results().size() + c.failures().size();
    };
    ASSERT_TRUE(coordinator->waitUntil(
        [&](const dev::DevCoordinator& c) { return reports(c) >= 4; }, kSafetyLimit));
    coordinator->addShard(shard("job-w3", "w3", whisperModelIdentifier()));
    ASSERT_TRUE(coordinator->waitUntil(
        [&](const dev::DevCoordinator& c) { return reports(c) >= 5; }, kSafetyLimit));
    worker->stop();

    EXPECT_TRUE(coordinator->failures().empty());
    std::vector<std::string> order;
    for (const auto& result : coordinator->results()) {
        const std::string shard = result.shardID.value_or("none");
        SCOPED_TRACE(shard + ": " + result.body.dump());
        order.push_back(shard);
        if (shard[0] == 'p') {
            EXPECT_EQ(result.body["transcript"], "hello world");
            EXPECT_EQ(result.body["backend"], "speech-engine-parakeet");
            EXPECT_EQ(result.body["model"], "parakeet-tdt-0.6b-v2");
        } else {
            EXPECT_EQ(result.body["backend"], "whisper-cpp-swift");
        }
    }
    ASSERT_EQ(order.size(), 5u) << "one result per shard";
    EXPECT_EQ(std::set<std::string>(order.begin(), order.begin() + 2),
              (std::set<std::string>{"w1", "w2"}));
    EXPECT_EQ(std::set<std::string>(order.begin() + 2, order.begin() + 4),
              (std::set<std::string>{"p1", "p2"}));
    EXPECT_EQ(order[4], "w3");

    std::vector<std::string> swappedTo;
    for (const auto& event : worker->events().drain()) {
        if (auto swap = event.as<WorkerControllerEvent::ModelSwap>())
            swappedTo.push_back(swap->to.model);
    }
    EXPECT_EQ(swappedTo,
              (std::vector<std::string>{"parakeet-tdt-0.6b-v2", "whisper-large-v3-turbo-q4"}))
        << "p1 and p2 share one swap";
}

}  // namespace
}  // namespace corvane::testing
