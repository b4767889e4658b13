#pragma once
// What the welcome step says a computer like this one earns in a month: a figure of the build
// per processor family (see MonthlyEarningsEstimate.cpp for where the figures come from).

#include <optional>
#include <string>
#include <string_view>

namespace corvane {

struct MonthlyEarningsEstimate {
    std::string family;    // "AMD Ryzen 9", or the build's architecture when no family matched
    std::string estimate;  // "$50"
    friend bool operator==(const MonthlyEarningsEstimate&,
                           const MonthlyEarningsEstimate&) = default;
};

// The family of the processor named by `chip` (a brand string, with or without its "Apple "),
// else the figure of the architecture this build is for.
MonthlyEarningsEstimate monthlyEarningsEstimate(std::optional<std::string_view> chip);

// "x86-64", "ARM64" or "this architecture": what this build runs on.
std::string_view buildArchitectureName();

}  // namespace corvane
