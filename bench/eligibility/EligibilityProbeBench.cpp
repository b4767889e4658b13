// The cost of the eligibility probes on this machine: each one alone and one full five-second
// cycle (idle monitor, meeting detector, the RAM probe, and the heavy-application sample that
// runs every sixth cycle). Target: under 2 ms of CPU per cycle. Reports CPU time per iteration.

#include <benchmark/benchmark.h>

#include "CorvaneApp/eligibility/HeavyAppSystemSampler.h"
#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"
#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"
#include "CorvaneApp/eligibility/SystemMeetingProbe.h"
#include "CorvaneApp/platform/LoopExecutor.h"

namespace corvane {
namespace {

void BM_PowerSource(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(IdleEligibilityMonitor::systemIsOnACPower());
}
BENCHMARK(BM_PowerSource);

void BM_IdleTimeChain(benchmark::State& state) {
    auto chain = IdleTimeChain::system();
    chain.idleSeconds();  // connections opened outside the loop, as in the running program
    for (auto _ : state) benchmark::DoNotOptimize(chain.idleSeconds());
    state.SetLabel(chain.lastSourceName());
}
BENCHMARK(BM_IdleTimeChain);

void BM_Schedule(benchmark::State& state) {
    auto grid = ScheduleGrid::recommended();
    for (auto _ : state) {
        benchmark::DoNotOptimize(IdleEligibilityMonitor::scheduleAllowsClaim(grid, systemNow()));
    }
}
BENCHMARK(BM_Schedule);

void BM_MeetingProbe(benchmark::State& state) {
    SystemMeetingProbe probe;
    for (auto _ : state) benchmark::DoNotOptimize(probe.read());
}
BENCHMARK(BM_MeetingProbe);

void BM_MachineRAM(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(MemoryAdmissionProbes::machineRAMUsedGB());
}
BENCHMARK(BM_MachineRAM);

void BM_HeavyAppSample(benchmark::State& state) {
    auto sampler = HeavyAppDetector::SystemSampler::system();
    for (auto _ : state) benchmark::DoNotOptimize(sampler->sampleForegroundApp());
}
BENCHMARK(BM_HeavyAppSample);

// One five-second cycle as the application runs it, through the real monitor and gate.
void BM_FullCycle(benchmark::State& state) {
    LoopExecutor executor;
    auto gate = EligibilityGate::create(executor, true);
    auto grid = ScheduleGrid::recommended();
    IdleEligibilityMonitor monitor(
        gate, executor, {[] { return 3.0; }, [] { return 20.0; }, [] { return 10.0; }},
        IdleEligibilityMonitor::Probes::system([&] { return std::optional(grid); }));
    SystemMeetingProbe meetingProbe;
    MeetingDetector meetings(
        gate, executor, [] { return true; }, [&] { return meetingProbe.read(); },
        [] { return true; });
    auto sampler = HeavyAppDetector::SystemSampler::system();
    HeavyAppDetector heavy(
        gate, executor, [] { return true; }, sampler, nullptr);
    MemoryAdmissionGate memory({[] { return MemoryAdmissionProbes::machineRAMUsedGB(); },
                                [] { return 48.0; }, [] { return MemoryBudget::away(); }});
    int cycle = 0;
    for (auto _ : state) {
        monitor.evaluate();
        meetings.refreshNow();
        benchmark::DoNotOptimize(memory.check(0));
        if (cycle++ % 6 == 0) heavy.evaluate(sampler->sampleForegroundApp());
    }
}
BENCHMARK(BM_FullCycle)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace corvane

BENCHMARK_MAIN();
