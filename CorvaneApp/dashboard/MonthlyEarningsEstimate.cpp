#include "CorvaneApp/dashboard/MonthlyEarningsEstimate.h"

#include <array>
#include <cctype>

#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// Where these figures come from: they are constants of this build, one per processor family,
// chosen for the release and ordered by how fast each family transcribes relative to the others
// (Apple's M-series steps follow the chip tiers). They are not measured on this computer and not
// asked of the coordinator, whose rates decide what is really paid; change them here when those
// rates change. The text around them says "about" and "similar machines" for that reason.
struct Family {
    std::string_view name;
    std::array<std::string_view, 3> markers;  // any of them, in the lower-cased brand
    std::string_view estimate;
};

constexpr std::array<Family, 10> kFamilies{{
    {"AMD Threadripper", {"threadripper", "", ""}, "$95"},
    {"AMD EPYC", {"epyc", "", ""}, "$95"},
    {"Intel Xeon", {"xeon", "", ""}, "$70"},
    {"Arm server", {"neoverse", "ampere", "graviton"}, "$45"},
    {"Ryzen 9 / Core i9", {"ryzen 9", "i9-", "core ultra 9"}, "$50"},
    {"Ryzen 7 / Core i7", {"ryzen 7", "i7-", "core ultra 7"}, "$40"},
    {"Ryzen 5 / Core i5", {"ryzen 5", "i5-", "core ultra 5"}, "$28"},
    {"Ryzen 3 / Core i3", {"ryzen 3", "i3-", "core ultra 3"}, "$18"},
    {"Intel Core", {"intel", "", ""}, "$22"},
    {"AMD", {"amd", "", ""}, "$22"},
}};

// Apple's M-series, by the chip tiers: Ultra, Max, Pro, then the plain chip.
constexpr std::array<Family, 4> kAppleTiers{{
    {"Apple M-series Ultra", {" ultra", "", ""}, "$120"},
    {"Apple M-series Max", {" max", "", ""}, "$85"},
    {"Apple M-series Pro", {" pro", "", ""}, "$55"},
    {"Apple M-series", {"m", "", ""}, "$35"},
}};

#if defined(__x86_64__)
constexpr std::string_view kArchitecture = "x86-64";
constexpr std::string_view kArchitectureEstimate = "$20";
#elif defined(__aarch64__)
constexpr std::string_view kArchitecture = "ARM64";
constexpr std::string_view kArchitectureEstimate = "$15";
#else
constexpr std::string_view kArchitecture = "this architecture";
constexpr std::string_view kArchitectureEstimate = "$15";
#endif

bool isAppleSilicon(std::string_view lower) {
    if (lower.starts_with("apple ")) lower.remove_prefix(6);
    return lower.size() >= 2 && lower[0] == 'm' &&
           std::isdigit(static_cast<unsigned char>(lower[1]));
}

}  // namespace

std::string_view buildArchitectureName() {
    return kArchitecture;
}

MonthlyEarningsEstimate monthlyEarningsEstimate(std::optional<std::string_view> chip) {
    const std::string lower = chip ? asciiLowercased(trimWhitespaceAndNewlines(*chip)) : "";
    auto firstMatch = [&lower](const auto& families) -> std::optional<MonthlyEarningsEstimate> {
        for (const Family& family : families) {
            for (std::string_view marker : family.markers) {
                if (!marker.empty() && lower.find(marker) != std::string::npos)
                    return MonthlyEarningsEstimate{std::string(family.name),
                                                   std::string(family.estimate)};
            }
        }
        return std::nullopt;
    };
    // The plain "m" of the last Apple row matches every M-series brand.
    if (auto found = isAppleSilicon(lower) ? firstMatch(kAppleTiers) : firstMatch(kFamilies))
        return *found;
    return {std::string(kArchitecture), std::string(kArchitectureEstimate)};
}

}  // namespace corvane
