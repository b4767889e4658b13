#include "CorvaneApp/models/WhisperReloadAdmission.h"

#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"
#include "CorvaneApp/models/WhisperImpl.h"

namespace corvane {

MemoryBudget WhisperReloadAdmission::budget(bool isInUse) {
    MemoryBudget budget = isInUse ? MemoryBudget::inUse() : MemoryBudget::away();
    // A headless worker with no weights loaded: 36 MB after the release.
    budget.baselineProcessGB = 0.04;
    // 556 MB more RSS once loaded (574 MB on disk).
    budget.modelFootprintGB = 0.55;
    // One shard of an hour while it runs: whisper.cpp's caches and compute buffers (about
    // 250 MB), the samples (230 MB), their spectrogram (180 MB) and, while that is made, a padded
    // copy of the samples (230 MB).
    budget.perShardWorkingSetGB = 0.85;
    return budget;
}

std::optional<std::string> WhisperReloadAdmission::operator()() const {
    const Settings now = settings();
    const bool inUse = WhisperImpl::isInUse(now.idleMinutes, secondsSinceLastInput());
    MemoryAdmissionGate gate({currentUsedGB,
                              [&] { return inUse ? now.inUseRamCeilingGB : now.awayRamCeilingGB; },
                              [inUse] { return budget(inUse); }});
    if (auto reason = gate.check(0)) return reason->description();
    return std::nullopt;
}

}  // namespace corvane
