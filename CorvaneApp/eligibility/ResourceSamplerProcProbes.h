#pragma once
// The resource sampler's readings from a /proc and /sys tree: machine and per-core CPU ticks from
// stat, memory from meminfo, hybrid core counts from sysfs, and the process tree.

#include <filesystem>
#include <optional>
#include <string_view>
#include <vector>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/eligibility/ProcessTreeSampler.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"

namespace corvane {

class ResourceSamplerProcProbes final : public ResourceSampler::Probes {
  public:
    struct Options {
        std::filesystem::path procRoot = "/proc";
        std::filesystem::path sysRoot = "/sys";
        ProcessTreeSampler::Options tree = ProcessTreeSampler::systemOptions();
    };

    explicit ResourceSamplerProcProbes(Options options);

    std::optional<CpuTickSet> machineTicks() override;
    std::optional<std::vector<CpuTickSet>> perCoreTicks() override;
    std::optional<int> performanceCoreCount() override;
    std::optional<ResourceSampler::MachineMemory> memory() override;
    std::optional<ResourceSampler::TreeUsage> processTree(int rootPID) override;
    int processorCount() override;

    // The four counters of a "cpu..." line of /proc/stat; absent when malformed.
    static std::optional<CpuTickSet> parseCpuLine(std::string_view line);
    // How many CPUs a sysfs list such as "0-7,12,14-15" names; absent when malformed.
    static std::optional<int> countCpuList(std::string_view list);

  private:
    bool readStat();

    Options options_;
    ProcessTreeSampler tree_;
    // Filled by readStat(); big enough for /proc/stat of a few hundred CPUs.
    ProcText::Buffer<64 * 1024> stat_;
};

}  // namespace corvane
