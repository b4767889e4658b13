#pragma once
// Whether a panel can show Corvane's icon, asked without Qt's own check. Qt decides once per
// process, at the first icon or check, which kind of tray it talks to; an icon made before a panel
// exists would never reach one that comes later. So the icon is made only once a host is there.

#include <QObject>

#include <functional>
#include <memory>

class QDBusServiceWatcher;

namespace corvane {

class TrayHost final : public QObject {
    Q_OBJECT

  public:
    // `onAppeared` runs once, when a StatusNotifier host shows up on the session bus.
    explicit TrayHost(std::function<void()> onAppeared);
    ~TrayHost() override;

    // A StatusNotifier host (KDE, GNOME's AppIndicator, XFCE, …) or an X11 system tray is there.
    static bool present();

  private slots:
    void checkHost();

  private:
    std::function<void()> onAppeared_;
    std::unique_ptr<QDBusServiceWatcher> watcher_;
};

}  // namespace corvane
