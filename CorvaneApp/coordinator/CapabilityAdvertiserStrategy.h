#pragma once
// The merge of the coordinator's strategy suggestion with the worker's own limits: a suggestion
// can only tighten what the worker would do by itself.

#include <cstdint>
#include <optional>

#include "CorvaneApp/coordinator/Capabilities.h"

namespace corvane {

struct LocalStrategyFallback {
    std::int64_t threadLimitFromCpuCeiling = 1;
    double modelFootprintGB = 0;
    double perShardWorkingSetGB = 0;
    std::int64_t maxShardsInFlight = 1;
};

struct EffectiveStrategy {
    std::int64_t threadLimit = 1;
    double modelFootprintGB = 0;
    double perShardWorkingSetGB = 0;
    std::int64_t maxShardsInFlight = 1;
    std::optional<std::int64_t> strategyVersion;

    bool operator==(const EffectiveStrategy&) const = default;
};

EffectiveStrategy effectiveStrategy(const std::optional<CoordinatorStrategySuggestion>& suggestion,
                                    const LocalStrategyFallback& fallback);

// The share `ceilingPercent` (held to 0..100) of `cpuCount` cores, rounded half away from zero,
// between 1 and the core count.
std::int64_t threadLimitFromCpuCeiling(double ceilingPercent, std::int64_t cpuCount);

}  // namespace corvane
