#include <gtest/gtest.h>

#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ManualExecutor.h"

namespace corvane::testing {
namespace {

// Readings the test sets before each tick; an absent one is a read that failed.
struct FakeProbes final : ResourceSampler::Probes {
    std::optional<CpuTickSet> machine = CpuTickSet{};
    std::optional<std::vector<CpuTickSet>> cores;
    std::optional<int> performanceCores;
    std::optional<ResourceSampler::MachineMemory> ram = ResourceSampler::MachineMemory{50, 16};
    std::optional<ResourceSampler::TreeUsage> tree = ResourceSampler::TreeUsage{100, 1024};

    std::optional<CpuTickSet> machineTicks() override { return machine; }
    std::optional<std::vector<CpuTickSet>> perCoreTicks() override { return cores; }
    std::optional<int> performanceCoreCount() override { return performanceCores; }
    std::optional<ResourceSampler::MachineMemory> memory() override { return ram; }
    std::optional<ResourceSampler::TreeUsage> processTree(int rootPID) override {
        EXPECT_EQ(rootPID, 4242);
        return tree;
    }
    int processorCount() override { return 4; }

    void spend(std::uint64_t busy, std::uint64_t idle) {
        machine->user += busy;
        machine->idle += idle;
    }
};

class Sampler : public ::testing::Test {
  protected:
    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<FakeProbes> probes = std::make_shared<FakeProbes>();
    ResourceSampler s{executor, probes, 4242, clock.function()};
};

TEST_F(Sampler, StartSamplesAtOnceThenEveryIntervalOnTheExecutor) {
    s.start(2.0);
    EXPECT_EQ(s.rawSampleCount(), 1u);
    executor.advance(1.9);
    EXPECT_EQ(s.rawSampleCount(), 1u);
    executor.advance(10.1);
    EXPECT_EQ(s.rawSampleCount(), 7u);
    s.stop();
    executor.advance(10);
    EXPECT_EQ(s.rawSampleCount(), 7u) << "stopped means stopped";
    s.start(100.0);
    EXPECT_EQ(executor.timerCount(), 1u) << "a restart replaces the timer";
}

TEST_F(Sampler, AFailedReadReportsNothingForThatTickAndSpoilsNoLaterOne) {
    s.start(2.0);
    const auto before = s.history();

    probes->tree.reset();  // e.g. the worker's own stat file is missing or malformed
    executor.advance(2.0);
    EXPECT_EQ(s.rawSampleCount(), 1u) << "no raw sample from a failed tree read";
    EXPECT_EQ(s.history(), before) << "and no chart point";

    probes->tree = ResourceSampler::TreeUsage{100, 1024};
    probes->machine.reset();
    executor.advance(2.0);
    EXPECT_EQ(s.rawSampleCount(), 2u) << "the tree reading stands on its own";
    EXPECT_EQ(s.history(), before) << "but without the machine's ticks no chart point";

    probes->machine = CpuTickSet{};
    probes->spend(50, 50);
    probes->ram.reset();
    executor.advance(2.0);
    EXPECT_EQ(s.history(), before) << "nor without its memory";

    probes->ram = ResourceSampler::MachineMemory{50, 16};
    probes->spend(50, 50);
    executor.advance(2.0);
    EXPECT_DOUBLE_EQ(s.history().latestCpuOther, 25.0)
        << "50 % busy since the last good reading, less the tree's 25 %";
}

TEST_F(Sampler, AggregatesSelectFromAMomentOnAndAverageOnlyTheSplitsThereAre) {
    probes->cores = std::vector<CpuTickSet>(4);
    probes->performanceCores = 2;
    const Date startedAt = clock.now();
    s.start(2.0);  // no split yet: no previous per-core ticks
    auto& cores = *probes->cores;
    cores[0].user += 100;  // perf cores half busy, efficiency cores a quarter
    cores[1].idle += 100;
    cores[2].idle += 100;
    cores[3].user += 50, cores[3].idle += 50;
    probes->tree = ResourceSampler::TreeUsage{300, 2048};
    executor.advance(2.0);
    probes->performanceCores.reset();  // a tick without a split
    probes->tree = ResourceSampler::TreeUsage{200, 512};
    executor.advance(2.0);

    auto all = s.aggregateSince(startedAt);
    EXPECT_EQ(all.sampleCount, 3);
    EXPECT_DOUBLE_EQ(all.avgCpuPercent, 200.0);
    EXPECT_EQ(all.peakRamBytes, 2048ull * 1048576);
    EXPECT_DOUBLE_EQ(*all.avgCpuPerfPct, 25.0) << "only the one sample with a split counts";
    EXPECT_DOUBLE_EQ(*all.avgCpuEffPct, 12.5);
    EXPECT_EQ(s.aggregateSince(addSeconds(startedAt, 2.0)).sampleCount, 2)
        << "a sample exactly at the moment counts";
    EXPECT_EQ(s.aggregateSince(addSeconds(clock.now(), 1)), ResourceAggregate{})
        << "zero aggregate, absent averages";
}

}  // namespace
}  // namespace corvane::testing
