#include "CorvaneApp/models/ChipTier.h"

#include <algorithm>
#include <cctype>

#include "CorvaneApp/models/MachineProbe.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

std::string rawValue(ChipTier tier) {
    switch (tier) {
        case ChipTier::t1:
            return "t1";
        case ChipTier::t2:
            return "t2";
        case ChipTier::t3:
            return "t3";
        case ChipTier::t4:
            return "t4";
    }
    return "t1";
}

std::optional<ChipTier> chipTierFromRawValue(std::string_view raw) {
    for (ChipTier tier : allChipTiers) {
        if (rawValue(tier) == raw) return tier;
    }
    return std::nullopt;
}

std::optional<ChipTier> tierForBrandString(std::string_view brand) {
    const std::string lower = asciiLowercased(brand);
    if (lower.find("apple m") == std::string::npos) return std::nullopt;
    // The leading blank keeps "promax"-like words from matching; the order makes Ultra beat Max
    // beat Pro when a brand names more than one.
    if (lower.find(" ultra") != std::string::npos) return ChipTier::t4;
    if (lower.find(" max") != std::string::npos) return ChipTier::t3;
    if (lower.find(" pro") != std::string::npos) return ChipTier::t2;
    return ChipTier::t1;
}

ChipTier currentChipTier(const MachineProbe& probe) {
    std::string brand = probe.cpuBrandString();
    if (auto tier = tierForBrandString(brand)) return *tier;
    log::get("ChipTier")->error("ChipTier: unknown brand_string {} — defaulting to .t1", brand);
    return ChipTier::t1;
}

}  // namespace corvane
