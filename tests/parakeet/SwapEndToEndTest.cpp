// Both model families against the local coordinator: Parakeet claims polled with Whisper ones wait
// until those are done, then start together on one swap, and a later Whisper claim swaps back.

#include <gtest/gtest.h>

#include <set>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tests/parakeet/ParakeetFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::testing {
namespace {

constexpr std::chrono::seconds kSafetyLimit{240};  // only a broken worker gets near it

TEST(SwapEndToEnd, ClaimsOfTheOtherModelWaitThenRunTogetherOnOneSwap) {
    ScratchFolder folder;
    folder.write("audio/hello.wav", wavBytes(helloWorldAudio()));
    auto box = std::make_shared<HandlerBox>();
    HandlerLoader::Dependencies loading;
    loading.box = box;
    loading.modelCache = modelCacheAt(folder / "cache");
    auto whisperFile = loading.modelCache->modelDirectory(whisperModelIdentifier()) /
                       loading.modelCache->registry().spec(whisperModelIdentifier())->filename;
    std::filesystem::create_directories(whisperFile.parent_path());
    std::filesystem::copy_file(whisperTestModelFile(), whisperFile);
    loading.chipTier = [] { return ChipTier::t1; };
    ThreadKnobs threads;
    loading.whisper.impl.threadInputs = threads.inputs();
    loading.parakeet = std::make_shared<const ParakeetCache>(installScriptedParakeet(folder), scriptedParakeetRuntime());
    HandlerLoader loader(std::move(loading));
    loader(whisperModelIdentifier());  // the start-up's first handler

    auto shard = [](std::string job, std::string id, std::optional<ModelIdentifier> model) {
        return dev::ShardSpec{.jobID = job, .shardID = id, .audioFile = "hello.wav", .modelIdentifier = model};
    };
    dev::DevCoordinator coordinator({.audioDir = folder.path() / "audio",
                                     .shards = {shard("job-w", "w1", whisperModelIdentifier()),
                                                shard("job-p", "p1", parakeetModelIdentifier()),
                                                shard("job-w", "w2", std::nullopt),
                                                shard("job-p", "p2", parakeetModelIdentifier())}});

    auto session = std::make_shared<const http::Session>();
    WorkerController::Dependencies d;
    d.http = std::make_shared<WorkerHTTPClient>(coordinator.baseURL(), "dev-token", "worker-swap", "e2e", session);
    CapabilityAdvertiser::Providers capabilities;
    capabilities.capabilityProvider = CapabilityAdvertiser::whisperCapabilityProvider("q5_0", [] { return true; });
    capabilities.chipTierProvider = [] { return std::string("t1"); };
    capabilities.ramGBProvider = [] { return std::int64_t{16}; };
    d.capabilities = std::make_shared<CapabilityAdvertiser>(std::move(capabilities));
    d.handlerLookup = [box](const ModelIdentifier&) { return box->current(); };
    d.materialiser = ClaimMaterialiser(session, folder.path());
    d.isEligible = [] { return true; };
    d.config.pollInterval = 0.2;
    d.config.maxShardsInFlightOverride = 4;
    d.sleepProvider = std::make_shared<TaskSleepProvider>();
    d.handlerLoader = loader;
    auto worker = WorkerController::create(std::move(d));
    worker->start();

    auto reports = [](const dev::DevCoordinator& c) { return c.results().size() + c.failures().size(); };
    ASSERT_TRUE(coordinator.waitUntil([&](const dev::DevCoordinator& c) { return reports(c) >= 4; }, kSafetyLimit));
    coordinator.addShard(shard("job-w3", "w3", whisperModelIdentifier()));
    ASSERT_TRUE(coordinator.waitUntil([&](const dev::DevCoordinator& c) { return reports(c) >= 5; }, kSafetyLimit));
    worker->stop();

    EXPECT_TRUE(coordinator.failures().empty());
    std::vector<std::string> order;
    for (const auto& result : coordinator.results()) {
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
    EXPECT_EQ(std::set<std::string>(order.begin(), order.begin() + 2), (std::set<std::string>{"w1", "w2"}));
    EXPECT_EQ(std::set<std::string>(order.begin() + 2, order.begin() + 4), (std::set<std::string>{"p1", "p2"}));
    EXPECT_EQ(order[4], "w3");

    std::vector<std::string> swappedTo;
    for (const auto& event : worker->events().drain()) {
        if (auto swap = event.as<WorkerControllerEvent::ModelSwap>()) swappedTo.push_back(swap->to.model);
    }
    EXPECT_EQ(swappedTo, (std::vector<std::string>{"parakeet-tdt-0.6b-v2", "whisper-large-v3-turbo-q4"}))
        << "p1 and p2 share one swap";
}

}  // namespace
}  // namespace corvane::testing
