#pragma once
// Idle time from a desktop's idle monitor over D-Bus: a method without arguments that answers
// milliseconds since the last input.

#include <memory>
#include <string>

#include "CorvaneApp/eligibility/DBusClient.h"
#include "CorvaneApp/eligibility/IdleTimeSource.h"

namespace corvane {

class DBusIdleSource final : public IdleTimeSource {
  public:
    DBusIdleSource(std::string name, std::shared_ptr<DBusClient> bus, DBusObject object,
                   std::string method)
        : name_(std::move(name)),
          bus_(std::move(bus)),
          object_(std::move(object)),
          method_(std::move(method)) {}

    // GNOME Shell: org.gnome.Mutter.IdleMonitor.GetIdletime on the core monitor.
    static std::unique_ptr<DBusIdleSource> mutter(std::shared_ptr<DBusClient> sessionBus);
    // KDE and others: org.freedesktop.ScreenSaver.GetSessionIdleTime. KDE, its main implementer,
    // answers in milliseconds, as Mutter does.
    static std::unique_ptr<DBusIdleSource> freedesktopScreenSaver(
        std::shared_ptr<DBusClient> sessionBus);

    std::string_view name() const override { return name_; }
    std::optional<double> idleSeconds() override;

  private:
    std::string name_;
    std::shared_ptr<DBusClient> bus_;
    DBusObject object_;
    std::string method_;
};

}  // namespace corvane
