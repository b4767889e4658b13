#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"
#include "tests/worker/WorkerTestSupport.h"

namespace corvane::testing {
namespace {

using RunLoop = WorkerFixture;

TEST_F(RunLoop, SecondStartChangesNothingAndPausesAreReportedOnce) {
    // Eleven ineligible turns, then eligible ones.
    auto turns = std::make_shared<std::atomic<int>>(0);
    eligible = [turns] { return ++*turns > 11; };
    LogCapture logs;
    start();
    controller->start();
    for (int i = 0; i < 11; ++i) ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(awaitEvent<Event::Idle>());
    EXPECT_EQ(countSeen<Event::Started>(), 1);
    EXPECT_EQ(countSeen<Event::Paused>(), 1);
    EXPECT_EQ(countSeen<Event::Resumed>(), 1);
    EXPECT_EQ(*seen[1].as<Event::Paused>(), Event::Paused{"ineligible"});
    EXPECT_EQ(http->polls().size(), 1u) << "ineligible turns poll nothing";
    EXPECT_TRUE(
        logs.contains("WorkerController info: WorkerController.runLoop paused: ineligible"));
    EXPECT_TRUE(logs.contains("WorkerController info: WorkerController.runLoop resumed"));
}

TEST_F(RunLoop, EligibleFirstTurnEmitsNeitherPauseNorResume) {
    start();
    ASSERT_TRUE(awaitEvent<Event::Idle>());
    EXPECT_EQ(countSeen<Event::Paused>() + countSeen<Event::Resumed>(), 0);
    ASSERT_TRUE(sleeper->waitForRequests(1, kPoll)) << "an empty poll sleeps the poll interval";
}

TEST_F(RunLoop, ShardLimitFollowsOverrideThenSuggestionClampedToOneAndSixteen) {
    struct Row {
        std::optional<std::int64_t> override;
        std::optional<std::int64_t> suggestion;
        std::int64_t expected;
    };
    for (const Row& row :
         {Row{0, 8, 1}, Row{std::nullopt, 100, 16}, Row{3, 8, 3}, Row{std::nullopt, 4, 4}}) {
        SCOPED_TRACE(::testing::Message() << "override " << row.override.value_or(-1)
                                          << " suggestion " << row.suggestion.value_or(-1));
        http = std::make_shared<FakeWorkerHTTP>();
        sleeper = std::make_shared<ManualSleeper>(&clock);
        config.maxShardsInFlightOverride = row.override;
        http->queueClaims({}, row.suggestion);  // the first poll only carries the suggestion
        start();
        ASSERT_TRUE(sleeper->releaseNext(kPoll));
        ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.polls().size() >= 2; }));
        EXPECT_EQ(http->polls()[1], row.expected);
        finish();
    }
}

TEST_F(RunLoop, SuggestionsAreStickyAcrossResponsesWithoutThem) {
    config.maxConcurrentJobs = 2;
    http->queueClaims({}, 5);
    start();
    for (int i = 0; i < 2; ++i) ASSERT_TRUE(sleeper->releaseNext(kPoll));
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.polls().size() >= 3; }));
    EXPECT_EQ(http->polls(), (std::vector<std::int64_t>{2, 5, 5}));
}

TEST_F(RunLoop, FreeSlotsCountShardsInFlightAndQueuedClaims) {
    config.maxShardsInFlightOverride = 4;
    Gate& gate = newGate();
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token) {
            gate.wait();
            return ScriptedHandler::transcript(job, "done");
        }));
    http->queueClaims({makeClaim("j1", "s1", kModelA)});
    http->queueClaims({makeClaim("j2", "s2", kModelB)});  // other model: queued behind s1
    start();
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.polls().size() >= 3; }));
    EXPECT_EQ(http->polls(), (std::vector<std::int64_t>{4, 3, 2}));
    gate.open();
}

TEST_F(RunLoop, ClaimsOfAnotherModelWaitUntilTheWorkerIsIdleThenStartTogether) {
    config.maxShardsInFlightOverride = 8;
    Gate& gate = newGate();
    auto handlerA = std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token) {
            gate.wait();
            return ScriptedHandler::transcript(job, "a");
        });
    box.replace(handlerA);
    // Loading a model swaps in a handler for it; B's work finishes at once.
    auto loader = [&](const ModelIdentifier& id, std::stop_token) {
        box.replace(std::make_shared<ScriptedHandler>(id));
    };
    http->queueClaims({makeClaim("a1", "a1", kModelA), makeClaim("b1", "b1", kModelB),
                       makeClaim("c1", "c1", kModelC), makeClaim("b2", "b2", kModelB),
                       makeClaim("b1", "b1", kModelB)});
    start([&](WorkerController::Dependencies& d) { d.handlerLoader = loader; });
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.polls().size() >= 2; }));
    EXPECT_EQ(http->polls()[1], 4) << "a1 in flight, b1, c1 and b2 queued (b1 held once)";
    gate.open();
    // c1 stays queued until the B shards are gone, then runs on its own model.
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.results().size() >= 4; }));
    std::vector<std::string> done;
    for (const auto& r : http->results()) done.push_back(r.jobID);
    EXPECT_EQ(done[0], "a1");
    EXPECT_EQ(std::set<std::string>(done.begin() + 1, done.begin() + 3),
              (std::set<std::string>{"b1", "b2"}));
    EXPECT_EQ(done[3], "c1");
    controller->stop();
    drainEvents();
    std::vector<ModelIdentifier> swappedTo;
    for (const auto& e : seen) {
        if (auto swap = e.as<Event::ModelSwap>()) swappedTo.push_back(swap->to);
    }
    EXPECT_EQ(swappedTo, (std::vector<ModelIdentifier>{kModelB, kModelC}))
        << "b1 and b2 share one swap";
}

TEST_F(RunLoop, PollFailuresSleepByKindAndKeepTheLoopTurning) {
    LogCapture logs;
    http->queuePollError(WorkerHTTPError::rateLimited(5));
    http->queuePollError(WorkerHTTPError::rateLimited(120));
    http->queuePollError(WorkerHTTPError::maintenanceMode(120));
    http->queuePollError(WorkerHTTPError::unauthorized());
    http->queuePollError(WorkerHTTPError::unauthorized());
    http->queuePollError(WorkerHTTPError::network("The network connection was lost."));
    start();
    for (int i = 0; i < 6; ++i) ASSERT_TRUE(sleeper->releaseNext());
    ASSERT_TRUE(sleeper->waitForRequests(7));
    auto sleeps = sleeper->requests();
    EXPECT_EQ(std::vector<double>(sleeps.begin(), sleeps.begin() + 6),
              (std::vector<double>{30, 120, 30, 30, 30, 30}));
    std::vector<std::string> errors;
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(awaitEvent<Event::ErrorOccurred>());
        errors.push_back(seen.back().as<Event::ErrorOccurred>()->description);
    }
    EXPECT_EQ(errors, (std::vector<std::string>{"Worker poll rate-limited; retrying in 5s",
                                                "Worker poll rate-limited; retrying in 120s",
                                                "Coordinator in maintenance mode; retrying in 120s",
                                                "Worker token rejected by coordinator",
                                                "Worker token rejected by coordinator",
                                                "The network connection was lost."}));
    EXPECT_EQ(controller->snapshot().lastError, "The network connection was lost.");
}

TEST_F(RunLoop, MemoryGateHoldsAdmissionOnEveryGatedTurn) {
    struct Gated final : MemoryGate {
        std::atomic<int> calls{0};
        std::optional<MemoryGatedReason> check(int) override {
            return ++calls <= 2 ? std::optional(MemoryGatedReason{std::nan(""), 10}) : std::nullopt;
        }
    };
    auto gate = std::make_shared<Gated>();
    LogCapture logs;
    start([&](WorkerController::Dependencies& d) { d.memoryGate = gate; });
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(awaitEvent<Event::Idle>());
    EXPECT_EQ(countSeen<Event::RamGated>(), 2);
    EXPECT_EQ(http->polls().size(), 1u);
    EXPECT_TRUE(
        logs.contains("WorkerController.runLoop: ram-gated \u2014 RAM probe unavailable \u2014 "
                      "holding admission"));
}

TEST_F(RunLoop, ExpectedDurationAndSnapshotFollowTheOldestRunningShard) {
    config.maxShardsInFlightOverride = 3;
    std::map<std::string, Gate*> shardGates{
        {"s1", &newGate()}, {"s2", &newGate()}, {"s3", &newGate()}};
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token) {
            shardGates.at(*job.shardID)->markReached();
            shardGates.at(*job.shardID)->wait();
            return ScriptedHandler::transcript(job, "x");
        }));
    auto timed = [](std::string id, std::optional<double> start, std::optional<double> end) {
        auto claim = makeClaim(id, id);
        claim.startSeconds = start;
        claim.endSeconds = end;
        return claim;
    };
    http->queueClaims({timed("s1", 0, 80)});
    http->queuePoll([&](std::int64_t) {
        clock.advance(1);
        return PollBatchOutcome{{timed("s2", 10, 14)}, std::nullopt, std::nullopt};
    });
    http->queuePoll([&](std::int64_t) {
        clock.advance(1);
        return PollBatchOutcome{
            {timed("s3", std::nullopt, std::nullopt)}, std::nullopt, std::nullopt};
    });
    start();
    for (auto id : {"s1", "s2", "s3"}) ASSERT_TRUE(shardGates.at(id)->waitReached());
    auto snap = controller->snapshot();
    EXPECT_EQ(snap.currentShardID, "s3");
    EXPECT_EQ(snap.currentShardExpectedSeconds, std::nullopt);
    shardGates.at("s3")->open();
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.results().size() == 1; }));
    ASSERT_TRUE(awaitEvent<Event::ResultSubmitted>());
    // The shown shard ended: the oldest remaining one (s1, 80 s of audio → 10 s) is shown.
    ASSERT_TRUE(spinUntil([&] { return controller->inFlightCount() == 2; }));
    EXPECT_EQ(controller->snapshot().currentShardID, "s1");
    EXPECT_EQ(controller->snapshot().currentShardExpectedSeconds, 10.0);
    shardGates.at("s2")->open();
    ASSERT_TRUE(spinUntil([&] { return controller->inFlightCount() == 1; }));
    EXPECT_EQ(controller->snapshot().currentShardID, "s1")
        << "another shard ending leaves the snapshot alone";
    shardGates.at("s1")->open();
}

TEST_F(RunLoop, StopReportsShardsInFlightOnlyAndDiscardsTheLateResult) {
    config.maxShardsInFlightOverride = 2;
    Gate& gate = newGate();
    std::atomic<bool> handlerReturned{false};
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token stop) {
            gate.markReached();
            gate.wait(stop);
            handlerReturned = true;
            return ScriptedHandler::transcript(job, "late");  // finished all the same
        }));
    http->queueClaims({makeClaim("run", "run", kModelA), makeClaim("queued", "queued", kModelB)});
    start();
    ASSERT_TRUE(gate.waitReached());
    controller->stop();
    EXPECT_TRUE(handlerReturned) << "stop() returns only once the handler has";
    ASSERT_EQ(http->failures().size(), 1u);
    EXPECT_EQ(http->failures()[0].jobID, "run");
    EXPECT_EQ(
        http->failures()[0].reason.wireString(),
        "code=worker_shutdown; retryable=true; message=worker stopped while job was in flight");
    ASSERT_TRUE(awaitEvent<Event::ResultDiscarded>());
    EXPECT_EQ(*seen.back().as<Event::ResultDiscarded>(),
              (Event::ResultDiscarded{"run", "terminal state already submitted"}));
    EXPECT_TRUE(http->results().empty());
    EXPECT_EQ(http->failures().size(), 1u);
    EXPECT_EQ(controller->snapshot(), WorkerControllerSnapshot::empty);
}

}  // namespace
}  // namespace corvane::testing
