#include "CorvaneApp/eligibility/MeetingDetector.h"

namespace corvane {

MeetingDetector::MeetingDetector(std::shared_ptr<EligibilityGate> eligibilityGate,
                                 Executor& mainSequence,
                                 std::function<bool()> pauseOnMeetingEnabled,
                                 std::function<Snapshot()> meetingProbe,
                                 std::function<bool()> workerIsActive, Options options)
    : gate_(std::move(eligibilityGate)),
      mainSequence_(mainSequence),
      pauseOnMeetingEnabled_(std::move(pauseOnMeetingEnabled)),
      meetingProbe_(std::move(meetingProbe)),
      workerIsActive_(std::move(workerIsActive)),
      options_(options) {}

bool MeetingDetector::isMeeting(const Snapshot& snapshot) {
    int votes =
        int(snapshot.videoInUse) + int(snapshot.audioInUse) + int(snapshot.knownMeetingAppRunning);
    return votes >= 2;
}

void MeetingDetector::start() {
    if (pollTimer_.active()) return;
    refreshNow();
    // Timers are owned here and run on this sequence, so they never outlive the detector.
    pollTimer_ =
        mainSequence_.scheduleRepeating(options_.detectionInterval, [this] { refreshNow(); });
}

void MeetingDetector::stop() {
    pollTimer_.cancel();
    pendingResume_.cancel();
}

void MeetingDetector::refreshNow() {
    bool meeting = isMeeting(meetingProbe_());
    isMeetingActive_ = meeting;
    // Out of play: a meeting that starts while the worker is idle takes no hold, but a hold once
    // taken outlives the worker's stopping.
    if (!pauseOnMeetingEnabled_() || (!workerIsActive_() && !pauseHandle_)) {
        pendingResume_.cancel();
        releaseHold();
        return;
    }
    if (!meeting) {
        scheduleResumeIfNeeded();
        return;
    }
    // The grace period starts anew from the next reading without a meeting.
    pendingResume_.cancel();
    if (!pauseHandle_) pauseHandle_ = gate_->pause("meeting in progress");
}

void MeetingDetector::scheduleResumeIfNeeded() {
    if (!pauseHandle_ || pendingResume_.active()) return;
    pendingResume_ = mainSequence_.scheduleOnce(
        options_.resumeGracePeriod, [this] { completeGracePeriodResumeAfterFreshProbe(); });
}

void MeetingDetector::completeGracePeriodResumeAfterFreshProbe() {
    pendingResume_ = TimerHandle();
    bool meeting = isMeeting(meetingProbe_());
    isMeetingActive_ = meeting;
    if (meeting) return;
    releaseHold();
}

void MeetingDetector::releaseHold() {
    if (!pauseHandle_) return;
    pauseHandle_->release();
    pauseHandle_.reset();
}

}  // namespace corvane
