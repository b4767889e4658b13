#pragma once
// Admits one more shard only while measured machine-wide RAM use plus the room one shard needs
// stays under the ceiling. Fails closed: when RAM use can't be read, nothing is admitted.

#include <functional>
#include <optional>

#include "CorvaneApp/eligibility/MemoryBudget.h"
#include "CorvaneApp/eligibility/MemoryGate.h"

namespace corvane {

// The three readings the gate needs; each callable from any thread, none may block on the main
// sequence.
struct MemoryAdmissionProbes {
    std::function<std::optional<double>()> currentUsedGB;
    std::function<double()> ceilingGB;
    std::function<MemoryBudget()> budget;

    // Machine-wide RAM in use, in GB: MemTotal minus MemAvailable of /proc/meminfo, so that page
    // cache the kernel can reclaim doesn't count. Absent when the file can't be read or parsed.
    // Allocates nothing: it runs on every pass of the run loop that might claim.
    static std::optional<double> machineRAMUsedGB(const char* meminfoPath = "/proc/meminfo");
};

class MemoryAdmissionGate final : public MemoryGate {
  public:
    explicit MemoryAdmissionGate(MemoryAdmissionProbes probes) : probes_(std::move(probes)) {}

    // Reads the probes afresh every call; the argument takes no part (running shards are measured).
    std::optional<MemoryGatedReason> check(int shardsAlreadyInFlight) override;

    const MemoryAdmissionProbes& probes() const { return probes_; }

  private:
    MemoryAdmissionProbes probes_;
};

}  // namespace corvane
