#include "CorvaneApp/eligibility/HeavyAppSystemSampler.h"

#include <unistd.h>

#include <algorithm>

namespace corvane {

HeavyAppDetector::SystemSampler::Machine HeavyAppDetector::SystemSampler::Machine::current() {
    Machine machine;
    long cores = ::sysconf(_SC_NPROCESSORS_ONLN);
    long pages = ::sysconf(_SC_PHYS_PAGES);
    long pageSize = ::sysconf(_SC_PAGESIZE);
    long ticks = ::sysconf(_SC_CLK_TCK);
    machine.coreCount = std::max(1.0, static_cast<double>(cores));
    if (pageSize > 0) machine.pageSize = static_cast<double>(pageSize);
    if (pages > 0) machine.physicalMemory = static_cast<double>(pages) * machine.pageSize;
    if (ticks > 0) machine.clockTicksPerSecond = static_cast<double>(ticks);
    return machine;
}

HeavyAppDetector::SystemSampler::SystemSampler(std::shared_ptr<ForegroundAppSource> foreground,
                                               ProcessTable processes, Machine machine,
                                               NowFunction now)
    : foreground_(std::move(foreground)),
      processes_(std::move(processes)),
      machine_(machine),
      now_(std::move(now)) {
    machine_.coreCount = std::max(1.0, machine_.coreCount);
}

std::shared_ptr<HeavyAppDetector::SystemSampler> HeavyAppDetector::SystemSampler::system() {
    return std::make_shared<SystemSampler>(
        std::make_shared<X11ForegroundAppSource>(std::make_shared<X11Display>()), ProcessTable(),
        Machine::current(), systemNow);
}

std::optional<HeavyAppDetector::ForegroundAppSample>
HeavyAppDetector::SystemSampler::sampleForegroundApp() {
    auto app = foreground_->frontmost();
    if (!app || app->processID < 1) return std::nullopt;
    auto process = processes_.process(app->processID);
    if (!process || process->isTerminated()) return std::nullopt;

    auto total = static_cast<std::uint64_t>(static_cast<double>(process->cpuTicks) /
                                            machine_.clockTicksPerSecond * 1e9);
    Date now = now_();
    double cpuPercent = 0;
    if (auto previous = previousCPUReadings_.find(app->processID);
        previous != previousCPUReadings_.end()) {
        double elapsed = secondsBetween(previous->second.sampledAt, now);
        if (elapsed > 0) {
            // A total that went down (a reused process id) reads as no use.
            double used = total > previous->second.totalNanos
                              ? static_cast<double>(total - previous->second.totalNanos)
                              : 0.0;
            cpuPercent = used / 1e9 / elapsed * 100.0 / machine_.coreCount;
        }
    }
    previousCPUReadings_[app->processID] = CPUReading{total, now};

    double memoryPercent = 0;
    if (machine_.physicalMemory > 0) {
        memoryPercent = static_cast<double>(process->residentPages) * machine_.pageSize /
                        machine_.physicalMemory * 100.0;
    }
    ForegroundAppSample sample;
    sample.processID = app->processID;
    if (!process->name.empty()) sample.bundleIdentifier = process->name;
    sample.localizedName = app->applicationName      ? *app->applicationName
                           : sample.bundleIdentifier ? *sample.bundleIdentifier
                                                     : std::string("Foreground app");
    sample.cpuPercent = cpuPercent;
    sample.memoryPercent = memoryPercent;
    sample.strategy = strategyFor(sample.bundleIdentifier);
    return sample;
}

}  // namespace corvane
