#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace corvane {
namespace {

// "key : value" lines; a blank line ends one processor's block in cpuinfo.
struct Field {
    std::string key;
    std::string value;
};

std::vector<std::optional<Field>> readFields(const std::filesystem::path& path) {
    std::vector<std::optional<Field>> fields;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        auto colon = line.find(':');
        if (trimAsciiWhitespace(line).empty()) {
            fields.emplace_back(std::nullopt);
        } else if (colon != std::string::npos) {
            fields.emplace_back(
                Field{std::string(trimAsciiWhitespace(std::string_view(line).substr(0, colon))),
                      std::string(trimAsciiWhitespace(std::string_view(line).substr(colon + 1)))});
        }
    }
    return fields;
}

template <typename T>
std::optional<T> parseNumber(std::string_view text) {
    T value{};
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end == text.data()) return std::nullopt;
    return value;
}

}  // namespace

std::int64_t ramGBFromBytes(std::uint64_t bytes) {
    return static_cast<std::int64_t>(std::llround(static_cast<double>(bytes) / 1073741824.0));
}

std::string ProcMachineProbe::cpuBrandString() const {
    // x86 names the CPU "model name"; some ARM boards only name the board ("Model").
    std::optional<std::string> board;
    for (const auto& field : readFields(procRoot_ / "cpuinfo")) {
        if (!field) continue;
        if (field->key == "model name" && !field->value.empty()) return field->value;
        if (field->key == "Model" && !board && !field->value.empty()) board = field->value;
    }
    return board.value_or("");
}

std::optional<std::uint64_t> ProcMachineProbe::physicalMemoryBytes() const {
    for (const auto& field : readFields(procRoot_ / "meminfo")) {
        if (!field || field->key != "MemTotal") continue;
        std::string_view value = field->value;
        auto kilobytes = parseNumber<std::uint64_t>(value.substr(0, value.find(' ')));
        if (!kilobytes || *kilobytes > UINT64_MAX / 1024) return std::nullopt;
        std::string_view unit =
            trimAsciiWhitespace(value.substr(std::min(value.size(), value.find(' '))));
        if (!unit.empty() && unit != "kB") return std::nullopt;
        return *kilobytes * 1024;
    }
    return std::nullopt;
}

int ProcMachineProbe::logicalCoreCount() const {
    auto fields = readFields(procRoot_ / "cpuinfo");
    auto count = std::count_if(fields.begin(), fields.end(), [](const auto& field) {
        return field && field->key == "processor";
    });
    return std::max<int>(1, static_cast<int>(count));
}

std::optional<int> ProcMachineProbe::physicalCoreCount() const {
    std::set<std::pair<long, long>> cores;  // (package, core) pairs
    std::optional<long> package;
    std::optional<long> core;
    bool incomplete = false;
    auto closeBlock = [&] {
        if (package && core) {
            cores.emplace(*package, *core);
        } else if (package || core) {
            incomplete = true;
        }
        package.reset();
        core.reset();
    };
    for (const auto& field : readFields(procRoot_ / "cpuinfo")) {
        if (!field) {
            closeBlock();
        } else if (field->key == "physical id") {
            package = parseNumber<long>(field->value);
        } else if (field->key == "core id") {
            core = parseNumber<long>(field->value);
        }
    }
    closeBlock();
    if (cores.empty() || incomplete) return std::nullopt;
    return static_cast<int>(cores.size());
}

}  // namespace corvane
