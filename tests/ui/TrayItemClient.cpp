#include "tests/ui/TrayItemClient.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QTimer>

#include <atomic>
#include <stdexcept>

namespace corvane::testing {
namespace {

const QString kItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString kMenuInterface = QStringLiteral("com.canonical.dbusmenu");
constexpr int kCallTimeoutMs = 20'000;

MenuEntry readEntry(const QDBusArgument& argument) {
    MenuEntry entry;
    QVariantMap properties;
    argument.beginStructure();
    argument >> entry.id >> properties;
    argument.beginArray();  // children: the tray menu has no sub-menus, so they are skipped
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
    }
    argument.endArray();
    argument.endStructure();
    entry.label = properties.value(QStringLiteral("label")).toString().toStdString();
    entry.type = properties.value(QStringLiteral("type"), QStringLiteral("standard"))
                     .toString()
                     .toStdString();
    entry.enabled = properties.value(QStringLiteral("enabled"), true).toBool();
    entry.visible = properties.value(QStringLiteral("visible"), true).toBool();
    return entry;
}

}  // namespace

TrayItemClient::TrayItemClient(const std::string& busAddress, const std::string& service,
                               const std::string& itemPath)
    : bus_(QStringLiteral("")),
      service_(QString::fromStdString(service)),
      itemPath_(QString::fromStdString(itemPath)) {
    static std::atomic<int> connections{0};
    connectionName_ = QStringLiteral("tray-item-client-%1").arg(++connections);
    bus_ = QDBusConnection::connectToBus(QString::fromStdString(busAddress), connectionName_);
    if (!bus_.isConnected()) throw std::runtime_error("cannot reach the test bus at " + busAddress);
    const auto menu = itemProperty(QStringLiteral("Menu"));
    menuPath_ = menu.value<QDBusObjectPath>().path();
    if (menuPath_.isEmpty()) throw std::runtime_error("the tray item names no menu");
}

TrayItemClient::~TrayItemClient() {
    QDBusConnection::disconnectFromBus(connectionName_);
}

QVariant TrayItemClient::itemProperty(const QString& name) {
    auto call = QDBusMessage::createMethodCall(service_, itemPath_,
                                               QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call << kItemInterface << name;
    const auto reply = bus_.call(call, QDBus::Block, kCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return {};
    return reply.arguments().front().value<QDBusVariant>().variant();
}

std::string TrayItemClient::toolTipTitle() {
    const auto value = itemProperty(QStringLiteral("ToolTip"));
    if (!value.canConvert<QDBusArgument>()) return {};
    const auto argument = value.value<QDBusArgument>();
    QString iconName, title, description;
    argument.beginStructure();
    argument >> iconName;
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0, height = 0;
        QByteArray pixels;
        argument.beginStructure();
        argument >> width >> height >> pixels;
        argument.endStructure();
    }
    argument.endArray();
    argument >> title >> description;
    argument.endStructure();
    return title.toStdString();
}

std::vector<std::string> TrayItemClient::iconPixmapSizes() {
    std::vector<std::string> sizes;
    const auto value = itemProperty(QStringLiteral("IconPixmap"));
    if (!value.canConvert<QDBusArgument>()) return sizes;
    const auto argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0, height = 0;
        QByteArray pixels;
        argument.beginStructure();
        argument >> width >> height >> pixels;
        argument.endStructure();
        if (pixels.size() == width * height * 4)
            sizes.push_back(std::to_string(width) + "x" + std::to_string(height));
    }
    argument.endArray();
    return sizes;
}

std::vector<MenuEntry> TrayItemClient::menu() {
    auto call = QDBusMessage::createMethodCall(service_, menuPath_, kMenuInterface,
                                               QStringLiteral("GetLayout"));
    call << 0 << -1 << QStringList();
    const auto reply = bus_.call(call, QDBus::Block, kCallTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() < 2) {
        throw std::runtime_error("GetLayout failed: " + reply.errorMessage().toStdString());
    }
    const auto root = reply.arguments().at(1).value<QDBusArgument>();
    std::vector<MenuEntry> entries;
    root.beginStructure();
    int rootID = 0;
    QVariantMap rootProperties;
    root >> rootID >> rootProperties;
    root.beginArray();
    while (!root.atEnd()) {
        QDBusVariant child;
        root >> child;
        entries.push_back(readEntry(child.variant().value<QDBusArgument>()));
    }
    root.endArray();
    root.endStructure();
    return entries;
}

void TrayItemClient::click(const std::string& label) {
    for (const auto& entry : menu()) {
        if (entry.label != label) continue;
        auto event = QDBusMessage::createMethodCall(service_, menuPath_, kMenuInterface,
                                                    QStringLiteral("Event"));
        event << entry.id << QStringLiteral("clicked") << QVariant::fromValue(QDBusVariant(0))
              << 0u;
        if (!bus_.send(event)) throw std::runtime_error("could not send the click on " + label);
        return;
    }
    throw std::runtime_error("no menu entry labelled " + label);
}

bool TrayItemClient::waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit) {
    QEventLoop loop;
    for (const auto& [path, interface, name] : {
             std::tuple{menuPath_, kMenuInterface, QStringLiteral("LayoutUpdated")},
             std::tuple{menuPath_, kMenuInterface, QStringLiteral("ItemsPropertiesUpdated")},
             std::tuple{itemPath_, kItemInterface, QStringLiteral("NewToolTip")},
             std::tuple{itemPath_, kItemInterface, QStringLiteral("NewIcon")},
         }) {
        bus_.connect(service_, path, interface, name, &loop, SLOT(quit()));
    }
    QDeadlineTimer deadline(limit);
    QTimer giveUp;
    giveUp.setSingleShot(true);
    QObject::connect(&giveUp, &QTimer::timeout, &loop, &QEventLoop::quit);
    giveUp.start(limit);
    bool met = done();
    while (!met && !deadline.hasExpired()) {
        loop.exec();
        met = done();
    }
    return met;
}

}  // namespace corvane::testing
