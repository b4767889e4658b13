// CPU cost of one resource-sampler tick over this machine's /proc. Target: under 0.5 ms.
//   enrol_bench                       the tick as the application runs it
//   enrol_bench --benchmark_filter=RuntimeFolder   with the runtime folder present, which adds
//                                     a walk over every process of the machine

#include <benchmark/benchmark.h>
#include <stdlib.h>
#include <unistd.h>

#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/platform/Executor.h"

namespace {

// The sampler needs an executor only for its timer; the benchmark calls ticks itself.
class InlineExecutor final : public corvane::Executor {
  public:
    void post(std::function<void()> work) override { work(); }
    corvane::TimerHandle scheduleOnce(double, std::function<void()>) override { return {}; }
    corvane::TimerHandle scheduleRepeating(double, std::function<void()>) override { return {}; }
};

void tick(benchmark::State& state, std::optional<std::filesystem::path> runtimeDir) {
    // A process like the worker's, with a few idle threads whose children files are read too.
    std::mutex mutex;
    std::condition_variable_any idle;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&](std::stop_token stop) {
            std::unique_lock lock(mutex);
            idle.wait(lock, stop, [] { return false; });
        });
    }
    corvane::ResourceSamplerProcProbes::Options options;
    options.tree.runtimeDir = runtimeDir;
    InlineExecutor executor;
    corvane::ResourceSampler sampler(executor,
                                     std::make_shared<corvane::ResourceSamplerProcProbes>(options),
                                     static_cast<int>(::getpid()));
    sampler.start(2.0);
    for (auto _ : state) sampler.sampleOnce();
    state.counters["samples"] = static_cast<double>(sampler.rawSampleCount());
}

void BM_SamplerTick(benchmark::State& state) {
    tick(state, std::nullopt);
}

void BM_SamplerTickRuntimeFolder(benchmark::State& state) {
    char pattern[] = "/tmp/enrol-bench-XXXXXX";
    const std::filesystem::path folder = ::mkdtemp(pattern);
    tick(state, folder);
    std::filesystem::remove_all(folder);
}

// Per-process CPU time: what the tick costs the machine, not how long it waited.
BENCHMARK(BM_SamplerTick)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_SamplerTickRuntimeFolder)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
