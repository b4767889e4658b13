#include "CorvaneApp/coordinator/CapabilityAdvertiserStrategy.h"

#include <algorithm>
#include <cmath>

namespace corvane {

EffectiveStrategy effectiveStrategy(const std::optional<CoordinatorStrategySuggestion>& suggestion,
                                    const LocalStrategyFallback& fallback) {
    EffectiveStrategy out;
    out.threadLimit = fallback.threadLimitFromCpuCeiling;
    out.modelFootprintGB = fallback.modelFootprintGB;
    out.perShardWorkingSetGB = fallback.perShardWorkingSetGB;
    out.maxShardsInFlight = std::max<std::int64_t>(1, fallback.maxShardsInFlight);
    if (!suggestion) return out;
    if (suggestion->threadLimit) {
        out.threadLimit = std::max<std::int64_t>(
            1, std::min(fallback.threadLimitFromCpuCeiling, *suggestion->threadLimit));
    }
    if (suggestion->modelFootprintGB)
        out.modelFootprintGB = std::min(fallback.modelFootprintGB, *suggestion->modelFootprintGB);
    if (suggestion->perShardWorkingSetGB) {
        out.perShardWorkingSetGB =
            std::min(fallback.perShardWorkingSetGB, *suggestion->perShardWorkingSetGB);
    }
    out.strategyVersion = suggestion->strategyVersion;
    return out;
}

std::int64_t threadLimitFromCpuCeiling(double ceilingPercent, std::int64_t cpuCount) {
    const std::int64_t cores = std::max<std::int64_t>(cpuCount, 1);
    // NaN counts as no share at all.
    const double clamped =
        std::isnan(ceilingPercent) ? 0.0 : std::clamp(ceilingPercent, 0.0, 100.0);
    const auto share =
        static_cast<std::int64_t>(std::llround(clamped * static_cast<double>(cores) / 100.0));
    return std::min(std::max<std::int64_t>(share, 1), cores);
}

}  // namespace corvane
