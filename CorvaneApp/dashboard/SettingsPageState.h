#pragma once
// The settings page as words and switches: the notifications and when the daily summary comes,
// starting at login and the page-only choices, updates and diagnostics, the account's two ways
// out with their confirmations, and in the sample session its dev tools. Also what the page says
// after an uninstall, and the diagnostics text "Copy diagnostics" puts on the clipboard.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/NotificationBridge.h"
#include "CorvaneApp/app/UninstallController.h"
#include "CorvaneApp/config/DataMode.h"

namespace corvane {

struct SettingsToggle {
    std::string id;  // the control's objectName: "notifyPayout", "launchAtLogin", ...
    std::string title;
    std::string line;
    bool on = false;
    friend bool operator==(const SettingsToggle&, const SettingsToggle&) = default;
};

struct SettingsConfirmation {
    std::string title;
    std::string text;
    std::string confirm;  // the button that goes ahead
    friend bool operator==(const SettingsConfirmation&, const SettingsConfirmation&) = default;
};

// A message box: what an uninstall came to, or why a step failed.
struct SettingsMessage {
    std::string title;
    std::string text;
    bool quitAfter = false;  // the application ends once the owner has read it
    friend bool operator==(const SettingsMessage&, const SettingsMessage&) = default;
};

struct DevToolsState {
    std::string heading = "Demo-mode dev tools";
    std::string note =
        "Visible only in demo mode. These tools change the sample session only: nothing reaches "
        "a coordinator and no file of yours is touched.";
    std::string resetTitle = "Reset to first-launch";
    std::string resetLine =
        "Signs the sample session out and forgets the pages' choices, as on the first launch.";
    std::string testNotificationsTitle = "Test notifications";
    struct Entry {
        std::string label;  // the button
        std::string line;   // what it sends
        friend bool operator==(const Entry&, const Entry&) = default;
    };
    std::vector<Entry> entries;
    std::string sendTitle = "Send";  // each entry's button
    std::string fireAllTitle = "Fire all (sequential)";
    bool firing = false;  // a sequence is under way: the buttons wait
    std::string status;   // "" or what the last tool did
    friend bool operator==(const DevToolsState&, const DevToolsState&) = default;
};

struct SettingsPageState {
    std::string notificationsHeading = "Notifications";
    std::vector<SettingsToggle> notifications;  // payout, offline, daily
    std::string notificationsNote;  // when no notification service answers; may be empty
    std::string dailyTimeTitle = "Send daily summary at";
    std::string dailyTimeLine =
        "Time to deliver the daily earnings summary. Wiring to the notification schedule is "
        "pending.";
    int dailyHour = 20;
    int dailyMinute = 0;
    bool dailyTimeEnabled = false;  // only while the daily summary is on

    std::string generalHeading = "General";
    std::vector<SettingsToggle> general;  // launch at login, show in taskbar, automatic updates
    std::string generalError;             // why a switch could not be changed; may be empty

    std::string updatesHeading = "Updates and diagnostics";
    std::string versionLine;  // "Corvane 0.2.0 (build 1)"
    std::string checkForUpdatesTitle = "Check for updates";
    bool checkForUpdatesEnabled = true;
    std::string updateStatus;  // the last check's answer; may be empty
    std::string copyDiagnosticsTitle = "Copy diagnostics";
    std::string diagnosticsTitle = "Diagnostics";
    // What the button copies; "Diagnostics copied to the clipboard." once copied.
    std::string diagnosticsLine = "Version, machine, worker and status, for support.";

    std::string accountHeading = "Account";
    std::string accountLine;  // "Worker wk_… on this computer · signed in as …"
    std::string signOutTitle = "Sign out on this computer";
    std::string signOutLine = "Stops work and disconnects the worker from your account.";
    bool signOutEnabled = true;
    SettingsConfirmation signOutConfirmation{
        "Sign out on this computer?",
        "This stops earning on this computer and removes your credentials. You can sign back in "
        "at any time.",
        "Sign out"};
    std::string uninstallTitle = "Uninstall Corvane";
    std::string uninstallLine =
        "Removes the Corvane app, your worker identity, cached models, and local data. Does not "
        "touch your system settings.";
    bool uninstallEnabled = true;
    SettingsConfirmation uninstallConfirmation{
        "Uninstall Corvane?",
        "This removes Corvane and stops earning. Your existing earnings will still be paid out.",
        "Uninstall"};

    std::optional<DevToolsState> devTools;  // the sample session only
    friend bool operator==(const SettingsPageState&, const SettingsPageState&) = default;
};

// What the page holds beyond the model: the stored choices and its own progress.
struct SettingsPageInputs {
    enum class UpdateCheck { none, checking, answered, failed };
    NotificationPreferences preferences;
    bool notificationsUnavailable = false;  // the last check found no notification service
    int dailyHour = 20;
    int dailyMinute = 0;
    bool launchesAtLogin = false;
    bool showInTaskbar = false;     // page state only
    bool automaticUpdates = false;  // page state only
    std::string generalError;
    UpdateCheck updateCheck = UpdateCheck::none;
    bool diagnosticsCopied = false;
    bool uninstalling = false;
    bool demoTools = false;  // the session offers them
    bool firingTestNotifications = false;
    std::string devToolsStatus;
};

SettingsPageState settingsPageState(const AppModel& model, const SettingsPageInputs& inputs);

// The text of "Copy diagnostics" (and of a notification's "diagnose" action).
std::string diagnosticsSummary(const AppModel& model, DataMode dataMode,
                               const NotificationPreferences& preferences);

// What the owner reads after an uninstall; absent when all went and nothing needs saying (the
// application then simply ends).
std::optional<SettingsMessage> uninstallOutcomeMessage(const UninstallReport& report);

}  // namespace corvane
