#include "CorvaneApp/ui/tray/TrayHost.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusServiceWatcher>
#include <QGuiApplication>
#include <QTimer>

#include <xcb/xcb.h>

#include <cstdlib>
#include <memory>

namespace corvane {
namespace {

const QString kWatcher = QStringLiteral("org.kde.StatusNotifierWatcher");

bool statusNotifierHostPresent() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kWatcher)) return false;
    QDBusInterface watcher(kWatcher, QStringLiteral("/StatusNotifierWatcher"), kWatcher, bus);
    return watcher.property("IsStatusNotifierHostRegistered").toBool();
}

// The X11 system tray of the first screen: the owner of its selection.
bool xembedTrayPresent() {
    auto* x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (!x11 || !x11->connection()) return false;
    xcb_connection_t* connection = x11->connection();
    static constexpr char name[] = "_NET_SYSTEM_TRAY_S0";
    // xcb's replies are malloc'd and ours to free.
    const std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> atom(
        xcb_intern_atom_reply(connection, xcb_intern_atom(connection, 0, sizeof name - 1, name),
                              nullptr),
        &std::free);
    if (!atom) return false;
    const std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom),
                                      nullptr),
        &std::free);
    return owner && owner->owner != XCB_NONE;
}

}  // namespace

TrayHost::TrayHost(std::function<void()> onAppeared) : onAppeared_(std::move(onAppeared)) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    watcher_ = std::make_unique<QDBusServiceWatcher>(kWatcher, bus,
                                                     QDBusServiceWatcher::WatchForRegistration);
    // The watcher may come before the panel that hosts the icons; only a host counts.
    QObject::connect(watcher_.get(), &QDBusServiceWatcher::serviceRegistered, this,
                     [this] { checkHost(); });
    bus.connect(kWatcher, QStringLiteral("/StatusNotifierWatcher"), kWatcher,
                QStringLiteral("StatusNotifierHostRegistered"), this, SLOT(checkHost()));
    // A host that came between the owner's look and these connections sent its signals unheard.
    QTimer::singleShot(0, this, [this] { checkHost(); });
}

void TrayHost::checkHost() {
    if (!statusNotifierHostPresent()) return;
    if (auto appeared = std::exchange(onAppeared_, {})) appeared();
}

TrayHost::~TrayHost() = default;

bool TrayHost::present() {
    // Only a desktop platform draws a tray icon: offscreen (the screenshots, the tests) has none.
    const QString platform = QGuiApplication::platformName();
    if (platform != QStringLiteral("xcb") && !platform.startsWith(QStringLiteral("wayland")))
        return false;
    return statusNotifierHostPresent() || xembedTrayPresent();
}

}  // namespace corvane
