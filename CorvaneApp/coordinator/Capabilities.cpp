#include "CorvaneApp/coordinator/Capabilities.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace corvane {

Json WorkerCapabilities::encode() const {
    using json::putIfPresent;
    Json list = Json::array();
    for (const auto& c : capabilities) {
        Json item{{"backend", c.backend}, {"model", c.model}, {"cached", c.cached}};
        putIfPresent(item, "quantization", c.quantization);
        list.push_back(std::move(item));
    }
    Json out{{"capabilities", std::move(list)}, {"chip_tier", chipTier}, {"ram_gb", ramGB}};
    putIfPresent(out, "build_identity", buildIdentity);
    putIfPresent(out, "compute_user_percent", computeUserPercent);
    putIfPresent(out, "compute_effective_percent", computeEffectivePercent);
    putIfPresent(out, "compute_thread_limit", computeThreadLimit);
    putIfPresent(out, "compute_max_shards_in_flight", computeMaxShardsInFlight);
    putIfPresent(out, "compute_resource_mode", computeResourceMode);
    putIfPresent(out, "compute_cpu_count_total", computeCpuCountTotal);
    putIfPresent(out, "compute_cpu_count_perf", computeCpuCountPerf);
    putIfPresent(out, "compute_cpu_count_efficiency", computeCpuCountEfficiency);
    if (installedModels) {
        Json models = Json::array();
        for (const auto& m : *installedModels) models.push_back(m.encode());
        out["installed_models"] = std::move(models);
    }
    if (activeModel) out["active_model"] = activeModel->encode();
    return out;
}

std::optional<std::int64_t> parseDecimalInteger(std::string_view text) {
    if (text.empty()) return std::nullopt;
    size_t i = 0;
    bool negative = false;
    if (text[0] == '+' || text[0] == '-') {
        negative = text[0] == '-';
        i = 1;
    }
    if (i == text.size()) return std::nullopt;
    // Accumulate as a negative number so that the minimum of the range fits.
    std::int64_t value = 0;
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c < '0' || c > '9') return std::nullopt;
        int digit = c - '0';
        if (value < (std::numeric_limits<std::int64_t>::min() + digit) / 10) return std::nullopt;
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == std::numeric_limits<std::int64_t>::min()) return std::nullopt;
        value = -value;
    }
    return value;
}

std::optional<double> parseWholeDouble(std::string_view text) {
    if (text.empty() || std::isspace(static_cast<unsigned char>(text.front()))) return std::nullopt;
    std::string copy(text);
    char* end = nullptr;
    errno = 0;
    double value = std::strtod(copy.c_str(), &end);
    if (end != copy.c_str() + copy.size()) return std::nullopt;
    return value;
}

std::optional<CoordinatorStrategySuggestion> CoordinatorStrategySuggestion::parse(
    const http::Headers& headers) {
    auto integer = [&](const char* name) -> std::optional<std::int64_t> {
        auto value = headers.find(name);
        return value ? parseDecimalInteger(*value) : std::nullopt;
    };
    auto decimal = [&](const char* name) -> std::optional<double> {
        auto value = headers.find(name);
        return value ? parseWholeDouble(*value) : std::nullopt;
    };
    CoordinatorStrategySuggestion s{
        integer("X-Suggested-Thread-Limit"), decimal("X-Suggested-Footprint-GB"),
        decimal("X-Suggested-Per-Shard-WS-GB"), integer("X-Strategy-Version")};
    if (!s.threadLimit && !s.modelFootprintGB && !s.perShardWorkingSetGB && !s.strategyVersion)
        return std::nullopt;
    return s;
}

}  // namespace corvane
