#pragma once
// Measures every two seconds what this program (its whole process tree) and the machine use in
// CPU and RAM. It keeps one-minute chart buckets for the dashboard and four hours of raw samples
// so that the worker can ask what a shard used since it started.
//
// Sampling runs on the executor's sequence; history() and aggregateSince() may be called from
// any thread.

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "CorvaneApp/eligibility/ResourceAggregate.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

// Cumulative busy and idle time of one CPU (or all of them), in the system's ticks.
struct CpuTickSet {
    std::uint64_t user = 0;
    std::uint64_t nice = 0;
    std::uint64_t system = 0;
    std::uint64_t idle = 0;
};

class ResourceSampler {
  public:
    struct Snapshot {
        std::vector<double> cpuCorvane, cpuOther, ramCorvane,
            ramOther;  // percent of the machine, oldest first
        double latestCpuCorvane = 0, latestCpuOther = 0, latestRamCorvane = 0, latestRamOther = 0;
        bool operator==(const Snapshot&) const = default;
    };

    struct RawSample {
        Date at;
        double cpuPercent = 0;  // 100 = one core fully busy; may exceed 100
        std::uint64_t ramBytesUsed = 0;
        std::optional<double> cpuPerfPct;
        std::optional<double> cpuEffPct;
    };

    struct MachineMemory {
        double usedPercent = 0;
        double totalGB = 0;
    };

    struct TreeUsage {
        double cpuPercent = 0;  // since the previous tree sample
        double residentMB = 0;
    };

    // The platform reads. Each answers absent when its source is missing or malformed.
    class Probes {
      public:
        virtual ~Probes() = default;
        virtual std::optional<CpuTickSet> machineTicks() = 0;
        virtual std::optional<std::vector<CpuTickSet>> perCoreTicks() = 0;
        // How many of the first cores in perCoreTicks() are performance cores; absent on
        // machines whose cores are all alike.
        virtual std::optional<int> performanceCoreCount() = 0;
        virtual std::optional<MachineMemory> memory() = 0;
        // The program's tree rooted at `rootPID`; absent when the root itself can't be read.
        virtual std::optional<TreeUsage> processTree(int rootPID) = 0;
        virtual int processorCount() = 0;
    };

    static constexpr double rawRetentionSeconds = 14400.0;
    static constexpr std::size_t chartPoints = 60;

    ResourceSampler(Executor& executor, std::shared_ptr<Probes> probes, int rootPID,
                    NowFunction now = systemNow);
    ResourceSampler(const ResourceSampler&) = delete;
    ResourceSampler& operator=(const ResourceSampler&) = delete;

    // Takes one sample now and then one every `interval` seconds; a running timer is replaced.
    void start(double interval);
    void stop();
    // One tick. A tick whose tree reading fails records no raw sample; one whose machine
    // readings fail adds no chart point. Neither disturbs the next tick.
    void sampleOnce();

    Snapshot history() const;
    ResourceAggregate aggregateSince(Date since) const;
    std::size_t rawSampleCount() const;
    int rawsPerBucket() const;
    bool partialBucketLive() const;

    // The tree's share of the machine and everybody else's, both in percent of all cores.
    static std::pair<double, double> resolveCPU(double corvaneProcessPercent, double coreCount,
                                                double cpuTotalMachine);
    // Busy share of all ticks between two readings; 0 when nothing elapsed. A counter that went
    // backwards counts as no time.
    static double busyPercent(const CpuTickSet& before, const CpuTickSet& after);
    static std::uint64_t tickDelta(std::uint64_t before, std::uint64_t after) {
        return after >= before ? after - before : 0;
    }

  private:
    std::optional<double> readCPUUsagePercent();
    std::optional<std::pair<double, double>> readPerCorePESplit();
    void pushChartPoint(double cpuCorvane, double cpuOther, double ramCorvane, double ramOther);

    Executor& executor_;
    const std::shared_ptr<Probes> probes_;
    const int rootPID_;
    const NowFunction now_;
    const double coreCount_;

    // Tick state; touched only by sampleOnce on the executor's sequence.
    std::optional<CpuTickSet> lastCPULoad_;
    std::optional<std::vector<CpuTickSet>> lastPerCoreTicks_;
    double bucketAccumCpuCorvane_ = 0, bucketAccumCpuOther_ = 0;
    double bucketAccumRamCorvane_ = 0, bucketAccumRamOther_ = 0;
    int bucketSampleCount_ = 0;

    mutable std::mutex mutex_;
    Snapshot history_;                  // guarded by mutex_
    std::deque<RawSample> rawSamples_;  // guarded by mutex_; oldest first
    int rawsPerBucket_ = 30;            // guarded by mutex_
    bool partialBucketLive_ = false;    // guarded by mutex_

    // Last, so that the timer is cancelled before anything its ticks touch is destroyed.
    TimerHandle timer_;
};

}  // namespace corvane
