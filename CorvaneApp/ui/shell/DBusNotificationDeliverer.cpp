#include "CorvaneApp/ui/shell/DBusNotificationDeliverer.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

// No one owns the name and no one can be started for it.
bool noService(const QDBusError& error) {
    return error.type() == QDBusError::ServiceUnknown ||
           error.name() == QStringLiteral("org.freedesktop.DBus.Error.NameHasNoOwner");
}

}  // namespace

DBusNotificationDeliverer::DBusNotificationDeliverer(QDBusConnection bus, QObject* parent)
    : QObject(parent), bus_(std::move(bus)) {
    // From whoever serves the name now: a service may be restarted under a new unique name.
    bus_.connect(QString(), QString::fromLatin1(path), QString::fromLatin1(interface),
                 QStringLiteral("ActionInvoked"), this, SLOT(onActionInvoked(uint, QString)));
    bus_.connect(QString(), QString::fromLatin1(path), QString::fromLatin1(interface),
                 QStringLiteral("NotificationClosed"), this,
                 SLOT(onNotificationClosed(uint, uint)));
}

void DBusNotificationDeliverer::authorizationStatus(
    std::function<void(NotificationAuthorizationStatus)> done) {
    auto call = QDBusMessage::createMethodCall(
        QString::fromLatin1(service), QString::fromLatin1(path), QString::fromLatin1(interface),
        QStringLiteral("GetServerInformation"));
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, this,
                     [done = std::move(done)](QDBusPendingCallWatcher* finished) {
                         finished->deleteLater();
                         const QDBusPendingReply<QString, QString, QString, QString> reply =
                             *finished;
                         if (!reply.isError()) {
                             done(NotificationAuthorizationStatus::authorized);
                         } else if (noService(reply.error())) {
                             done(NotificationAuthorizationStatus::denied);
                         } else {
                             done(NotificationAuthorizationStatus::unknown);
                         }
                     });
}

void DBusNotificationDeliverer::requestAuthorization(
    std::function<void(bool, std::optional<std::string>)> done) {
    // Nothing to ask the owner: allowed exactly when a service answers.
    authorizationStatus([done = std::move(done)](NotificationAuthorizationStatus status) {
        if (status == NotificationAuthorizationStatus::unknown) {
            done(false, "the notification service did not answer");
            return;
        }
        done(status == NotificationAuthorizationStatus::authorized, std::nullopt);
    });
}

void DBusNotificationDeliverer::deliver(const NotificationRequest& request,
                                        std::function<void(std::optional<std::string>)> done) {
    QStringList actions;
    for (const auto& action : request.actions) actions << qt(action.identifier) << qt(action.title);
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("corvane"));
    const auto known = serverIDs_.find(request.id);
    const uint replaces = known == serverIDs_.end() ? 0u : known->second;
    auto call =
        QDBusMessage::createMethodCall(QString::fromLatin1(service), QString::fromLatin1(path),
                                       QString::fromLatin1(interface), QStringLiteral("Notify"));
    call << QStringLiteral("Corvane") << replaces << QStringLiteral("corvane") << qt(request.title)
         << qt(request.body) << actions << hints << -1;
    auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), this);
    QObject::connect(
        watcher, &QDBusPendingCallWatcher::finished, this,
        [this, id = request.id, done = std::move(done)](QDBusPendingCallWatcher* finished) {
            finished->deleteLater();
            const QDBusPendingReply<uint> reply = *finished;
            if (reply.isError()) {
                const QDBusError error = reply.error();
                done((error.message().isEmpty() ? error.name() : error.message()).toStdString());
                return;
            }
            serverIDs_[id] = reply.value();
            done(std::nullopt);
        });
}

void DBusNotificationDeliverer::withdraw(const std::string& id) {
    const auto known = serverIDs_.find(id);
    if (known == serverIDs_.end()) return;
    auto call = QDBusMessage::createMethodCall(
        QString::fromLatin1(service), QString::fromLatin1(path), QString::fromLatin1(interface),
        QStringLiteral("CloseNotification"));
    call << known->second;
    bus_.asyncCall(call);  // nothing to do with the answer: gone is gone
    serverIDs_.erase(known);
}

void DBusNotificationDeliverer::onActionInvoked(uint serverID, const QString& action) {
    for (const auto& [id, shown] : serverIDs_) {
        if (shown != serverID) continue;
        const std::string ours = id;  // the handler may withdraw it
        if (actionHandler_) actionHandler_(ours, action.toStdString());
        return;
    }
}

void DBusNotificationDeliverer::onNotificationClosed(uint serverID, uint) {
    for (auto it = serverIDs_.begin(); it != serverIDs_.end(); ++it) {
        if (it->second == serverID) {
            serverIDs_.erase(it);
            return;
        }
    }
}

}  // namespace corvane
