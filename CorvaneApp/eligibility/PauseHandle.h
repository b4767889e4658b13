#pragma once
// The caller's proof of one hold on the eligibility gate. Releasing it (or dropping it) ends
// exactly that hold and no other.

#include <atomic>
#include <cstdint>
#include <memory>

namespace corvane {

class EligibilityGate;

using PauseEntryID = std::uint64_t;

class PauseHandle {
  public:
    PauseHandle(std::weak_ptr<EligibilityGate> gate, PauseEntryID entryID)
        : gate_(std::move(gate)), entryID_(entryID) {}
    PauseHandle(const PauseHandle&) = delete;
    PauseHandle& operator=(const PauseHandle&) = delete;
    // A handle dropped without release() ends its hold on the next turn of the main sequence,
    // never at once, wherever the last reference goes away.
    ~PauseHandle();

    // Ends the hold: at once on the main sequence's thread, a turn later from any other thread.
    // A second call, or a call after the gate is gone or cleared, does nothing.
    void release();

    bool released() const { return released_.load(); }
    PauseEntryID entryID() const { return entryID_; }

  private:
    std::weak_ptr<EligibilityGate> gate_;
    PauseEntryID entryID_;
    std::atomic<bool> released_{false};
};

}  // namespace corvane
