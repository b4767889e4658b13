#include "CorvaneApp/eligibility/MemoryBudget.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "CorvaneApp/platform/Text.h"

namespace corvane {

double MemoryBudget::modelFootprint(std::optional<std::string_view> quantization) {
    if (!quantization) return 12.0;
    const std::string text = asciiLowercased(*quantization);
    if (text == "4bit" || text == "q4" || text == "q4_0" || text == "int4") return 3.0;
    if (text == "8bit" || text == "q8" || text == "q8_0" || text == "int8") return 6.0;
    return 12.0;  // "fp16", "f16", "float16" and anything unknown
}

MemoryBudget MemoryBudget::forMode(bool isInUse, std::optional<std::string_view> quantization) {
    return {1.5, modelFootprint(quantization), 1.5, isInUse ? 2.5 : 1.5};
}

double MemoryBudget::projectedUsageGB(int shardsInFlight) const {
    return fixedOverheadGB() + perShardWorkingSetGB * std::max(shardsInFlight, 0);
}

bool MemoryBudget::canAdmit(double currentUsedGB, double ceilingGB, int /*shardsAlreadyInFlight*/,
                            int additionalShards) const {
    double needed =
        currentUsedGB + perShardWorkingSetGB * std::max(additionalShards, 0) + safetyReserveGB;
    return needed <= ceilingGB - modelFootprintGB;
}

long long MemoryBudget::admissibleCount(double currentUsedGB, double ceilingGB,
                                        int /*shardsAlreadyInFlight*/) const {
    double room = ceilingGB - modelFootprintGB - currentUsedGB - safetyReserveGB;
    if (!(room > 0)) return 0;
    double quotient = std::trunc(room / perShardWorkingSetGB);
    // 2^63 is exactly representable; anything at or past it does not fit.
    if (!(perShardWorkingSetGB > 0) || !std::isfinite(quotient) ||
        quotient >= 9223372036854775808.0) {
        std::fprintf(stderr,
                     "MemoryBudget.admissibleCount: perShardWorkingSetGB must be positive (%g)\n",
                     perShardWorkingSetGB);
        std::abort();
    }
    return std::max(static_cast<long long>(quotient), 0LL);
}

}  // namespace corvane
