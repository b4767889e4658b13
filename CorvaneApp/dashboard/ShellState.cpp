#include "CorvaneApp/dashboard/ShellState.h"

#include <array>

namespace corvane {
namespace {

constexpr std::array<DashPageInfo, 6> kPages{{
    {DashPage::overview, "Overview", "Live status and recent earnings."},
    {DashPage::earnings, "Earnings", "Gross earnings history and recent pace."},
    {DashPage::models, "Models",
     "What your computer serves, how much disk it uses, and who picks."},
    {DashPage::schedule, "Schedule & limits",
     "When Corvane runs and how much of your computer it can use."},
    {DashPage::payouts, "Payouts", "Available, held, and recent estimated unpaid work."},
    {DashPage::settings, "Settings", "App preferences and account."},
}};

std::optional<StatusAction> pauseAction(const AppModel& model) {
    if (model.phase() != AppPhase::enrolled) return std::nullopt;
    const auto& pause = model.pauseControl();
    if (pause.isManuallyPaused())
        return StatusAction{StatusAction::Kind::resume, "Resume", true, ""};
    const bool enabled = model.isPauseActionEnabled();
    std::string hint;
    if (!enabled) {
        hint = "Paused by Corvane: " + pause.othersPauseReason().value_or(model.statusSub()) +
               ". It resumes by itself.";
    }
    return StatusAction{StatusAction::Kind::pause, "Pause", enabled, hint};
}

}  // namespace

const DashPageInfo& dashPageInfo(DashPage page) {
    for (const auto& info : kPages) {
        if (info.page == page) return info;
    }
    return kPages.front();
}

DashPage dashPageFromDefault(const std::optional<std::string>& stored) {
    if (!stored) return DashPage::overview;
    return dashPageFromRaw(*stored).value_or(DashPage::overview);
}

std::string dashboardWindowTitle(DashPage page) {
    return "Corvane — " + std::string(dashPageInfo(page).title);
}

std::vector<FooterAction> footerActions(bool includeDashboard) {
    std::vector<FooterAction> actions;
    if (includeDashboard) {
        actions.push_back(
            {FooterAction::Kind::dashboard, "arrow.up.right.square", "Open dashboard"});
    }
    actions.push_back({FooterAction::Kind::quit, "power", "Quit"});
    return actions;
}

std::vector<StatusAction> statusActions(const AppModel& model) {
    using K = StatusAction::Kind;
    if (model.phase() != AppPhase::enrolled)
        return {{K::connect, "Connect this computer", true, ""}};
    std::vector<StatusAction> actions;
    if (auto pause = pauseAction(model)) actions.push_back(*pause);
    const auto& progress = model.modelInstall().modelDownloadProgress();
    if (progress && std::holds_alternative<ModelDownloadProgress::Failed>(progress->phase)) {
        actions.push_back({K::retryDownload, "Retry download", true, ""});
    }
    if (model.status() == WorkerStatus::scheduled || model.status() == WorkerStatus::throttled) {
        actions.push_back({K::editSchedule, "Schedule & limits…", true,
                           "Change when and how hard Corvane works."});
    }
    return actions;
}

SidebarState sidebarState(const AppModel& model, DashPage selected) {
    SidebarState state;
    for (const auto& info : kPages) {
        state.pages.push_back(
            {info.page, std::string(info.title), std::string(info.line), info.page == selected});
    }
    state.status = model.status();
    state.statusLabel = model.statusLabel();
    state.statusLine = model.statusSubtitle();
    state.shardIndicator = model.sidebarShardIndicator();
    return state;
}

TrayMenuState trayMenuState(const AppModel& model) {
    TrayMenuState state;
    state.statusLine = model.statusLabel() + " — " + model.statusSubtitle();
    state.tooltip = model.statusTooltip();
    state.iconName = std::string(rawValue(model.status()));
    state.pauseAction = pauseAction(model);
    return state;
}

}  // namespace corvane
