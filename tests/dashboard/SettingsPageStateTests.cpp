// The settings page's words and switches from the sample session at a fixed moment, in two time
// zones; the diagnostics text; and what an uninstall says when it is done.

#include <gtest/gtest.h>

#include <cstdlib>

#include "CorvaneApp/dashboard/SettingsPageState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

using Check = SettingsPageInputs::UpdateCheck;

class SettingsPageStateTest : public ::testing::TestWithParam<const char*> {
  protected:
    SettingsPageStateTest() {
        ::setenv("TZ", GetParam(), 1);
        ::tzset();
        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(1'781'796'600);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        options.sessionElapsed = [] { return 10.0; };
        options.notificationLog = NotificationEventLog::Options{folder / "notifications.log",
                                                                folder / "notifications.1.log"};
        session.emplace(executor, std::move(options));
        session->launch();
        session->model().refreshFromAPI();
        executor.runUntilIdle();
        inputs.demoTools = true;
    }
    ~SettingsPageStateTest() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    SettingsPageState state() { return settingsPageState(session->model(), inputs); }

    testing::ScratchFolder folder;
    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
    SettingsPageInputs inputs;
};

TEST_P(SettingsPageStateTest, EveryRowSaysWhatItDoesInTheOwnersWords) {
    const auto s = state();
    struct Row {
        std::string id, title, line;
        bool on;
    };
    const std::vector<Row> rows{
        {"notifyPayout", "Payout issued", "A banner when money hits your account.", true},
        {"notifyOffline", "Worker offline > 10 min",
         "Heads-up if your computer has been unreachable.", true},
        {"notifyDaily", "Daily earnings summary",
         "A quiet end-of-day notification with today's total.", false},
        {"launchAtLogin", "Launch at login",
         "Corvane starts when you sign in. You can still pause from the tray.", false},
        {"showInTaskbar", "Show in taskbar", "Off by default — Corvane lives in the tray.", false},
        {"automaticUpdates", "Automatic updates",
         "Silently install new worker builds overnight. Critical security patches install "
         "regardless.",
         false},
    };
    std::vector<SettingsToggle> toggles = s.notifications;
    toggles.insert(toggles.end(), s.general.begin(), s.general.end());
    ASSERT_EQ(toggles.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        EXPECT_EQ(toggles[i],
                  (SettingsToggle{rows[i].id, rows[i].title, rows[i].line, rows[i].on}));
    }
    EXPECT_EQ(s.dailyTimeTitle, "Send daily summary at");
    EXPECT_EQ(s.dailyTimeLine,
              "Time to deliver the daily earnings summary. Wiring to the notification schedule is "
              "pending.");
    EXPECT_EQ(std::pair(s.dailyHour, s.dailyMinute), std::pair(20, 0));
    EXPECT_FALSE(s.dailyTimeEnabled) << "no time to pick while the summary is off";
    EXPECT_EQ(s.versionLine, "Corvane 0.2.0 (build 1)");
    EXPECT_EQ(s.accountLine, "Worker wk_demo_7f3a on demo-workstation");
    EXPECT_EQ(s.signOutTitle, "Sign out on this computer");
    EXPECT_EQ(s.signOutLine, "Stops work and disconnects the worker from your account.");
    EXPECT_EQ(s.signOutConfirmation,
              (SettingsConfirmation{"Sign out on this computer?",
                                    "This stops earning on this computer and removes your "
                                    "credentials. You can sign back in at any time.",
                                    "Sign out"}));
    EXPECT_EQ(s.uninstallLine,
              "Removes the Corvane app, your worker identity, cached models, and local data. Does "
              "not touch your system settings.");
    EXPECT_EQ(s.uninstallConfirmation.text,
              "This removes Corvane and stops earning. Your existing earnings will still be paid "
              "out.");
    ASSERT_TRUE(s.devTools);
    EXPECT_TRUE(s.devTools->note.starts_with("Visible only in demo mode."));
    std::vector<std::string> labels;
    for (const auto& entry : s.devTools->entries) labels.push_back(entry.label);
    EXPECT_EQ(labels,
              (std::vector<std::string>{
                  "Payout issued", "Payout issued · arrives in ~30 sec", "Worker offline > 10 min",
                  "Worker offline > 10 min · arrives in ~30 sec", "Daily earnings summary"}));
    EXPECT_EQ(s.devTools->entries[1].line,
              "$12.40 sent to PayPal — Your Corvane earnings are on their way.");
    EXPECT_EQ(s.devTools->entries[3].line, "Worker hasn't checked in for 12 minutes.");
    EXPECT_EQ(s.devTools->entries[4].line,
              "Schedules the 10pm recurring summary with sample totals. Won't fire instantly — "
              "the system will deliver it at the next 22:00 boundary");
    EXPECT_EQ(s.devTools->fireAllTitle, "Fire all (sequential)");

    inputs.demoTools = false;
    EXPECT_FALSE(state().devTools) << "a real session has none";
}

TEST_P(SettingsPageStateTest, TheInputsTurnIntoSwitchesNotesAndAnswers) {
    inputs.preferences.daily = true;
    inputs.dailyHour = 7;
    inputs.dailyMinute = 45;
    inputs.notificationsUnavailable = true;
    auto s = state();
    EXPECT_TRUE(s.notifications[2].on);
    EXPECT_TRUE(s.dailyTimeEnabled);
    EXPECT_EQ(std::pair(s.dailyHour, s.dailyMinute), std::pair(7, 45));
    EXPECT_EQ(s.notificationsNote,
              "No notification service answers on this desktop: notifications are logged, not "
              "shown.");

    const std::vector<std::tuple<Check, std::string, bool>> checks{
        {Check::none, "", true},
        {Check::checking, "Checking for updates…", false},
        {Check::answered, "Corvane 0.2.0 is the latest version.", true},
        {Check::failed, "Could not reach the update service. Try again later.", true}};
    for (const auto& [check, text, enabled] : checks) {
        inputs.updateCheck = check;
        s = state();
        EXPECT_EQ(s.updateStatus, text);
        EXPECT_EQ(s.checkForUpdatesEnabled, enabled);
    }
    inputs.updateCheck = Check::answered;
    session->model().account().applyLatestAppVersion({"0.10.0", {}, {}, {}}, "0.2.0");
    EXPECT_EQ(state().updateStatus, "Corvane 0.10.0 is published; this computer runs 0.2.0.");

    inputs.diagnosticsCopied = true;
    inputs.uninstalling = true;
    s = state();
    EXPECT_EQ(s.diagnosticsLine, "Diagnostics copied to the clipboard.");
    EXPECT_FALSE(s.signOutEnabled);
    EXPECT_FALSE(s.uninstallEnabled);

    inputs.uninstalling = false;
    session->model().signOut();
    s = state();
    EXPECT_FALSE(s.signOutEnabled) << "nothing to sign out of";
    EXPECT_TRUE(s.uninstallEnabled);
    EXPECT_EQ(s.accountLine, "This computer is not enrolled.");
}

TEST_P(SettingsPageStateTest, DiagnosticsNameVersionMachineWorkerAndChoices) {
    NotificationPreferences prefs;
    prefs.daily = true;
    prefs.offline = false;
    EXPECT_EQ(diagnosticsSummary(session->model(), DataMode::dummy, prefs),
              "Corvane 0.2.0 (build 1)\n"
              "Machine: demo-workstation · Demo workstation · 32 GB · 12 cores\n"
              "Worker ID: wk_demo_7f3a\n"
              "Status: Earning\n"
              "Data mode: dummy\n"
              "Worker running: yes\n"
              "Last runtime read: never\n"
              "Notification prefs: payout=on offline=off daily=on");

    // A real model with a state file read at a known moment, and half a gigabyte to show.
    auto gate = EligibilityGate::create(executor, true);
    AppModel::Dependencies deps;
    deps.eligibilityGate = gate;
    deps.startBackgroundTasks = false;
    deps.runtimeState = [] {
        return std::optional(std::pair{RuntimeState{}, dateFromUnixSeconds(1'781'796'600)});
    };
    deps.buildMachineInfo = [] {
        MachineInfo info;
        info.name = "box";
        info.modelDisplay = "ThinkPad";
        info.totalRAM_GB = 15.5;
        info.totalCores = 8;
        return info;
    };
    AppModel model(executor, std::move(deps));
    const auto text = diagnosticsSummary(model, DataMode::real, NotificationPreferences{});
    EXPECT_NE(text.find("Machine: box · ThinkPad · 15.5 GB · 8 cores\nWorker ID: wk_local\n"
                        "Status: Not enrolled\nData mode: real\nWorker running: no\n"
                        "Last runtime read: 2026-06-18T15:30:00Z\n"),
              std::string::npos)
        << text;
}

INSTANTIATE_TEST_SUITE_P(Zones, SettingsPageStateTest,
                         ::testing::Values("UTC", "America/Los_Angeles"));

TEST(UninstallOutcome, SaysWhatStayedAndHowToRemoveIt) {
    using P = UninstallReport::Program;
    auto report = [](P program, std::vector<UninstallReport::Failure> failures,
                     std::optional<std::string> command = std::nullopt) {
        UninstallReport r;
        r.program = program;
        r.failures = std::move(failures);
        r.removalCommand = std::move(command);
        r.programPath = "/opt/corvane/bin/corvane";
        return r;
    };
    const UninstallReport::Failure models{"/h/.local/share/VarnixCompute", "Permission denied",
                                          false};
    const UninstallReport::Failure libexec{"/h/.local/libexec/corvane", "Device or resource busy",
                                           true};
    EXPECT_EQ(uninstallOutcomeMessage(report(P::removed, {})), std::nullopt)
        << "all gone: just end";
    const std::vector<std::pair<UninstallReport, SettingsMessage>> cases{
        {report(P::packageManaged, {}, "sudo apt remove corvane"),
         {"Corvane's files were removed",
          "Credentials, runtime files and cached models were removed. The program itself belongs "
          "to your package manager. To remove it, run: sudo apt remove corvane",
          true}},
        {report(P::elsewhere, {}),
         {"Corvane's files were removed",
          "Credentials, runtime files and cached models were removed. The program at "
          "/opt/corvane/bin/corvane was not installed in your home folder; remove it with the "
          "tool that installed it.",
          true}},
        {report(P::failed, {libexec}),
         {"Uninstall partially failed",
          "Credentials and runtime files were removed, but the program could not be removed: "
          "/h/.local/libexec/corvane (Device or resource busy). Please remove it manually.",
          true}},
        {report(P::failed, {models, libexec}),
         {"Uninstall partially failed",
          "Credentials were removed, but /h/.local/share/VarnixCompute (Permission denied) was "
          "not. Please remove it manually. The program could not be removed either: "
          "/h/.local/libexec/corvane (Device or resource busy).",
          true}},
    };
    for (const auto& [input, message] : cases) EXPECT_EQ(uninstallOutcomeMessage(input), message);

    UninstallReport sample;
    sample.sampleSession = true;
    EXPECT_FALSE(uninstallOutcomeMessage(sample)->quitAfter) << "the demo goes on";
}

}  // namespace
}  // namespace corvane
