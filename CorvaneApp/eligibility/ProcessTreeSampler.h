#pragma once
// CPU and resident memory of this program's whole process tree, read from a /proc tree: the root,
// all its descendants, and any process started from the runtime folder.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <unordered_map>
#include <vector>

#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class ProcessTreeSampler {
  public:
    struct Options {
        std::filesystem::path procRoot = "/proc";
        // Processes whose executable lies in here count as ours, wherever they hang in the tree.
        std::optional<std::filesystem::path> runtimeDir;
        long ticksPerSecond = 100;  // the kernel's USER_HZ
        long pageSize = 4096;
        NowFunction now = systemNow;
    };

    // Options with this system's tick rate and page size.
    static Options systemOptions();

    explicit ProcessTreeSampler(Options options);

    // CPU since the previous call (100 = one core) and resident megabytes. Zero for an absent or
    // non-positive root; absent when the root can't be read. Processes that vanish are skipped.
    std::optional<ResourceSampler::TreeUsage> sample(std::optional<int> daemonPID);

    std::vector<int> corvanePIDs(int rootPID) const;
    std::vector<int> descendants(int processID) const;
    std::optional<std::vector<int>> listAllPIDs() const;

  private:
    // Children by parent, from every process's stat line: for kernels without the children files.
    std::unordered_map<int, std::vector<int>> childrenByScan() const;
    void collectDescendants(int processID, std::vector<int>& out,
                            const std::unordered_map<int, std::vector<int>>* scanned) const;

    Options options_;
    std::unordered_map<int, std::uint64_t> lastTicksByPID_;
    std::optional<Date> lastSampleTime_;
};

}  // namespace corvane
