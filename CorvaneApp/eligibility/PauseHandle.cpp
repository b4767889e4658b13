#include "CorvaneApp/eligibility/PauseHandle.h"

#include "CorvaneApp/eligibility/EligibilityGate.h"

namespace corvane {

PauseHandle::~PauseHandle() {
    if (released_.load()) return;
    if (auto gate = gate_.lock()) gate->postReleaseEntry(entryID_);
}

void PauseHandle::release() {
    if (released_.exchange(true)) return;
    auto gate = gate_.lock();
    if (!gate) return;
    if (gate->isMainThread()) {
        gate->releaseEntry(entryID_);
    } else {
        gate->postReleaseEntry(entryID_);
    }
}

}  // namespace corvane
