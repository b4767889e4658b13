#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"
#include "tests/worker/WorkerTestSupport.h"

namespace corvane::testing {
namespace {

using Lifecycle = WorkerFixture;

ShardClaim withOffsets(ShardClaim claim, double start, double end) {
    claim.startSeconds = start;
    claim.endSeconds = end;
    return claim;
}

TEST_F(Lifecycle, ResultBodyIsBuiltFromTheTranscriptTheClaimAndTheHandler) {
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [](const ClaimedJob& job, const StageObserver& observe, std::stop_token) {
            observe(ModelHandlerStage::decode, 1.5);
            observe(ModelHandlerStage::decode, 0.5);
            observe(ModelHandlerStage::inference, 4.0);
            return ScriptedHandler::transcript(job, "  three  \n words\there ");
        }));
    http->queueClaims({withOffsets(makeClaim("j1", "s1"), 40.0, 10.0)});
    LogCapture logs;
    start();
    ASSERT_TRUE(awaitEvent<Event::ResultSubmitted>());
    auto results = http->results();
    ASSERT_EQ(results.size(), 1u);
    const auto& body = results[0].body;
    EXPECT_EQ(body.transcript, "  three  \n words\there ");
    EXPECT_EQ(body.language, "en") << "absent language is sent as en";
    EXPECT_EQ(body.model, "whisper-large-v3-turbo-q4");
    EXPECT_EQ(body.backend, "scripted-backend");
    EXPECT_EQ(body.wordCount, 3);
    EXPECT_EQ(body.durationSeconds, -30.0) << "no lower bound on the result's duration";
    EXPECT_EQ(body.performance, std::nullopt) << "no aggregator, no block";
    EXPECT_EQ(countSeen<Event::ModelSwap>(), 0) << "a claim without a model never loads one";
    std::vector<Event::StageTiming> stages;
    for (const auto& e : seen) {
        if (auto t = e.as<Event::StageTiming>()) stages.push_back(*t);
    }
    ASSERT_EQ(stages.size(), 5u);
    EXPECT_EQ(stages[0].stage, Event::Stage::download);
    EXPECT_EQ(stages[1], (Event::StageTiming{"s1", Event::Stage::decode, 1.5}));
    EXPECT_EQ(stages[4].stage, Event::Stage::submit);
    EXPECT_TRUE(logs.contains("stage_timing shard=s1 stage=decode seconds=1.500000"));
}

TEST_F(Lifecycle, PerformanceBlockCarriesStagesRoundTripsCacheAndStrategy) {
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver& observe, std::stop_token) {
            observe(ModelHandlerStage::decode, 1.5);
            observe(ModelHandlerStage::decode, 0.5);
            observe(ModelHandlerStage::inference, 2.0);
            clock.advance(8);
            return ScriptedHandler::transcript(job, "a b");
        }));
    CoordinatorStrategySuggestion strategy{2, std::nullopt, std::nullopt, 7};
    // The claim's own poll takes 100 ms.
    http->queuePoll([&](std::int64_t) {
        clock.advance(0.1);
        return PollBatchOutcome{
            {withOffsets(makeClaim("j1", "s1"), 10.0, 42.0)}, std::nullopt, strategy};
    });
    start(
        [&](WorkerController::Dependencies& d) {
            d.resourceAggregator = [](Date) {
                return ResourceAggregate{55.0, 2684354560ull, 4, 60.0, std::nullopt};
            };
            d.performanceMetadataProvider = [] {
                WorkerPerformanceMetadata meta;
                meta.threadLimit = 6;
                meta.chip = "Test CPU";
                return meta;
            };
        },
        [](WorkerController& w) {
            w.recordModelLoaded(true, 1.25);
        });  // the load precedes the shard
    ASSERT_TRUE(awaitEvent<Event::ResultSubmitted>());
    auto perf = http->results().at(0).body.performance;
    ASSERT_TRUE(perf.has_value());
    EXPECT_EQ(perf->sampleCount, 4);
    EXPECT_EQ(perf->ramPeakGB, 2.5);
    EXPECT_EQ(perf->cpuAvgPercent, 55.0);
    EXPECT_EQ(perf->cpuPerfAvgPct, 60.0);
    EXPECT_EQ(perf->cpuEffAvgPct, std::nullopt);
    EXPECT_EQ(perf->audioSeconds, 32.0);
    EXPECT_EQ(perf->wallClockSeconds, 8.0);
    EXPECT_EQ(perf->audioRealtimeFactor, 4.0);
    EXPECT_EQ(perf->decodeSeconds, 2.0);
    EXPECT_EQ(perf->inferenceSeconds, 2.0);
    EXPECT_EQ(perf->segmentsPerSecond, 1.0);
    EXPECT_NEAR(*perf->pollRttMs, 100.0, 1e-6);
    EXPECT_EQ(perf->submitRttMs, std::nullopt) << "the first result has no previous submission";
    EXPECT_EQ(perf->threadLimit, 2) << "the smaller of suggestion and metadata";
    EXPECT_EQ(perf->strategyVersion, 7);
    EXPECT_EQ(perf->chip, "Test CPU");
    EXPECT_EQ(perf->cacheHit, true);
    EXPECT_EQ(perf->cacheLoadSeconds, 1.25);
}

TEST_F(Lifecycle, EveryFailureEndsInOneReportWithItsCodeAndRetryability) {
    struct Row {
        const char* name;
        std::function<void(Lifecycle&)> arrange;
        std::string expectedWire;
    };
    auto throwing = [](ModelError error) {
        return [error](const ClaimedJob&, const StageObserver&, std::stop_token) -> JobResult {
            throw error;
        };
    };
    std::vector<Row> rows{
        {"no handler", [](Lifecycle&) {},
         "code=handler_unavailable; retryable=true; message=no registered handler for model "
         "whisper-large-v3-turbo-q4"},
        {"download",
         [](Lifecycle& t) {
             t.box.replace(std::make_shared<ScriptedHandler>(kModelA));
             t.materialiseError = "Audio download failed with HTTP 404";
         },
         "code=ingestion_error; retryable=true; message=Audio download failed with HTTP 404"},
        {"crash",
         [&](Lifecycle& t) {
             t.box.replace(std::make_shared<ScriptedHandler>(
                 kModelA, throwing(ModelError(ModelError::BackendCrashed{"boom"}))));
         },
         "code=handler_error; retryable=true; message=backendCrashed(underlying: boom)"},
        {"invalid input",
         [&](Lifecycle& t) {
             t.box.replace(std::make_shared<ScriptedHandler>(
                 kModelA, throwing(ModelError(ModelError::InvalidInput{"empty"}))));
         },
         "code=handler_error; retryable=false; message=invalidInput(reason: \"empty\")"},
        {"image output",
         [](Lifecycle& t) {
             t.box.replace(std::make_shared<ScriptedHandler>(kModelA, [](const ClaimedJob& job,
                                                                         const StageObserver&,
                                                                         std::stop_token) {
                 return JobResult{job.id, job.shardID, ModelOutput{ModelOutput::Image{}}, "x", 0};
             }));
         },
         "code=handler_error; retryable=false; message=invalidInput(reason: \"non-transcript "
         "output not supported in Phase 1\")"},
        {"submit 409",
         [](Lifecycle& t) {
             t.box.replace(std::make_shared<ScriptedHandler>(kModelA));
             t.http->onSubmitResult([](const auto&) { throw WorkerHTTPError::jobCancelled(); });
         },
         "code=handler_error; retryable=true; message=Job was cancelled before result submission"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        http = std::make_shared<FakeWorkerHTTP>();
        sleeper = std::make_shared<ManualSleeper>(&clock);
        box.replace(nullptr);
        materialiseError.reset();
        seen.clear();
        row.arrange(*this);
        http->queueClaims({makeClaim("job", "shard")});
        start();
        ASSERT_TRUE(awaitEvent<Event::FailSubmitted>());
        ASSERT_EQ(http->failures().size(), 1u);
        EXPECT_EQ(http->failures()[0].reason.wireString(), row.expectedWire);
        EXPECT_EQ(http->failures()[0].shardID, "shard");
        finish();
    }
}

TEST_F(Lifecycle, ModelLoadFailureReportsWithoutDownloadingAndALoadedModelIsNotReloaded) {
    config.maxShardsInFlightOverride = 2;  // "other" arrives while "same" runs and waits for it
    box.replace(std::make_shared<ScriptedHandler>(kModelA));
    std::atomic<int> downloads{0};
    std::atomic<int> loads{0};
    http->queueClaims({makeClaim("same", "same", kModelA)});
    http->queueClaims({makeClaim("other", "other", kModelB)});
    LogCapture logs;
    start([&](WorkerController::Dependencies& d) {
        auto materialise = d.materialiser;
        d.materialiser = [&downloads, materialise](const ShardClaim& c, std::stop_token s) {
            ++downloads;
            return materialise(c, s);
        };
        d.handlerLoader = [&loads](const ModelIdentifier&, std::stop_token) {
            ++loads;
            throw std::runtime_error("weights missing");
        };
    });
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) {
        return h.results().size() == 1 && h.failures().size() == 1;
    }));
    EXPECT_EQ(http->failures()[0].reason.wireString(),
              "code=handler_load_failed; retryable=true; message=handler load failed for "
              "parakeet-tdt-0.6b-v2: weights missing");
    EXPECT_EQ(downloads, 1) << "only the shard on the loaded model downloads";
    EXPECT_EQ(loads, 1);
    EXPECT_TRUE(logs.contains(
        "handler swap failed \u2014 failing shard as handler_load_failed: weights missing"));
}

TEST_F(Lifecycle, FailedSubmissionBecomesAReportAndAFailedReportAnError) {
    box.replace(std::make_shared<ScriptedHandler>(kModelA));
    http->onSubmitResult([](const auto&) { throw WorkerHTTPError::notFoundOrNotOwned(); });
    http->onSubmitFail([](const auto&) { throw WorkerHTTPError::notFoundOrNotOwned(); });
    http->queueClaims({makeClaim("gone")});
    start();
    ASSERT_TRUE(awaitEvent<Event::ErrorOccurred>());
    EXPECT_EQ(seen.back().as<Event::ErrorOccurred>()->description,
              "Job no longer belongs to this worker");
    EXPECT_EQ(http->results().size(), 1u) << "a result is sent once, never again";
    EXPECT_EQ(http->failures().size(), 1u);
    EXPECT_EQ(countSeen<Event::FailSubmitted>(), 0);
}

TEST_F(Lifecycle, HeartbeatsStartAfterOneIntervalAndSurviveFailures) {
    config.heartbeatInterval = 30.5;
    Gate& gate = newGate();
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token) {
            gate.wait();
            return ScriptedHandler::transcript(job, "ok");
        }));
    std::atomic<int> beats{0};
    http->onHeartbeat([&](const auto&) {
        if (++beats <= 10) throw WorkerHTTPError::httpError(503, std::nullopt);
    });
    http->queueClaims({makeClaim("long", "long-shard")});
    start();
    ASSERT_TRUE(sleeper->waitForRequests(1, 30.5));
    EXPECT_TRUE(http->heartbeats().empty()) << "no heartbeat before the first interval";
    for (int i = 0; i < 11; ++i) ASSERT_TRUE(sleeper->releaseNext(30.5));
    ASSERT_TRUE(awaitEvent<Event::Heartbeat>());
    EXPECT_EQ(countSeen<Event::ErrorOccurred>(), 10);
    EXPECT_EQ(http->heartbeats().size(), 11u);
    EXPECT_EQ(http->heartbeats()[0], (FakeWorkerHTTP::Report{"long", "long-shard"}));
    EXPECT_EQ(controller->snapshot().lastHeartbeatAt, seen.back().as<Event::Heartbeat>()->at);
    gate.open();
    ASSERT_TRUE(awaitEvent<Event::ResultSubmitted>());
    finish();  // the heartbeat may beat once more until the shard is put away; `beats` must outlive
               // it
}

TEST_F(Lifecycle, StopRacingFinishingHandlersSendsExactlyOneTerminalReportPerShard) {
    // Many shards end while stop() runs; whichever side reports first, each shard gets one report.
    for (int round = 0; round < 20; ++round) {
        http = std::make_shared<FakeWorkerHTTP>();
        sleeper = std::make_shared<ManualSleeper>(&clock);
        config.maxShardsInFlightOverride = 4;
        Gate& gate = newGate();
        std::atomic<int> reached{0};
        box.replace(std::make_shared<ScriptedHandler>(
            kModelA, [&](const ClaimedJob& job, const StageObserver&, std::stop_token) {
                if (++reached == 4) gate.markReached();
                gate.wait();
                return ScriptedHandler::transcript(job, "x");
            }));
        std::vector<ShardClaim> claims;
        for (int i = 0; i < 4; ++i)
            claims.push_back(makeClaim("job" + std::to_string(i), "s" + std::to_string(i)));
        http->queueClaims(claims);
        start();
        ASSERT_TRUE(gate.waitReached());
        gate.open();
        sleeper->open();
        controller->stop();
        ASSERT_TRUE(
            spinUntil([&] { return http->results().size() + http->failures().size() >= 4; }));
        finish();
        gates.clear();
        std::map<std::string, int> reports;
        for (const auto& r : http->results()) ++reports[*r.shardID];
        for (const auto& f : http->failures()) ++reports[*f.shardID];
        ASSERT_EQ(reports.size(), 4u);
        for (const auto& [shard, count] : reports)
            EXPECT_EQ(count, 1) << shard << " in round " << round;
    }
}

}  // namespace
}  // namespace corvane::testing
