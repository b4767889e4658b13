#pragma once
// Whether the process works for real or shows sample data; fixed for the life of the process.
// In dummy mode nothing reaches the coordinator and settings stay in memory.

#include <optional>
#include <string_view>

namespace corvane {

enum class DataMode { real, dummy };

constexpr std::string_view rawValue(DataMode mode) { return mode == DataMode::real ? "real" : "dummy"; }

constexpr std::optional<DataMode> dataModeFromRaw(std::string_view raw) {
    if (raw == "real") return DataMode::real;
    if (raw == "dummy") return DataMode::dummy;
    return std::nullopt;
}

}  // namespace corvane
