#pragma once
// The desktop around a running session: the tray icon and its menu, the popover and the
// dashboard. It renders them from the app model when the parts they show change (no polling) and
// turns what the owner asks into the model's commands.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/ui/dashboard/DashboardPage.h"

namespace corvane {

class DashboardWindow;
class PopoverWindow;
class TrayController;
class TrayHost;

class DesktopShell {
  public:
    struct Options {
        std::string version;
        // Ends the application (the popover's and the menu's quit).
        std::function<void()> quit;
        // Opens onboarding; absent: the owner is told how to enrol from a terminal.
        std::function<void()> showOnboarding;
    };

    DesktopShell(Session& session, Executor& mainSequence, Options options);
    ~DesktopShell();
    DesktopShell(const DesktopShell&) = delete;
    DesktopShell& operator=(const DesktopShell&) = delete;

    // Shows the tray icon when a tray is there; without one the dashboard opens instead, so that
    // the owner sees Corvane at all, and the icon comes once a tray host appears.
    void start();
    void openDashboard(std::optional<DashPage> page = std::nullopt);
    void togglePopover();
    void showAbout();
    // Brings the dashboard forward (a second start of Corvane asked for it).
    void activate();

    TrayController& tray() { return *tray_; }
    PopoverWindow& popover() { return *popover_; }
    DashboardWindow& dashboard() { return *dashboard_; }

  private:
    void modelChanged(ModelParts parts);
    // A notification's "diagnose": the settings page, and the diagnostics on the clipboard.
    void diagnose();
    void onStatusAction(StatusAction::Kind kind);
    void openOnboarding();

    Session& session_;
    Executor& main_;
    Options options_;
    PageContext pageContext_;
    std::unique_ptr<TrayController> tray_;
    std::unique_ptr<TrayHost> trayHost_;
    std::unique_ptr<PopoverWindow> popover_;
    std::unique_ptr<DashboardWindow> dashboard_;
    Subscription modelSubscription_;
};

}  // namespace corvane
