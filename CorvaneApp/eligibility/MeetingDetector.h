#pragma once
// Keeps paid work from competing with a call: when two of camera, microphone and a known meeting
// application say "meeting", it holds one pause on the gate; it lets go 30 seconds after the
// first reading without a meeting, and only if a fresh reading agrees.

#include <functional>
#include <memory>

#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

struct MeetingDetectorOptions {
    double detectionInterval = 5.0;
    double resumeGracePeriod = 30.0;
};

class MeetingDetector {
  public:
    struct Snapshot {
        bool videoInUse = false;
        bool audioInUse = false;
        bool knownMeetingAppRunning = false;
        bool operator==(const Snapshot&) const = default;
    };

    using Options = MeetingDetectorOptions;

    MeetingDetector(std::shared_ptr<EligibilityGate> eligibilityGate, Executor& mainSequence,
                    std::function<bool()> pauseOnMeetingEnabled,
                    std::function<Snapshot()> meetingProbe, std::function<bool()> workerIsActive,
                    Options options = {});
    MeetingDetector(const MeetingDetector&) = delete;
    MeetingDetector& operator=(const MeetingDetector&) = delete;

    // Two of the three signals make a meeting; one alone never does.
    static bool isMeeting(const Snapshot& snapshot);

    // Reads at once, then every detection interval. A second call does nothing.
    void start();
    // Ends polling and any grace period in progress; a hold stays in place.
    void stop();
    // One reading and its consequences; may be called at any moment (after a setting changed).
    void refreshNow();

    bool isMeetingActive() const { return isMeetingActive_; }
    bool isHolding() const { return pauseHandle_ != nullptr; }
    bool isResumePending() const { return pendingResume_.active(); }

  private:
    void scheduleResumeIfNeeded();
    void completeGracePeriodResumeAfterFreshProbe();
    void releaseHold();

    std::shared_ptr<EligibilityGate> gate_;
    Executor& mainSequence_;
    std::function<bool()> pauseOnMeetingEnabled_;
    std::function<Snapshot()> meetingProbe_;
    std::function<bool()> workerIsActive_;
    Options options_;
    TimerHandle pollTimer_;
    TimerHandle pendingResume_;
    std::shared_ptr<PauseHandle> pauseHandle_;
    bool isMeetingActive_ = false;
};

}  // namespace corvane
