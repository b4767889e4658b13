// The status words against the table they come from, the translations of gate reasons and of the
// runtime-state record, the short inline lines, and the order in which sources decide.

#include <gtest/gtest.h>

#include <unistd.h>

#include <fstream>
#include <thread>
#include <vector>

#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "tests/support/FakeClock.h"

namespace corvane {
namespace {

using S = WorkerStatus;

TEST(WorkerStatusWords, EveryStatusHasItsWordsRawValueAndColour) {
    struct Row {
        S status;
        const char* raw;
        const char* label;
        const char* sub;
        CorvaneColor color;
    };
    const Row rows[] = {
        {S::notEnrolled, "notEnrolled", "Not enrolled", "Sign in to start earning",
         CorvaneColor::bone400},
        {S::earning, "earning", "Earning", "Processing work", CorvaneColor::phosphor500},
        {S::idle, "idle", "Idle", "Online · waiting for work", CorvaneColor::signalInfo},
        {S::paused, "paused", "Paused", "Paused by you", CorvaneColor::bone400},
        {S::scheduled, "scheduled", "Off-hours", "Outside schedule window",
         CorvaneColor::signalWarn},
        {S::throttled, "throttled", "Throttled", "CPU cap reached", CorvaneColor::signalWarn},
        {S::offline, "offline", "Offline", "No internet connection", CorvaneColor::signalError},
        {S::updating, "updating", "Updating", "Installing update", CorvaneColor::plum500},
    };
    ASSERT_EQ(std::size(rows), allWorkerStatuses.size());
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto& row = rows[i];
        SCOPED_TRACE(row.raw);
        EXPECT_EQ(allWorkerStatuses[i], row.status) << "iteration order";
        EXPECT_EQ(rawValue(row.status), row.raw);
        EXPECT_EQ(workerStatusFromRaw(row.raw), row.status);
        EXPECT_EQ(glyphColor(row.status), row.color);
        EXPECT_EQ(WorkerStatusPresentation::defaultFor(row.status),
                  (WorkerStatusPresentation{row.status, row.label, row.sub,
                                            std::string("Corvane · ") + row.label}));
    }
    EXPECT_EQ(workerStatusFromRaw("Idle"), std::nullopt);
    EXPECT_EQ(corvaneTrimmed(std::optional<std::string>(" \n\t ")), std::nullopt);
    EXPECT_EQ(corvaneTrimmed(std::optional<std::string>("\n a b \r\n")), "a b");
}

TEST(WorkerStatusWords, GateReasonsAreNormalisedThenLookedUp) {
    struct Row {
        std::optional<std::string> reason;
        std::optional<WorkerStatusPresentation> expected;
    };
    auto p = [](S status, std::string label, std::string sub) {
        return std::optional<WorkerStatusPresentation>({status, label, sub, "Corvane · " + label});
    };
    const Row rows[] = {
        {std::nullopt, std::nullopt},
        {"  \n", std::nullopt},
        {"Schedule off", p(S::scheduled, "Outside schedule window", "Outside schedule window")},
        {" On Battery ", p(S::throttled, "Waiting for AC power", "Plug in to start working")},
        {"waiting for idle",
         p(S::throttled, "Waiting for idle", "Leave this computer idle to start working")},
        {"RAM_GATED", p(S::throttled, "RAM budget exhausted", "Paused — not enough free memory")},
        {"ram budget exhausted",
         p(S::throttled, "RAM budget exhausted", "Paused — not enough free memory")},
        {"Low Power Mode", p(S::idle, "Low Power Mode", "Online · waiting for work")},
        {"meeting in progress", p(S::idle, "Meeting In Progress", "Online · waiting for work")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.reason.value_or("(none)"));
        EXPECT_EQ(presentationForGateReason(row.reason), row.expected);
    }
}

TEST(WorkerStatusWords, RuntimeStateRecordsAndUnknownReasonsReportedOnce) {
    std::vector<std::string> warnings;
    UnknownEligibilityReasonReporter reporter(
        [&](const std::string& line) { warnings.push_back(line); });
    auto state = [](std::optional<std::string> reason, std::optional<std::string> headline = {},
                    std::optional<std::string> detail = {}, std::optional<bool> claimable = {}) {
        EligibilityState e;
        e.reason = std::move(reason);
        e.headline = std::move(headline);
        e.detail = std::move(detail);
        e.isClaimable = claimable;
        return e;
    };
    struct Row {
        EligibilityState state;
        WorkerStatusPresentation expected;
    };
    const Row rows[] = {
        {state("eligible"),
         {S::earning, "Polling for work", "Processing work", "Corvane · Polling for work"}},
        {state(std::nullopt), {S::idle, "Idle", "Online · waiting for work", "Corvane · Idle"}},
        {state(" WAITING_FOR_AC "),
         {S::throttled, "Waiting for AC power", "CPU cap reached",
          "Corvane · Waiting for AC power"}},
        {state("off_hours"),
         {S::scheduled, "Off-hours", "Outside schedule window", "Corvane · Off-hours"}},
        {state("auth_issue", {}, " Token expired "),
         {S::offline, "Authentication problem", "Token expired",
          "Corvane · Authentication problem"}},
        {state("missing_model"),
         {S::updating, "Model not available", "Installing update",
          "Corvane · Model not available"}},
        {state("paused", " Meeting "),
         {S::paused, "Meeting", "Paused by you", "Corvane · Meeting"}},
        // Claimable wins over the reason.
        {state("waiting_for_ac", {}, {}, true),
         {S::earning, "Waiting for AC power", "Processing work", "Corvane · Waiting for AC power"}},
        {state("flux_capacitor"),
         {S::idle, "Idle", "Online · waiting for work", "Corvane · Status: unknown"}},
        {state("Flux_Capacitor", "Warp"),
         {S::idle, "Warp", "Online · waiting for work", "Corvane · Status: unknown"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.state.reason.value_or("(none)"));
        EXPECT_EQ(presentationFor(row.state, reporter), row.expected);
    }
    EXPECT_EQ(warnings,
              std::vector<std::string>{"Unknown eligibility reason from daemon: flux_capacitor"});

    // Many threads, one new reason: still one line.
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) threads.emplace_back([&] { reporter.reportIfNeeded("warp_core"); });
    threads.clear();
    EXPECT_EQ(warnings.size(), 2u);
}

TEST(WorkerStatusWords, InlineExplanations) {
    struct Row {
        S status;
        const char* label;
        std::optional<std::string> sub;
        std::optional<std::string> expected;
    };
    const Row rows[] = {
        {S::notEnrolled, "Not enrolled", "anything", "Sign in to start earning"},
        {S::earning, "Earning", "Processing work", "Processing work"},
        {S::earning, "Polling for work", std::nullopt, "Waiting for the next shard"},
        {S::earning, "Earning", "Shard 3 of 9", "Shard 3 of 9"},
        {S::idle, "Idle", "something else", "Waiting for work"},
        {S::idle, "Low Power Mode", "low power mode", std::nullopt},
        {S::idle, "Low Power Mode", "Online · waiting for work", "Waiting for work"},
        {S::paused, "Paused", " Paused by you ", "Resume when you're ready"},
        {S::paused, "Paused", "Paused — meeting in progress", "meeting in progress"},
        {S::paused, "Paused", "Paused — ", "Paused —"},
        {S::scheduled, "Off-hours", "x", "Outside schedule window"},
        {S::scheduled, "Night", "Back at 08:00", "Back at 08:00"},
        {S::scheduled, "Night", std::nullopt, "Outside schedule window"},
        {S::throttled, "Waiting for AC power", "x", "Plug in to start"},
        {S::throttled, "Waiting for idle", "x", "Leave this computer untouched to start"},
        {S::throttled, "Thermal throttle active", "x", "Cooling down before resuming"},
        {S::throttled, "Throttled", "CPU cap reached", "CPU cap reached"},
        {S::offline, "Authentication problem", "No internet connection", "Sign in again to start"},
        {S::offline, "Offline", "Proxy refused", "Proxy refused"},
        {S::updating, "Starting up", std::nullopt, "Getting Corvane ready"},
        {S::updating, "Model not available", "Installing update",
         "Download required before work can start"},
        {S::updating, "Updating", std::nullopt, "Installing update"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(rawValue(row.status)) + " / " + row.label);
        EXPECT_EQ(inlineExplanation(row.status, row.label, row.sub), row.expected);
    }
}

// A scripted stretch of a worker's life, two seconds a step.
TEST(WorkerStatusTracker, SourcesDecideInOrderAndBusyHasAGraceWindow) {
    WorkerStatusTracker tracker(
        std::make_shared<UnknownEligibilityReasonReporter>([](const std::string&) {}));
    testing::FakeClock clock;
    WorkerStatusInputs in;
    std::vector<std::string> seen;
    auto step = [&](double seconds = 2.0) {
        clock.advance(seconds);
        seen.push_back(tracker.presentation(in, clock.now()).label);
    };
    step();  // not enrolled
    in.enrolled = true;
    step();  // worker not built yet
    in.modelDownloading = true;
    step();
    in.modelDownloading = false;
    in.workerRunning = true;
    step();  // running, nothing else known
    in.busy = true;
    step();
    in.busy = false;
    in.gateEligible = false;
    in.gateReason = "schedule off";
    step();      // inside the grace window: still earning
    step(14.0);  // 16 s after the last busy moment
    in.gateEligible = true;
    in.gateReason.reset();
    in.eligibility = EligibilityState{};
    in.eligibility->reason = "waiting_for_idle";
    step();
    in.paused = true;
    step();
    in.paused = false;
    in.busy = true;
    step();
    in.busy = false;
    in.eligibility->reason = "idle";
    step();  // an idle state file inside the grace window reads as earning
    step(20.0);
    in.enrolled = false;
    step();
    EXPECT_EQ(seen, (std::vector<std::string>{
                        "Not enrolled", "Offline", "Downloading model", "Idle", "Earning",
                        "Earning", "Outside schedule window", "Waiting for idle", "Paused",
                        "Earning", "Earning", "Idle", "Not enrolled"}));
}

TEST(WorkerStatusFile, RoundTripsOwnerOnlyAndRefusesDamage) {
    const auto dir =
        std::filesystem::temp_directory_path() / ("corvane-status-" + std::to_string(::getpid()));
    const auto file = dir / "nested" / "status.json";
    EXPECT_EQ(readWorkerStatusFile(file), std::nullopt);
    WorkerStatusRecord record{WorkerStatusPresentation::defaultFor(S::earning),
                              "job-1",
                              "s1",
                              std::nullopt,
                              "2026-11-23T07:00:00Z",
                              42};
    writeWorkerStatusFile(file, record);
    EXPECT_EQ(readWorkerStatusFile(file), record);
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    EXPECT_EQ(describe(record),
              "Earning — Processing work\njob: job-1 / shard s1\nlast error: none\n"
              "updated: 2026-11-23T07:00:00Z (pid 42)\n");
    for (const char* damaged : {"{\"status\": \"earning\"",
                                "{\"status\": \"dancing\", \"label\": \"\", \"sub\": \"\", "
                                "\"tooltip\": \"\"}",
                                "[]", ""}) {
        SCOPED_TRACE(damaged);
        std::ofstream(file, std::ios::trunc) << damaged;
        EXPECT_THROW(readWorkerStatusFile(file), std::runtime_error);
    }
    std::filesystem::remove_all(dir);
}

}  // namespace
}  // namespace corvane
