#pragma once
// Whether the process works for real or shows sample data; fixed for the life of the process.
// In dummy mode nothing reaches the coordinator and settings stay in memory.

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

enum class DataMode { real, dummy };

constexpr std::string_view rawValue(DataMode mode) {
    return mode == DataMode::real ? "real" : "dummy";
}

constexpr std::optional<DataMode> dataModeFromRaw(std::string_view raw) {
    if (raw == "real") return DataMode::real;
    if (raw == "dummy") return DataMode::dummy;
    return std::nullopt;
}

class UserDefaults;

// The first valid value wins: each "--data-mode=" argument in order, then CORVANE_DATA_MODE,
// then the "CorvaneDataMode" user default, then real. Values that name no mode are skipped.
DataMode resolveDataMode(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const UserDefaults& userDefaults);

}  // namespace corvane
