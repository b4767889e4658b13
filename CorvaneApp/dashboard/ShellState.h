#pragma once
// What the frame around the pages says: the sidebar's pages and their lines, the tray menu, the
// popover's footer, and the welcome shown while the computer is not enrolled. Computed from the
// app model; the windows only render it.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/DashPage.h"

namespace corvane {

struct DashPageInfo {
    DashPage page;
    std::string_view title;  // "Schedule & limits"
    std::string_view line;   // "When Corvane runs and how much of your computer it can use."
};
const DashPageInfo& dashPageInfo(DashPage page);
// The page "cvn.page" names, the overview for anything else.
DashPage dashPageFromDefault(const std::optional<std::string>& stored);
// "Corvane — Overview"
std::string dashboardWindowTitle(DashPage page);

struct PreOnboardingState {
    std::string title = "Welcome to Corvane";
    std::string body =
        "Connect this computer to your Corvane account to start earning from spare compute.";
    std::string button = "Connect this computer";
    friend bool operator==(const PreOnboardingState&, const PreOnboardingState&) = default;
};

struct FooterAction {
    enum class Kind { dashboard, quit };
    Kind kind;
    std::string systemImage;  // the symbol's name; the toolkit picks its own glyph for it
    std::string title;
    friend bool operator==(const FooterAction&, const FooterAction&) = default;
};
std::vector<FooterAction> footerActions(bool includeDashboard);

// What the owner can do about the status at hand.
struct StatusAction {
    enum class Kind { pause, resume, connect, retryDownload, editSchedule };
    Kind kind;
    std::string title;
    bool enabled = true;
    std::string hint;  // why it is disabled, or what it does; may be empty
    friend bool operator==(const StatusAction&, const StatusAction&) = default;
};
std::vector<StatusAction> statusActions(const AppModel& model);

struct SidebarState {
    struct Entry {
        DashPage page;
        std::string title;
        std::string line;
        bool selected = false;
        friend bool operator==(const Entry&, const Entry&) = default;
    };
    std::vector<Entry> pages;
    WorkerStatus status = WorkerStatus::idle;
    std::string statusLabel;
    std::string statusLine;
    std::optional<std::string> shardIndicator;  // "1 shard in progress"
    friend bool operator==(const SidebarState&, const SidebarState&) = default;
};
SidebarState sidebarState(const AppModel& model, DashPage selected);

struct TrayMenuState {
    std::string statusLine;  // "Earning — Processing work"
    std::string tooltip;
    std::string iconName;
    // Absent while the computer is not enrolled.
    std::optional<StatusAction> pauseAction;
    friend bool operator==(const TrayMenuState&, const TrayMenuState&) = default;
};
TrayMenuState trayMenuState(const AppModel& model);

}  // namespace corvane
