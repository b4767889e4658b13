#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"

#include <cmath>
#include <limits>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

std::optional<double> MemoryAdmissionProbes::machineRAMUsedGB(const char* meminfoPath) {
    ProcText::Buffer<4096> text;
    if (!ProcText::readInto(meminfoPath, text)) return std::nullopt;
    auto total = ProcText::meminfoKilobytes(text.view(), "MemTotal");
    auto available = ProcText::meminfoKilobytes(text.view(), "MemAvailable");
    if (!total || !available || *total == 0 || *available > *total) return std::nullopt;
    return static_cast<double>(*total - *available) * 1024.0 / 1073741824.0;
}

std::optional<MemoryGatedReason> MemoryAdmissionGate::check(int /*shardsAlreadyInFlight*/) {
    double ceiling = probes_.ceilingGB();
    MemoryBudget budget = probes_.budget();
    std::optional<double> used = probes_.currentUsedGB();
    if (!used) {
        log::get("MemoryAdmissionGate")
            ->error("MemoryAdmissionGate: hold \u2014 RAM probe unavailable, failing closed");
        return MemoryGatedReason{std::numeric_limits<double>::quiet_NaN(), ceiling};
    }
    // The same arithmetic as MemoryBudget::canAdmit with one more shard; a NaN ceiling refuses.
    if (*used + budget.perShardWorkingSetGB + budget.safetyReserveGB <=
        ceiling - budget.modelFootprintGB) {
        return std::nullopt;
    }
    MemoryGatedReason reason{*used, ceiling};
    log::get("MemoryAdmissionGate")
        ->info("MemoryAdmissionGate: hold \u2014 {}", reason.description());
    return reason;
}

}  // namespace corvane
