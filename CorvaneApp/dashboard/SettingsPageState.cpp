#include "CorvaneApp/dashboard/SettingsPageState.h"

#include <cmath>
#include <cstdio>

#include "CorvaneApp/app/DevNotificationCatalog.h"
#include "CorvaneApp/config/WorkerConfigWriter.h"

namespace corvane {
namespace {

std::string onOff(bool on) {
    return on ? "on" : "off";
}

// "16", "15.5": memory as the owner knows it, without a needless ".0".
std::string gigabytes(double value) {
    char text[32];
    const double rounded = std::round(value * 10) / 10;
    if (rounded == std::floor(rounded)) {
        std::snprintf(text, sizeof text, "%.0f", rounded);
    } else {
        std::snprintf(text, sizeof text, "%.1f", rounded);
    }
    return text;
}

std::string updateStatus(const AppModel& model, SettingsPageInputs::UpdateCheck check) {
    using C = SettingsPageInputs::UpdateCheck;
    const std::string& running = model.machine().appVersion;
    switch (check) {
        case C::none:
            return "";
        case C::checking:
            return "Checking for updates…";
        case C::failed:
            return "Could not reach the update service. Try again later.";
        case C::answered:
            break;
    }
    const auto& latest = model.account().latestAppVersion();
    if (latest && AccountState::isVersionNewer(latest->version, running))
        return "Corvane " + latest->version + " is published; this computer runs " + running + ".";
    return "Corvane " + running + " is the latest version.";
}

DevToolsState devToolsState(const SettingsPageInputs& inputs) {
    DevToolsState tools;
    for (const auto& entry : DevNotificationCatalog::entries()) {
        // The line says what arrives, without repeating the row's own title.
        const bool titled = entry.kind == DevNotificationEntry::Kind::dailySummary ||
                            entry.label.starts_with(entry.title);
        tools.entries.push_back(
            {entry.label, titled ? entry.body : entry.title + " — " + entry.body});
    }
    tools.firing = inputs.firingTestNotifications;
    tools.status = inputs.devToolsStatus;
    return tools;
}

}  // namespace

SettingsPageState settingsPageState(const AppModel& model, const SettingsPageInputs& inputs) {
    SettingsPageState state;
    const auto& prefs = inputs.preferences;
    state.notifications = {
        {"notifyPayout", "Payout issued", "A banner when money hits your account.", prefs.payout},
        {"notifyOffline", std::string(NotificationBridge::offlineTitle),
         "Heads-up if your computer has been unreachable.", prefs.offline},
        {"notifyDaily", "Daily earnings summary",
         "A quiet end-of-day notification with today's total.", prefs.daily},
    };
    if (inputs.notificationsUnavailable) {
        state.notificationsNote =
            "No notification service answers on this desktop: notifications are logged, not "
            "shown.";
    }
    state.dailyHour = inputs.dailyHour;
    state.dailyMinute = inputs.dailyMinute;
    state.dailyTimeEnabled = prefs.daily;

    state.general = {
        {"launchAtLogin", "Launch at login",
         "Corvane starts when you sign in. You can still pause from the tray.",
         inputs.launchesAtLogin},
        {"showInTaskbar", "Show in taskbar", "Off by default — Corvane lives in the tray.",
         inputs.showInTaskbar},
        {"automaticUpdates", "Automatic updates",
         "Silently install new worker builds overnight. Critical security patches install "
         "regardless.",
         inputs.automaticUpdates},
    };
    state.generalError = inputs.generalError;

    const auto& machine = model.machine();
    state.versionLine = "Corvane " + machine.appVersion + " (build " + machine.buildNumber + ")";
    state.checkForUpdatesEnabled = inputs.updateCheck != SettingsPageInputs::UpdateCheck::checking;
    state.updateStatus = updateStatus(model, inputs.updateCheck);
    if (inputs.diagnosticsCopied) state.diagnosticsLine = "Diagnostics copied to the clipboard.";

    const bool enrolled = model.phase() == AppPhase::enrolled;
    state.accountLine = enrolled ? "Worker " + machine.workerID +
                                       (machine.name.empty() ? "" : " on " + machine.name)
                                 : "This computer is not enrolled.";
    state.signOutEnabled = enrolled && !inputs.uninstalling;
    state.uninstallEnabled = !inputs.uninstalling;
    if (inputs.demoTools) state.devTools = devToolsState(inputs);
    return state;
}

std::string diagnosticsSummary(const AppModel& model, DataMode dataMode,
                               const NotificationPreferences& preferences) {
    const auto& machine = model.machine();
    const auto lastRead = model.lastRuntimeStateReadAt();
    return "Corvane " + machine.appVersion + " (build " + machine.buildNumber + ")\n" +
           "Machine: " + machine.name + " · " + machine.modelDisplay + " · " +
           gigabytes(machine.totalRAM_GB) + " GB · " + std::to_string(machine.totalCores) +
           " cores\n" + "Worker ID: " + machine.workerID + "\nStatus: " + model.statusLabel() +
           "\nData mode: " + std::string(rawValue(dataMode)) +
           "\nWorker running: " + (model.isWorkerRunning() ? "yes" : "no") +
           "\nLast runtime read: " + (lastRead ? internetDateTime(*lastRead) : "never") +
           "\nNotification prefs: payout=" + onOff(preferences.payout) +
           " offline=" + onOff(preferences.offline) + " daily=" + onOff(preferences.daily);
}

std::optional<SettingsMessage> uninstallOutcomeMessage(const UninstallReport& report) {
    using P = UninstallReport::Program;
    if (report.sampleSession) {
        return SettingsMessage{"Sample session signed out",
                               "The sample session keeps no files, so nothing was removed from "
                               "this computer.",
                               false};
    }
    std::string programNote;
    switch (report.program) {
        case P::removed:
        case P::failed:
            break;
        case P::packageManaged:
            programNote =
                "The program itself belongs to your package manager. To remove it, run: " +
                report.removalCommand.value_or("");
            break;
        case P::elsewhere:
            programNote = "The program at " + report.programPath.string() +
                          " was not installed in your home folder; remove it with the tool that "
                          "installed it.";
            break;
    }
    std::vector<const UninstallReport::Failure*> programFailures, otherFailures;
    for (const auto& failure : report.failures)
        (failure.programFile ? programFailures : otherFailures).push_back(&failure);
    if (report.failures.empty()) {
        if (programNote.empty()) return std::nullopt;
        return SettingsMessage{
            "Corvane's files were removed",
            "Credentials, runtime files and cached models were removed. " + programNote, true};
    }
    auto list = [](const std::vector<const UninstallReport::Failure*>& failures) {
        std::string text;
        for (std::size_t i = 0; i < failures.size(); ++i) {
            text += (i == 0                     ? ""
                     : i + 1 == failures.size() ? " and "
                                                : ", ") +
                    failures[i]->path.string() + " (" + failures[i]->reason + ")";
        }
        return text;
    };
    std::string text;
    if (otherFailures.empty()) {
        text =
            "Credentials and runtime files were removed, but the program could not be "
            "removed: " +
            list(programFailures) + ". Please remove it manually.";
    } else {
        text = "Credentials were removed, but " + list(otherFailures) +
               (otherFailures.size() == 1 ? " was" : " were") + " not. Please remove " +
               (otherFailures.size() == 1 ? "it" : "them") + " manually.";
        if (!programFailures.empty())
            text += " The program could not be removed either: " + list(programFailures) + ".";
    }
    if (!programNote.empty()) text += " " + programNote;
    return SettingsMessage{"Uninstall partially failed", text, true};
}

}  // namespace corvane
