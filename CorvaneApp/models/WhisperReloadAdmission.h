#pragma once
// Memory admission before the Whisper weights a paused worker released are loaded again: the
// machine's measured RAM use, plus the room of the real model and of one shard, must stay under
// the owner's RAM ceiling of the current mode. It is what WhisperImpl asks as admitReload.

#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/eligibility/MemoryBudget.h"

namespace corvane {

struct WhisperReloadAdmission {
    struct Settings {
        double idleMinutes = 0;
        double inUseRamCeilingGB = 0;
        double awayRamCeilingGB = 0;
    };
    std::function<Settings()> settings;
    // Seconds since the last input; absent when no source answers (counted as in use).
    std::function<std::optional<double>()> secondsSinceLastInput;
    // Machine-wide RAM in use; absent when it cannot be read (admission then refuses).
    std::function<std::optional<double>()> currentUsedGB;

    // Whisper large-v3 turbo at q5_0, measured on the generated model of that size (bench/whisper,
    // bench/app), not on the tiny test model, whose weights are a hundredth of these; the reserve
    // that stays free is the mode's.
    static MemoryBudget budget(bool isInUse);

    // Absent: admitted. Otherwise why not, as MemoryAdmissionGate says it (and logs it).
    std::optional<std::string> operator()() const;
};

}  // namespace corvane
