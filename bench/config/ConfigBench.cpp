// The cost of the config.yaml paths that run on the main sequence: reading every setting (each
// reload) and merging every setting back (each debounced save), on a saved file of typical size.
// Target: well under a millisecond each, so a slider drag never stalls the interface.

#include <benchmark/benchmark.h>

#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/platform/AtomicFile.h"

namespace {

std::string savedConfig() {
    return corvane::readFile(std::string(CORVANE_CONFIG_CORPUS_DIR) + "/02-settings-saved.yaml")
        .value_or("");
}

void BM_ParseSettings(benchmark::State& state) {
    auto text = savedConfig();
    for (auto _ : state) benchmark::DoNotOptimize(corvane::WorkerConfigStore::parseSettings(text));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_ParseSettings);

void BM_BuildYAML(benchmark::State& state) {
    auto text = savedConfig();
    corvane::WorkerSettings settings;
    settings.awayCpuCeiling = 55;
    for (auto _ : state)
        benchmark::DoNotOptimize(corvane::WorkerConfigStore::buildYAML(text, settings));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * text.size()));
}
BENCHMARK(BM_BuildYAML);

void BM_TranscribeQuantization(benchmark::State& state) {
    auto text = savedConfig();
    for (auto _ : state)
        benchmark::DoNotOptimize(corvane::configyaml::extractTranscribeQuantization(text));
}
BENCHMARK(BM_TranscribeQuantization);

}  // namespace

BENCHMARK_MAIN();
