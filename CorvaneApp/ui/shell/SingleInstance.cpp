#include "CorvaneApp/ui/shell/SingleInstance.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include "CorvaneApp/platform/Log.h"

namespace corvane {

SingleInstance::SingleInstance(std::function<void()> onActivate)
    : onActivate_(std::move(onActivate)) {}

SingleInstance::~SingleInstance() {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return;
    bus.unregisterObject(QString::fromLatin1(objectPath));
    bus.unregisterService(QString::fromLatin1(serviceName));
}

void SingleInstance::Activate() {
    log::get("DesktopApp")->info("another start of Corvane asked this one to come forward");
    if (onActivate_) onActivate_();
}

SingleInstance::Claim SingleInstance::claim(std::function<void()> onActivate) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) return {Outcome::noBus, nullptr};
    auto instance = std::make_unique<SingleInstance>(std::move(onActivate));
    // The object first, so that a second start that sees the name can always reach it.
    bus.registerObject(QString::fromLatin1(objectPath), instance.get(),
                       QDBusConnection::ExportScriptableSlots);
    const auto reply = bus.interface()->registerService(
        QString::fromLatin1(serviceName), QDBusConnectionInterface::DontQueueService,
        QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return {Outcome::first, std::move(instance)};
    bus.unregisterObject(QString::fromLatin1(objectPath));
    auto call = QDBusMessage::createMethodCall(
        QString::fromLatin1(serviceName), QString::fromLatin1(objectPath),
        QStringLiteral("computer.corvane.Desktop"), QStringLiteral("Activate"));
    const auto answer = bus.call(call, QDBus::Block, 5000);
    if (answer.type() == QDBusMessage::ErrorMessage) {
        log::get("DesktopApp")
            ->warn("Corvane seems to be running but did not answer ({}); starting anyway",
                   answer.errorMessage().toStdString());
        return {Outcome::noBus, nullptr};
    }
    return {Outcome::another, nullptr};
}

}  // namespace corvane
