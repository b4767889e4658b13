#include "CorvaneApp/eligibility/MeetingDetector.h"

#include <gtest/gtest.h>

#include "CorvaneApp/eligibility/SystemMeetingProbe.h"
#include "tests/eligibility/FixtureTree.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Snapshot = MeetingDetector::Snapshot;
using testing::FakeClock;
using testing::ManualExecutor;

const Snapshot kCall{true, true, false};
const Snapshot kQuiet{false, false, false};

TEST(MeetingVoteTest, TwoOfThreeSignals) {
    // {camera, microphone, client}: camera alone, a browser call, microphone and Teams, Teams
    // alone.
    const std::pair<Snapshot, bool> rows[] = {
        {{true, false, false}, false}, {{true, true, false}, true}, {{false, true, true}, true},
        {{false, false, true}, false}, {{true, false, true}, true}, {{false, true, false}, false}};
    for (const auto& [snapshot, meeting] : rows) {
        EXPECT_EQ(MeetingDetector::isMeeting(snapshot), meeting)
            << snapshot.videoInUse << snapshot.audioInUse << snapshot.knownMeetingAppRunning;
    }
}

class MeetingDetectorTest : public ::testing::Test {
  protected:
    bool held() const {
        return gate->pauseReasons() == std::vector<std::string>{"meeting in progress"};
    }

    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    bool enabled = true, workerActive = true;
    Snapshot reading = kQuiet;
    int probes = 0;
    MeetingDetector detector{gate, executor, [this] { return enabled; },
                             [this] { return ++probes, reading; }, [this] { return workerActive; }};
};

TEST_F(MeetingDetectorTest, ACallThatComesBackKeepsTheHoldAndRestartsTheGrace) {
    reading = kCall;
    detector.start();
    detector.start();  // no second loop
    reading = kQuiet;
    executor.advance(25);  // grace from t=5
    EXPECT_EQ(probes, 6);
    reading = kCall;
    executor.advance(5);  // t=30: back in the call, grace cancelled
    EXPECT_FALSE(detector.isResumePending());
    EXPECT_EQ(gate->pauseEntries().size(), 1u);  // one hold however many polls see the call
    reading = kQuiet;
    executor.advance(30);  // grace again from t=35; the first would have ended there
    EXPECT_TRUE(held());
    executor.advance(5);  // t=65
    EXPECT_FALSE(detector.isHolding());
}

TEST_F(MeetingDetectorTest, SettingOffReleasesAtOnceIdleWorkerTakesNoHold) {
    workerActive = false;
    reading = kCall;
    detector.start();
    EXPECT_TRUE(detector.isMeetingActive());  // read, but no hold for an idle worker
    EXPECT_TRUE(gate->isEligible());
    workerActive = true;
    executor.advance(5);
    EXPECT_TRUE(held());
    enabled = false;
    executor.advance(5);
    EXPECT_FALSE(detector.isHolding());  // no grace when switched off
    EXPECT_TRUE(gate->isEligible());
}

class SystemMeetingProbeTest : public ::testing::Test {
  protected:
    SystemMeetingProbe probe() {
        return SystemMeetingProbe({tree.path("proc"), tree.path("asound"), tree.path("dev")});
    }
    void substream(const std::string& relative, const std::string& status) {
        tree.write("asound/" + relative + "/status", status);
    }
    testing::FixtureTree tree;
};

TEST_F(SystemMeetingProbeTest, MicrophoneIsARunningCaptureSubstreamOthersReadAsSilence) {
    EXPECT_FALSE(probe().microphoneInUse());            // no sound card folder at all
    substream("card0/pcm0p/sub0", "state: RUNNING\n");  // playback, not capture
    substream("card0/pcm0c/sub0", "closed\n");
    substream("card1/pcm3c/sub1", "state: PREPARED\n");
    tree.unreadable("asound/card1/pcm3c/sub0/status");
    tree.write("asound/card1/pcm3c/sub2/status", std::string("\0\xff garbage", 10));
    tree.write("asound/cards", "state: RUNNING\n");
    EXPECT_FALSE(probe().microphoneInUse());
    substream("card1/pcm3c/sub3", "state: RUNNING\nowner_pid   : 4242\n");
    EXPECT_TRUE(probe().microphoneInUse());
}

TEST_F(SystemMeetingProbeTest, CameraHeldOpenAndKnownClientsByProcessName) {
    tree.process(10, "bash");
    tree.write("dev/video0", "");
    tree.symlink("proc/10/fd/0", "/dev/pts/1");
    tree.symlink("proc/10/fd/7", tree.path("dev/videoX"));  // not a camera's name
    tree.symlink("proc/10/fd/8", tree.path("dev/video0.bak"));
    tree.process(11, "zoomer");
    tree.process(12, "Zoom");              // no fd folder: another user's process, skipped
    tree.process(13, "zoom", 'Z');         // terminated, not yet reaped
    tree.write("proc/14/comm", "zoom\n");  // its state can't be read: not counted
    tree.write("proc/14/stat", "garbage");
    tree.unreadable("proc/15/comm");
    tree.write("proc/self/comm", "zoom\n");
    EXPECT_EQ(probe().read(), (Snapshot{false, false, false}));

    tree.symlink("proc/11/fd/31", tree.path("dev/video0"));
    tree.process(17, "teams-for-linux");
    EXPECT_EQ(probe().read(), (Snapshot{true, false, true}));
    tree.remove("dev/video0");  // no camera at all: the descriptors aren't even looked at
    EXPECT_FALSE(probe().cameraInUse());
    tree.remove("proc");
    EXPECT_EQ(probe().read(), (Snapshot{false, false, false}));
}

}  // namespace
}  // namespace corvane
