#include <gtest/gtest.h>

#include "CorvaneApp/worker/PerformanceMetadata.h"
#include "tests/enrol/EnrolTestSupport.h"
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

TEST(PerformanceMetadata, RuntimeStateWinsOverTheSettingsAndThreadsStayWithinTheCores) {
    auto meta = makePerformanceMetadataProvider(sources(62.6))();
    EXPECT_EQ(meta.effectivePercent, 63) << "rounded to the nearest integer";
    EXPECT_EQ(meta.resourcePresetPercent, 63);
    EXPECT_EQ(meta.userPercent, 90) << "the away ceiling, rounded";
    EXPECT_EQ(meta.threadLimit, 5) << "round(63 x 8 / 100)";
    EXPECT_EQ(meta.memoryGB, 16);
    EXPECT_EQ(meta.quantization, "q5_0");
    EXPECT_EQ(meta.chip, "AMD Ryzen 7 5800X 8-Core Processor");
    EXPECT_EQ(meta.resourceMode, "away");
    EXPECT_EQ(meta.cpuCountPerf, std::nullopt);

    auto s = sources(std::nullopt);
    s.quantization = [] { return std::optional<std::string>(); };
    meta = defaultPerformanceMetadata(s);
    EXPECT_EQ(meta.effectivePercent, 20) << "without runtime state the settings decide";
    EXPECT_EQ(meta.threadLimit, 2);
    EXPECT_EQ(meta.quantization, "4bit");
    s.fallbackPercent = [] { return 0; };
    s.activeProcessorCount = [] { return 0; };
    meta = defaultPerformanceMetadata(s);
    EXPECT_EQ(meta.threadLimit, 1) << "never below one thread";
    EXPECT_EQ(meta.cpuCountTotal, 1);
    EXPECT_EQ(defaultPerformanceMetadata(sources(250)).threadLimit, 8) << "never above the cores";
}

TEST(PerformanceMetadata, RuntimeStateFileReadsOnlyAWellFormedPercent) {
    TempDir dir;
    EXPECT_EQ(readRuntimeEffectiveResourcePercent(dir.path() / "missing.json"), std::nullopt);
    struct Row {
        const char* what;
        const char* text;
        std::optional<double> expected;
    };
    for (const Row& row : std::vector<Row>{
             {"good", R"({"thermal":{"effective_resource_percent":62.5,"thermal_level":"nominal"}})", 62.5},
             {"integer", R"({"worker_id":"w","thermal":{"effective_resource_percent":40}})", 40.0},
             {"truncated", R"({"thermal":{"effective_resource_perc)", std::nullopt},
             {"not JSON", "thermal: 50", std::nullopt},
             {"array", "[1,2]", std::nullopt},
             {"thermal not an object", R"({"thermal":50})", std::nullopt},
             {"percent as text", R"({"thermal":{"effective_resource_percent":"50"}})", std::nullopt},
             {"no thermal", R"({"eligibility":{"reason":"idle"}})", std::nullopt},
         }) {
        auto file = dir.write("state.json", row.text);
        EXPECT_EQ(readRuntimeEffectiveResourcePercent(file), row.expected) << row.what;
    }
}

using ClockSetBack = WorkerFixture;

TEST_F(ClockSetBack, AWorkerWhoseClockJumpsBackReportsNoNegativeDurations) {
    box.replace(std::make_shared<ScriptedHandler>(kModelA, [&](const ClaimedJob& job, const StageObserver& observe,
                                                               std::stop_token) {
        observe(ModelHandlerStage::decode, 0.5);
        clock.advance(-3600);  // the system clock is corrected an hour back mid-inference
        observe(ModelHandlerStage::inference, -3599.0);
        return ScriptedHandler::transcript(job, "a b");
    }));
    // The poll and each submission also see the clock go back; both shards run at once, so no
    // sleep of the run loop moves the clock forward while they are timed.
    config.maxConcurrentJobs = 2;
    http->queuePoll([&](std::int64_t) {
        clock.advance(-5);
        return PollBatchOutcome{{makeClaim("j1", "j1-s"), makeClaim("j2", "j2-s")}, std::nullopt, std::nullopt};
    });
    http->onSubmitResult([&](const FakeWorkerHTTP::Report&) { clock.advance(-1); });
    start([&](WorkerController::Dependencies& d) {
        d.resourceAggregator = [](Date) { return ResourceAggregate{10.0, 1u << 30, 2, std::nullopt, std::nullopt}; };
    });
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.results().size() == 2; }));
    for (const auto& result : http->results()) {
        SCOPED_TRACE(result.jobID);
        const auto& perf = result.body.performance;
        ASSERT_TRUE(perf);
        for (auto value : {perf->wallClockSeconds, perf->downloadSeconds, perf->decodeSeconds, perf->inferenceSeconds,
                           perf->pollRttMs, perf->submitRttMs}) {
            EXPECT_GE(value.value_or(0.0), 0.0);
        }
        EXPECT_EQ(perf->wallClockSeconds, 0.0) << "an hour back is not a negative wall time";
        EXPECT_EQ(perf->pollRttMs, 0.0);
        EXPECT_EQ(perf->audioRealtimeFactor, std::nullopt);
    }
}

}  // namespace
}  // namespace corvane::testing
