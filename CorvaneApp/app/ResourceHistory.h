#pragma once
// The resource sampler's series as the charts draw them, and its latest values. An empty
// snapshot keeps the charts that are there.

#include <optional>
#include <vector>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"

namespace corvane {

class ResourceHistory {
  public:
    explicit ResourceHistory(ModelChanges& changes) : changes_(changes) {}
    ResourceHistory(const ResourceHistory&) = delete;
    ResourceHistory& operator=(const ResourceHistory&) = delete;

    void applySamplerSnapshot(const ResourceSampler::Snapshot& snapshot);
    void reset();

    // Percent of the machine, oldest first.
    const ResourceSampler::Snapshot& history() const { return history_; }
    std::optional<double> liveCpuCorvanePercent() const { return liveCpuCorvane_; }
    std::optional<double> liveCpuOtherPercent() const { return liveCpuOther_; }
    std::optional<double> liveRamCorvanePercent() const { return liveRamCorvane_; }
    std::optional<double> liveRamOtherPercent() const { return liveRamOther_; }

    // A share of the machine as a process percentage (100 = one core busy).
    static std::vector<double> cpuProcessHistory(const std::vector<double>& machineShares,
                                                 int totalCores);
    // A share of the machine's memory in gigabytes.
    static std::vector<double> ramGBHistory(const std::vector<double>& machineShares,
                                            double totalRAM_GB);
    // Corvane's latest memory in gigabytes.
    double corvaneRamGB(double totalRAM_GB) const;
    // Corvane's CPU share of the machine: live, else the last charted, else 0.
    double corvaneMachineCpuPercent() const;

  private:
    ModelChanges& changes_;
    ResourceSampler::Snapshot history_;
    std::optional<double> liveCpuCorvane_, liveCpuOther_, liveRamCorvane_, liveRamOther_;
};

}  // namespace corvane
