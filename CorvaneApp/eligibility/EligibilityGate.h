#pragma once
// The single answer to "may this computer take new work now": the schedule input written by the
// idle monitor, and independent named holds taken by the other watchers. Lives on the main
// sequence; only its EligibilitySnapshot may be read from other threads.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "CorvaneApp/eligibility/EligibilitySnapshot.h"
#include "CorvaneApp/eligibility/PauseHandle.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

class EligibilityGate : public std::enable_shared_from_this<EligibilityGate> {
  public:
    struct PauseEntry {
        PauseEntryID id = 0;
        std::string reason;  // trimmed, never empty
        bool operator==(const PauseEntry&) const = default;
    };
    using PauseHandle = corvane::PauseHandle;

    // The observed properties; an observer hears only of real changes.
    enum class Property { isEligible, isScheduledOn, scheduledOffReason, pauseEntries };

    // Call on the thread that runs `mainSequence`: that thread counts as the main one for
    // release(). `mainSequence` must outlive the gate.
    static std::shared_ptr<EligibilityGate> create(Executor& mainSequence,
                                                   bool initialIsScheduledOn = true);

    EligibilityGate(const EligibilityGate&) = delete;
    EligibilityGate& operator=(const EligibilityGate&) = delete;

    // Takes a hold with `reason` (trimmed). A blank reason takes none and yields null.
    std::shared_ptr<PauseHandle> pause(std::string_view reason);
    void setScheduledOn(bool on, std::optional<std::string> reason = std::nullopt);
    void clearAllPauses();

    bool isEligible() const { return isEligible_; }
    bool isScheduledOn() const { return isScheduledOn_; }
    const std::optional<std::string>& scheduledOffReason() const { return scheduledOffReason_; }
    const std::vector<PauseEntry>& pauseEntries() const { return pauseEntries_; }

    // The newest hold's reason, else the schedule's when it is off, else absent.
    std::optional<std::string> reason() const;
    // The oldest hold's reason; absent without holds.
    std::optional<std::string> temporaryPauseReason() const;
    std::vector<std::string> pauseReasons() const;
    bool isTemporarilyPaused() const { return !pauseEntries_.empty(); }

    // Safe from any thread.
    bool currentEligibilitySnapshot() const { return snapshot_->value(); }
    const std::shared_ptr<EligibilitySnapshot>& eligibilitySnapshot() const { return snapshot_; }
    // What the worker is given: reads the snapshot alone, never the gate.
    std::function<bool()> isEligibleFunction() const;

    [[nodiscard]] Subscription observe(std::function<void(Property)> observer);

  private:
    friend class corvane::PauseHandle;

    EligibilityGate(Executor& mainSequence, bool initialIsScheduledOn);

    bool isMainThread() const { return std::this_thread::get_id() == mainThread_; }
    void releaseEntry(PauseEntryID id);
    void postReleaseEntry(PauseEntryID id);
    void recomputeEligibility();
    void notify(Property property) { observers_.notify(property); }

    Executor& mainSequence_;
    std::thread::id mainThread_;
    bool isEligible_;
    bool isScheduledOn_;
    std::optional<std::string> scheduledOffReason_;
    std::shared_ptr<EligibilitySnapshot> snapshot_;
    std::vector<PauseEntry> pauseEntries_;
    PauseEntryID nextEntryID_ = 1;
    ObserverList<Property> observers_;
};

}  // namespace corvane
