#pragma once
// What a model needs of the machine before it may run there.

#include <cstdint>
#include <set>

#include "CorvaneApp/models/ChipTier.h"

namespace corvane {

struct HardwareRequirements {
    std::int64_t minRAMGB = 0;
    std::int64_t minDiskGB = 0;
    std::set<ChipTier> chipTiers;

    bool operator==(const HardwareRequirements&) const = default;
};

}  // namespace corvane
