#pragma once
// Notifications through the desktop's notification service (org.freedesktop.Notifications on the
// session bus). There is no permission to ask for on a Linux desktop: notifications may be shown
// exactly when a service answers, and "denied" means none does. Calls never block: each answer
// comes back through the Qt event loop.

#include <QDBusConnection>
#include <QObject>

#include <map>
#include <string>

#include "CorvaneApp/app/NotificationDeliverer.h"

namespace corvane {

class DBusNotificationDeliverer final : public QObject, public NotificationDeliverer {
    Q_OBJECT

  public:
    static constexpr const char* service = "org.freedesktop.Notifications";
    static constexpr const char* path = "/org/freedesktop/Notifications";
    static constexpr const char* interface = "org.freedesktop.Notifications";

    explicit DBusNotificationDeliverer(QDBusConnection bus = QDBusConnection::sessionBus(),
                                       QObject* parent = nullptr);

    void authorizationStatus(std::function<void(NotificationAuthorizationStatus)> done) override;
    void requestAuthorization(std::function<void(bool, std::optional<std::string>)> done) override;
    void deliver(const NotificationRequest& request,
                 std::function<void(std::optional<std::string>)> done) override;
    void withdraw(const std::string& id) override;
    void setActionHandler(
        std::function<void(const std::string&, const std::string&)> handler) override {
        actionHandler_ = std::move(handler);
    }

  private slots:
    void onActionInvoked(uint serverID, const QString& action);
    void onNotificationClosed(uint serverID, uint reason);

  private:
    QDBusConnection bus_;
    std::function<void(const std::string&, const std::string&)> actionHandler_;
    std::map<std::string, uint> serverIDs_;  // our id to the service's, while it is shown
};

}  // namespace corvane
