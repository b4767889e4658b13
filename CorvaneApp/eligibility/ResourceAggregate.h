#pragma once
// CPU and RAM of the worker over a span of time, as the resource sampler sums them up.

#include <cstdint>
#include <optional>

namespace corvane {

struct ResourceAggregate {
    double avgCpuPercent = 0;
    std::uint64_t peakRamBytes = 0;
    std::int64_t sampleCount = 0;
    std::optional<double> avgCpuPerfPct;
    std::optional<double> avgCpuEffPct;

    bool operator==(const ResourceAggregate&) const = default;
};

}  // namespace corvane
