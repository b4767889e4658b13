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
    struct Row {
        Snapshot snapshot;
        bool meeting;
    };
    const Row rows[] = {
        {{true, false, false}, false},  // camera alone, no microphone, no client
        {{true, true, false}, true},    // a browser call
        {{false, true, true}, true},    // microphone and Teams, camera off
        {{false, false, true}, false},  // Teams alone
        {{true, false, true}, true},
        {{true, true, true}, true},
        {{false, true, false}, false},
        {{false, false, false}, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(MeetingDetector::isMeeting(row.snapshot), row.meeting)
            << row.snapshot.videoInUse << row.snapshot.audioInUse << row.snapshot.knownMeetingAppRunning;
    }
}

class MeetingDetectorTest : public ::testing::Test {
protected:
    bool held() const { return gate->pauseReasons() == std::vector<std::string>{"meeting in progress"}; }

    FakeClock clock;
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    bool enabled = true;
    bool workerActive = true;
    Snapshot reading = kQuiet;
    int probes = 0;
    MeetingDetector detector{gate,
                             executor,
                             [this] { return enabled; },
                             [this] {
                                 ++probes;
                                 return reading;
                             },
                             [this] { return workerActive; }};
};

TEST_F(MeetingDetectorTest, PausesAtOnceAndResumesThirtySecondsAfterTheFirstQuietReading) {
    reading = kCall;
    detector.start();
    EXPECT_TRUE(detector.isMeetingActive());
    EXPECT_TRUE(held());
    executor.advance(5);
    EXPECT_EQ(gate->pauseEntries().size(), 1u);  // one hold however many polls see the call

    reading = kQuiet;
    executor.advance(5);  // t=10: first quiet reading starts the grace period
    EXPECT_FALSE(detector.isMeetingActive());
    EXPECT_TRUE(detector.isResumePending());
    executor.advance(25);  // quiet polls at 15..35 don't extend it
    EXPECT_TRUE(held());
    executor.advance(5);   // t=40: grace over, fresh reading quiet
    EXPECT_FALSE(detector.isHolding());
    EXPECT_TRUE(gate->isEligible());
}

TEST_F(MeetingDetectorTest, ACallThatComesBackKeepsTheHoldAndRestartsTheGrace) {
    reading = kCall;
    detector.start();
    reading = kQuiet;
    executor.advance(5);   // t=5: grace starts
    executor.advance(20);  // t=25
    reading = kCall;
    executor.advance(5);   // t=30: back in the call, grace cancelled
    EXPECT_FALSE(detector.isResumePending());
    reading = kQuiet;
    executor.advance(5);   // t=35: grace starts again
    executor.advance(25);  // t=60: the first grace would have ended at 35
    EXPECT_TRUE(held());
    executor.advance(5);   // t=65
    EXPECT_FALSE(detector.isHolding());
}

TEST_F(MeetingDetectorTest, FreshReadingAtTheEndOfGraceCanKeepTheHold) {
    reading = kCall;
    detector.refreshNow();
    reading = kQuiet;
    detector.refreshNow();  // grace starts, no poll loop running
    executor.advance(29.9);
    reading = kCall;        // the call resumed; no poll saw it yet
    executor.advance(0.1);
    EXPECT_TRUE(held());
    EXPECT_TRUE(detector.isMeetingActive());
    EXPECT_FALSE(detector.isResumePending());
    reading = kQuiet;
    detector.refreshNow();  // the next quiet poll starts a new grace
    EXPECT_TRUE(detector.isResumePending());
}

TEST_F(MeetingDetectorTest, SettingOffReleasesAtOnceWithoutGrace) {
    reading = kCall;
    detector.start();
    enabled = false;
    executor.advance(5);
    EXPECT_FALSE(detector.isHolding());
    EXPECT_TRUE(gate->isEligible());
    EXPECT_TRUE(detector.isMeetingActive());  // still read, just not acted on
}

TEST_F(MeetingDetectorTest, IdleWorkerTakesNoHoldButAHeldOneOutlivesTheWorker) {
    workerActive = false;
    reading = kCall;
    detector.start();
    EXPECT_TRUE(detector.isMeetingActive());
    EXPECT_TRUE(gate->isEligible());

    workerActive = true;
    executor.advance(5);
    EXPECT_TRUE(held());
    workerActive = false;
    executor.advance(5);
    EXPECT_TRUE(held());
    reading = kQuiet;
    executor.advance(35);
    EXPECT_FALSE(detector.isHolding());
}

TEST_F(MeetingDetectorTest, StartTwiceOneLoopStopKeepsTheHold) {
    reading = kCall;
    detector.start();
    detector.start();
    EXPECT_EQ(probes, 1);
    executor.advance(10);
    EXPECT_EQ(probes, 3);
    reading = kQuiet;
    executor.advance(5);
    detector.stop();
    executor.advance(100);
    EXPECT_EQ(probes, 4);
    EXPECT_TRUE(held());  // stop() cancels the grace but leaves the hold
}

class SystemMeetingProbeTest : public ::testing::Test {
protected:
    SystemMeetingProbe probe() {
        return SystemMeetingProbe({tree.path("proc"), tree.path("asound"), tree.path("dev")});
    }
    void process(int pid, const std::string& name, char state = 'S') {
        tree.write("proc/" + std::to_string(pid) + "/stat",
                   std::to_string(pid) + " (" + name + ") " + state +
                       " 1 1 1 0 -1 0 0 0 0 0 10 5 0 0 20 0 1 0 100 1000 250 0\n");
    }
    void substream(const std::string& relative, const std::string& status) {
        tree.write("asound/" + relative + "/status", status);
    }
    testing::FixtureTree tree;
};

TEST_F(SystemMeetingProbeTest, MicrophoneIsARunningCaptureSubstream) {
    EXPECT_FALSE(probe().microphoneInUse());  // no sound card folder at all
    substream("card0/pcm0p/sub0", "state: RUNNING\nowner_pid   : 12\n");  // playback
    substream("card0/pcm0c/sub0", "closed\n");
    substream("card1/pcm3c/sub1", "state: PREPARED\n");
    EXPECT_FALSE(probe().microphoneInUse());
    tree.unreadable("card1/pcm3c/sub0/status");
    tree.write("asound/card1/pcm3c/sub2/status", "\x00\xff garbage");
    tree.write("asound/cards", "state: RUNNING\n");
    EXPECT_FALSE(probe().microphoneInUse());
    substream("card1/pcm3c/sub3", "state: RUNNING\nowner_pid   : 4242\n");
    EXPECT_TRUE(probe().microphoneInUse());
}

TEST_F(SystemMeetingProbeTest, CameraIsAVideoDeviceHeldOpenByAnyProcess) {
    process(10, "bash");
    tree.write("dev/video0", "");
    tree.symlink("proc/10/fd/0", "/dev/pts/1");
    EXPECT_FALSE(probe().cameraInUse());
    tree.symlink("proc/10/fd/7", tree.path("dev/videoX"));    // not a camera's name
    tree.symlink("proc/10/fd/8", tree.path("dev/video0.bak"));
    EXPECT_FALSE(probe().cameraInUse());
    process(11, "firefox");
    tree.folder("proc/11/fd");
    process(12, "other-user");  // no fd folder: another user's process, skipped
    tree.symlink("proc/11/fd/31", tree.path("dev/video0"));
    EXPECT_TRUE(probe().cameraInUse());
    tree.remove("dev/video0");  // no camera at all: the descriptors aren't even looked at
    EXPECT_FALSE(probe().cameraInUse());
}

TEST_F(SystemMeetingProbeTest, KnownClientsByProcessName) {
    process(20, "bash");
    process(21, "zoomer");
    process(22, "Zoom");
    tree.write("proc/23/stat", "garbage");
    tree.unreadable("proc/24/stat");
    tree.write("proc/self/stat", "25 (zoom) S");
    EXPECT_FALSE(probe().knownMeetingAppRunning());
    process(26, "zoom", 'Z');  // terminated, not yet reaped
    EXPECT_FALSE(probe().knownMeetingAppRunning());
    process(27, "teams-for-linux");
    EXPECT_TRUE(probe().knownMeetingAppRunning());

    tree.write("dev/video1", "");
    tree.symlink("proc/20/fd/3", tree.path("dev/video1"));
    EXPECT_EQ(probe().read(), (Snapshot{true, false, true}));
    tree.remove("proc");
    EXPECT_EQ(probe().read(), (Snapshot{false, false, false}));
}

}  // namespace
}  // namespace corvane
