#pragma once
// The status icon in the system tray and its menu: a disabled status line, then Open Dashboard,
// Preferences…, About Corvane and Quit Corvane. It renders what the status provider says and
// forwards clicks to the given callbacks; it holds no state of the application.

#include <functional>
#include <memory>
#include <string>

#include "CorvaneApp/ui/TrayIconSet.h"
#include "CorvaneApp/ui/TrayStatus.h"

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace corvane {

struct TrayActions {
    std::function<void()> onOpenDashboard;
    std::function<void()> onPreferences;
    std::function<void()> onAbout;
    std::function<void()> onQuit;
    std::function<void()> onActivate;  // a click on the icon itself; may be empty
};

class TrayController {
  public:
    using StatusProvider = std::function<TrayStatus()>;

    // Needs a QApplication. Reads the status once, so the menu is complete before show().
    TrayController(TrayActions actions, StatusProvider status);
    ~TrayController();
    TrayController(const TrayController&) = delete;
    TrayController& operator=(const TrayController&) = delete;

    void show();
    // Re-reads the status: menu line, tooltip and glyph. A provider that throws leaves the last
    // status in place.
    void refresh();

    const QMenu& menu() const { return *menu_; }
    const QSystemTrayIcon& trayIcon() const { return *trayIcon_; }
    // The glyph's status name as last applied.
    const std::string& shownIconName() const { return shownIconName_; }

  private:
    void apply(const TrayStatus& status);

    TrayActions actions_;
    StatusProvider status_;
    TrayIconSet icons_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> trayIcon_;  // destroyed before the menu it points to
    QAction* statusAction_ = nullptr;            // owned by menu_
    std::string shownIconName_;
};

}  // namespace corvane
