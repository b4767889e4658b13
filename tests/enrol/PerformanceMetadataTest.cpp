#include <gtest/gtest.h>

#include "CorvaneApp/worker/PerformanceMetadata.h"
#include "tests/worker/WorkerTestSupport.h"

namespace corvane::testing {
namespace {

PerformanceMetadataSources sources(std::optional<double> runtimePercent) {
    PerformanceMetadataSources s;
    s.runtimeEffectivePercent = [runtimePercent] { return runtimePercent; };
    s.fallbackPercent = [] { return 20; };
    s.awayCpuCeiling = [] { return 89.5; };
    s.quantization = [] { return std::optional<std::string>("q5_0"); };
    s.activeProcessorCount = [] { return 8; };
    s.chip = [] { return std::optional<std::string>("AMD Ryzen 7 5800X 8-Core Processor"); };
    s.physicalMemoryBytes = [] { return std::optional<std::uint64_t>(17179869184ull); };
    return s;
}

// The runtime state winning over the settings is the end-to-end test's business.
TEST(PerformanceMetadata, WithoutRuntimeStateTheSettingsDecideAndThreadsStayWithinTheCores) {
    auto s = sources(std::nullopt);
    auto meta = makePerformanceMetadataProvider(s)();
    EXPECT_EQ(meta.effectivePercent, 20);
    EXPECT_EQ(meta.userPercent, 90) << "the away ceiling, rounded";
    EXPECT_EQ(meta.threadLimit, 2) << "round(20 x 8 / 100)";
    EXPECT_EQ(meta.memoryGB, 16);
    EXPECT_EQ(meta.quantization, "q5_0");
    EXPECT_EQ(defaultPerformanceMetadata(sources(250)).threadLimit, 8) << "never above the cores";
    s.quantization = [] { return std::optional<std::string>(); };
    s.fallbackPercent = [] { return 0; };
    s.activeProcessorCount = [] { return 0; };
    meta = defaultPerformanceMetadata(s);
    EXPECT_EQ(meta.quantization, "4bit");
    EXPECT_EQ(meta.threadLimit, 1) << "never below one thread";
    EXPECT_EQ(meta.cpuCountTotal, 1);
}

using ClockSetBack = WorkerFixture;

TEST_F(ClockSetBack, AWorkerWhoseClockJumpsBackReportsNoNegativeDurations) {
    box.replace(std::make_shared<ScriptedHandler>(
        kModelA, [&](const ClaimedJob& job, const StageObserver& observe, std::stop_token) {
            observe(ModelHandlerStage::decode, 0.5);
            clock.advance(-3600);  // the system clock is corrected an hour back mid-inference
            observe(ModelHandlerStage::inference, -3599.0);
            return ScriptedHandler::transcript(job, "a b");
        }));
    // Both shards run at once, so no run-loop sleep moves the clock forward while they are timed.
    config.maxConcurrentJobs = 2;
    http->queuePoll([&](std::int64_t) {
        clock.advance(-5);
        return PollBatchOutcome{
            {makeClaim("j1", "j1-s"), makeClaim("j2", "j2-s")}, std::nullopt, std::nullopt};
    });
    http->onSubmitResult([&](const FakeWorkerHTTP::Report&) { clock.advance(-1); });
    start([&](WorkerController::Dependencies& d) {
        d.resourceAggregator = [](Date) {
            return ResourceAggregate{10.0, 1u << 30, 2, std::nullopt, std::nullopt};
        };
    });
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.results().size() == 2; }));
    for (const auto& result : http->results()) {
        SCOPED_TRACE(result.jobID);
        const auto& perf = result.body.performance;
        ASSERT_TRUE(perf);
        for (auto value : {perf->wallClockSeconds, perf->downloadSeconds, perf->decodeSeconds,
                           perf->inferenceSeconds, perf->pollRttMs, perf->submitRttMs}) {
            EXPECT_GE(value.value_or(0.0), 0.0);
        }
        EXPECT_EQ(perf->wallClockSeconds, 0.0) << "an hour back is not a negative wall time";
        EXPECT_EQ(perf->pollRttMs, 0.0);
        EXPECT_EQ(perf->audioRealtimeFactor, std::nullopt);
    }
}

}  // namespace
}  // namespace corvane::testing
