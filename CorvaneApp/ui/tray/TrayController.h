#pragma once
// The status icon in the system tray and its menu: the status line (disabled), Pause or Resume,
// Open Dashboard, Preferences…, About Corvane and Quit Corvane. The menu is drawn by the desktop
// shell, so a desktop that shows no popover loses nothing. It renders a TrayMenuState and
// forwards clicks; it holds no state of the application.

#include <QObject>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/dashboard/ShellState.h"
#include "CorvaneApp/ui/tray/TrayIconSet.h"

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace corvane {

struct TrayActions {
    std::function<void()> onPauseResume;
    std::function<void()> onOpenDashboard;
    std::function<void()> onPreferences;
    std::function<void()> onAbout;
    std::function<void()> onQuit;
    std::function<void()> onActivate;  // a click on the icon itself; may be empty
};

class TrayController {
  public:
    // Needs a QApplication. The icon itself is made only by show(), once a tray is there.
    explicit TrayController(TrayActions actions);
    ~TrayController();
    TrayController(const TrayController&) = delete;
    TrayController& operator=(const TrayController&) = delete;

    void show();
    bool isShown() const { return trayIcon_ != nullptr; }
    // Menu line, pause item, tooltip and glyph; what is unchanged is not touched.
    void render(const TrayMenuState& state);

    const QMenu& menu() const { return *menu_; }
    // Absent until shown.
    const QSystemTrayIcon* trayIcon() const { return trayIcon_.get(); }
    const QString& tooltip() const { return tooltip_; }
    // The glyph's status name as last applied.
    const std::string& shownIconName() const { return shownIconName_; }

  private:
    TrayActions actions_;
    TrayIconSet icons_;
    std::unique_ptr<QMenu> menu_;
    std::unique_ptr<QSystemTrayIcon> trayIcon_;  // destroyed before the menu it points to
    QAction* statusAction_ = nullptr;            // owned by menu_
    QAction* pauseAction_ = nullptr;             // owned by menu_
    std::string shownIconName_;
    QString tooltip_;
    std::optional<TrayMenuState> shown_;
};

}  // namespace corvane
