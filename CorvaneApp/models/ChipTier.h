#pragma once
// A four-step classification of the machine's chip, in ascending power, from its brand string.

#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

class MachineProbe;

enum class ChipTier { t1, t2, t3, t4 };

inline constexpr std::array<ChipTier, 4> allChipTiers{ChipTier::t1, ChipTier::t2, ChipTier::t3,
                                                      ChipTier::t4};

// "t1" to "t4".
std::string rawValue(ChipTier tier);
std::optional<ChipTier> chipTierFromRawValue(std::string_view raw);

// Absent unless the brand names an Apple M-series chip; the strongest variant named wins.
std::optional<ChipTier> tierForBrandString(std::string_view brand);

// This machine's tier, never absent: a brand the tiers don't know (every Intel and AMD brand a
// Linux machine reports) logs at error level and counts as the base tier.
ChipTier currentChipTier(const MachineProbe& probe);

}  // namespace corvane
