#include "CorvaneApp/eligibility/DBusIdleSource.h"

namespace corvane {

std::unique_ptr<DBusIdleSource> DBusIdleSource::mutter(std::shared_ptr<DBusClient> sessionBus) {
    return std::make_unique<DBusIdleSource>(
        "GNOME idle monitor", std::move(sessionBus),
        DBusObject{"org.gnome.Mutter.IdleMonitor", "/org/gnome/Mutter/IdleMonitor/Core",
                   "org.gnome.Mutter.IdleMonitor"},
        "GetIdletime");
}

std::unique_ptr<DBusIdleSource> DBusIdleSource::freedesktopScreenSaver(
    std::shared_ptr<DBusClient> sessionBus) {
    return std::make_unique<DBusIdleSource>(
        "freedesktop screen saver", std::move(sessionBus),
        DBusObject{"org.freedesktop.ScreenSaver", "/org/freedesktop/ScreenSaver",
                   "org.freedesktop.ScreenSaver"},
        "GetSessionIdleTime");
}

std::optional<double> DBusIdleSource::idleSeconds() {
    auto milliseconds = bus_->callUnsigned(object_, method_);
    if (!milliseconds) return std::nullopt;
    return static_cast<double>(*milliseconds) / 1000.0;
}

}  // namespace corvane
