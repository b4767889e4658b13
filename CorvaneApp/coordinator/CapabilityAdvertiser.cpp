#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <stdexcept>

#include "CorvaneApp/coordinator/CapabilityAdvertiserStrategy.h"

namespace corvane {

ComputeBudgetSnapshot ComputeBudgetSnapshot::current(std::int64_t userPercent,
                                                     std::int64_t effectivePercent,
                                                     std::string resourceMode,
                                                     std::optional<std::int64_t> cpuCountPerf,
                                                     std::optional<std::int64_t> cpuCountEfficiency,
                                                     std::int64_t activeProcessorCount) {
    ComputeBudgetSnapshot out;
    out.userPercent = userPercent;
    out.effectivePercent = effectivePercent;
    out.cpuCountTotal = activeProcessorCount;
    const auto share = static_cast<std::int64_t>(std::llround(
        static_cast<double>(effectivePercent) * static_cast<double>(activeProcessorCount) / 100.0));
    out.threadLimit = std::max<std::int64_t>(std::min(share, activeProcessorCount), 1);
    out.maxShardsInFlight = 1;
    out.resourceMode = std::move(resourceMode);
    out.cpuCountPerf = cpuCountPerf;
    out.cpuCountEfficiency = cpuCountEfficiency;
    return out;
}

CapabilityAdvertiser::CapabilityAdvertiser(Providers providers) : providers_(std::move(providers)) {
    if (!providers_.capabilityProvider || !providers_.chipTierProvider ||
        !providers_.ramGBProvider) {
        throw std::invalid_argument(
            "CapabilityAdvertiser needs capability, chip tier and RAM providers");
    }
}

WorkerCapabilities CapabilityAdvertiser::snapshot() {
    WorkerCapabilities out;
    out.capabilities = providers_.capabilityProvider();
    out.chipTier = chipTierString(providers_.chipTierProvider());
    out.ramGB = providers_.ramGBProvider();
    if (providers_.buildIdentityProvider) out.buildIdentity = providers_.buildIdentityProvider();
    // All "compute_" keys come from one budget reading, so they always agree with each other.
    if (providers_.computeBudgetProvider) {
        if (auto budget = providers_.computeBudgetProvider()) {
            out.computeUserPercent = budget->userPercent;
            out.computeEffectivePercent = budget->effectivePercent;
            out.computeThreadLimit = budget->threadLimit;
            out.computeMaxShardsInFlight = budget->maxShardsInFlight;
            out.computeResourceMode = budget->resourceMode;
            out.computeCpuCountTotal = budget->cpuCountTotal;
            out.computeCpuCountPerf = budget->cpuCountPerf;
            out.computeCpuCountEfficiency = budget->cpuCountEfficiency;
        }
    }
    if (providers_.installedModelsProvider)
        out.installedModels = providers_.installedModelsProvider();
    if (providers_.activeModelProvider) out.activeModel = providers_.activeModelProvider();
    return out;
}

std::int64_t CapabilityAdvertiser::physicalRAMGB(std::uint64_t physicalMemoryBytes) {
    return static_cast<std::int64_t>(
        std::llround(std::ldexp(static_cast<double>(physicalMemoryBytes), -30)));
}

std::string CapabilityAdvertiser::chipTierString(std::string_view rawTier) {
    std::string out(rawTier);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return out;
}

std::function<std::vector<WorkerCapabilities::Capability>()>
CapabilityAdvertiser::whisperCapabilityProvider(std::optional<std::string> quantization,
                                                std::function<bool()> isCached) {
    return [quantization = std::move(quantization), isCached = std::move(isCached)] {
        const ModelIdentifier whisper = defaultModelIdentifier();
        return std::vector<WorkerCapabilities::Capability>{
            {whisper.backend, whisper.model, isCached ? isCached() : false, quantization}};
    };
}

}  // namespace corvane
