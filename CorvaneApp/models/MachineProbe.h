#pragma once
// The few facts about the machine that model choice needs, behind an interface so that the logic
// over them runs against fakes and fixture files.

#include <cstdint>
#include <optional>
#include <string>

namespace corvane {

class MachineProbe {
  public:
    virtual ~MachineProbe() = default;
    // The CPU's marketing name, e.g. "AMD Ryzen 7 5800X 8-Core Processor"; empty when unknown.
    virtual std::string cpuBrandString() const = 0;
    // Installed memory; absent when it cannot be read.
    virtual std::optional<std::uint64_t> physicalMemoryBytes() const = 0;
    // Processors the system lists, at least 1.
    virtual int logicalCoreCount() const = 0;
    // Distinct physical cores; absent when the system doesn't say which processors share a core.
    virtual std::optional<int> physicalCoreCount() const = 0;
};

// Bytes as whole gigabytes of 2^30 bytes, rounded to nearest with halves away from zero.
std::int64_t ramGBFromBytes(std::uint64_t bytes);

}  // namespace corvane
