#pragma once
// The RAM one mode of work needs, in GB (2^30 bytes), and the arithmetic of admitting shards
// against a measured machine-wide use.

#include <optional>
#include <string_view>

namespace corvane {

struct MemoryBudget {
    double baselineProcessGB = 1.5;
    double modelFootprintGB = 6.0;
    double perShardWorkingSetGB = 1.5;
    double safetyReserveGB = 1.5;

    static MemoryBudget away() { return {1.5, 6.0, 1.5, 1.5}; }
    static MemoryBudget inUse() { return {1.5, 6.0, 1.5, 2.5}; }
    static MemoryBudget forMode(bool isInUse, std::optional<std::string_view> quantization);
    // RAM of a model by its quantization text (case-insensitive); unknown or absent is full size.
    static double modelFootprint(std::optional<std::string_view> quantization);

    double fixedOverheadGB() const {
        return baselineProcessGB + modelFootprintGB + safetyReserveGB;
    }
    // A negative count counts as none.
    double projectedUsageGB(int shardsInFlight) const;

    // Shards already running are inside `currentUsedGB`, and so is this process: neither is added
    // again. The model is always counted, resident or not. `shardsAlreadyInFlight` is unused.
    bool canAdmit(double currentUsedGB, double ceilingGB, int shardsAlreadyInFlight,
                  int additionalShards = 1) const;
    // How many more shards fit. Stops the process when `perShardWorkingSetGB` is not positive.
    long long admissibleCount(double currentUsedGB, double ceilingGB,
                              int shardsAlreadyInFlight) const;

    bool operator==(const MemoryBudget&) const = default;
};

}  // namespace corvane
