#pragma once
// The question the run loop asks before claiming another shard: may one more shard fit in RAM?
// Absent means admit; a reason means hold back new claims.

#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

namespace corvane {

// Why admission was refused. `usedGB` is NaN when RAM use could not be read.
struct MemoryGatedReason {
    double usedGB = std::nan("");
    double ceilingGB = 0.0;

    double headroomGB() const { return ceilingGB - usedGB; }
    bool isProbeFailure() const { return std::isnan(usedGB); }

    std::string description() const {
        if (isProbeFailure()) return "RAM probe unavailable \u2014 holding admission";
        char text[96];
        std::snprintf(text, sizeof text, "RAM budget exhausted (%.1f / %.1f GB)", usedGB,
                      ceilingGB);
        return text;
    }

    // Numeric comparison on purpose: a probe failure (NaN) never equals anything, itself included,
    // so whoever de-duplicates reasons re-reports every failure.
    friend bool operator==(const MemoryGatedReason& a, const MemoryGatedReason& b) {
        return a.usedGB == b.usedGB && a.ceilingGB == b.ceilingGB;
    }
};

class MemoryGate {
  public:
    virtual ~MemoryGate() = default;
    virtual std::optional<MemoryGatedReason> check(int shardsAlreadyInFlight) = 0;
};

}  // namespace corvane
