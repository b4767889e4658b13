#include "CorvaneApp/worker/PerformanceMetadata.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/eligibility/RuntimeState.h"

namespace corvane {
namespace {

std::optional<std::int64_t> roundedPercent(double value) {
    if (!std::isfinite(value)) return std::nullopt;
    return static_cast<std::int64_t>(std::llround(value));
}

}  // namespace

WorkerPerformanceMetadata defaultPerformanceMetadata(const PerformanceMetadataSources& sources) {
    std::optional<std::int64_t> runtimePercent;
    if (sources.runtimeEffectivePercent) {
        if (auto value = sources.runtimeEffectivePercent()) runtimePercent = roundedPercent(*value);
    }
    const std::int64_t fallbackPercent = sources.fallbackPercent ? sources.fallbackPercent() : 0;
    const std::optional<std::int64_t> awayPercent =
        sources.awayCpuCeiling ? roundedPercent(sources.awayCpuCeiling()) : std::nullopt;
    const std::int64_t effective = runtimePercent.value_or(fallbackPercent);
    const std::int64_t cores =
        std::max(1, sources.activeProcessorCount ? sources.activeProcessorCount() : 1);
    const auto share = static_cast<std::int64_t>(
        std::llround(static_cast<double>(effective) * static_cast<double>(cores) / 100.0));
    const std::int64_t threads = std::max<std::int64_t>(std::min(share, cores), 1);

    WorkerPerformanceMetadata meta;
    meta.chip = sources.chip ? sources.chip() : std::nullopt;
    if (sources.physicalMemoryBytes) {
        if (auto bytes = sources.physicalMemoryBytes())
            meta.memoryGB = CapabilityAdvertiser::physicalRAMGB(*bytes);
    }
    std::optional<std::string> quantization =
        sources.quantization ? sources.quantization() : std::nullopt;
    meta.quantization = quantization && !quantization->empty() ? *quantization : "4bit";
    meta.resourcePresetPercent = effective;
    meta.userPercent = awayPercent;
    meta.effectivePercent = effective;
    meta.threadLimit = threads;
    // Fixed in this version, whatever the worker's real mode and limit are.
    meta.maxShardsInFlight = 1;
    meta.resourceMode = "away";
    meta.cpuCountTotal = cores;
    return meta;
}

std::function<WorkerPerformanceMetadata()> makePerformanceMetadataProvider(
    PerformanceMetadataSources sources) {
    return [sources = std::move(sources)] { return defaultPerformanceMetadata(sources); };
}

std::optional<double> readRuntimeEffectiveResourcePercent(const std::filesystem::path& file) {
    auto state = loadRuntimeState(file);
    if (!state || !state->thermal || !state->thermal->effectiveResourcePercent) return std::nullopt;
    const double value = *state->thermal->effectiveResourcePercent;
    return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace corvane
