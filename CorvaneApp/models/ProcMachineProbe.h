#pragma once
// MachineProbe over the Linux /proc files (cpuinfo, meminfo), rooted anywhere for tests.

#include <filesystem>

#include "CorvaneApp/models/MachineProbe.h"

namespace corvane {

class ProcMachineProbe final : public MachineProbe {
  public:
    explicit ProcMachineProbe(std::filesystem::path procRoot = "/proc")
        : procRoot_(std::move(procRoot)) {}

    std::string cpuBrandString() const override;
    std::optional<std::uint64_t> physicalMemoryBytes() const override;
    int logicalCoreCount() const override;
    std::optional<int> physicalCoreCount() const override;

  private:
    std::filesystem::path procRoot_;
};

}  // namespace corvane
