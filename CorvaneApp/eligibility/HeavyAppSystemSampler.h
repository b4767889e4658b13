#pragma once
// HeavyAppDetector's reading of the machine: the frontmost application's CPU (over all cores,
// since the previous sample of the same process) and resident memory, from /proc.

#include <cstdint>
#include <map>
#include <memory>

#include "CorvaneApp/eligibility/ForegroundAppSource.h"
#include "CorvaneApp/eligibility/HeavyAppDetector.h"
#include "CorvaneApp/eligibility/ProcessTable.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class HeavyAppDetector::SystemSampler final : public HeavyAppDetector::Sampling {
  public:
    struct CPUReading {
        std::uint64_t totalNanos = 0;
        Date sampledAt;
    };

    struct Machine {
        double coreCount = 1;       // at least 1
        double physicalMemory = 0;  // bytes
        double clockTicksPerSecond = 100;
        double pageSize = 4096;
        static Machine current();
    };

    SystemSampler(std::shared_ptr<ForegroundAppSource> foreground, ProcessTable processes,
                  Machine machine, NowFunction now);
    // The X11 active window, the real /proc and this machine.
    static std::shared_ptr<SystemSampler> system();

    std::optional<ForegroundAppSample> sampleForegroundApp() override;

  private:
    std::shared_ptr<ForegroundAppSource> foreground_;
    ProcessTable processes_;
    Machine machine_;
    NowFunction now_;
    // One entry per process ever in front, for the life of the process: a handful at most.
    std::map<int, CPUReading> previousCPUReadings_;
};

}  // namespace corvane
