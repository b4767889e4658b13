// A minimal StatusNotifierWatcher for tests on a private session bus. Qt only shows a tray icon
// over D-Bus when a watcher with a registered host is on the bus before the application starts.
// Prints "ready" once it owns its name, then "item <service> <path>" for each registration.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>

#include <cstdio>

namespace {

class Watcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    // What Qt asks of a watcher; the rest of the protocol goes unused here.
    Q_PROPERTY(bool IsStatusNotifierHostRegistered READ hostRegistered)

  public:
    bool hostRegistered() const { return true; }

  public slots:
    void RegisterStatusNotifierItem(const QString& serviceOrPath, const QDBusMessage& message) {
        // An item may name its bus name, or only its object path on the caller's connection.
        const bool isPath = serviceOrPath.startsWith(u'/');
        const QString service = isPath ? message.service() : serviceOrPath;
        const QString path = isPath ? serviceOrPath : QStringLiteral("/StatusNotifierItem");
        std::printf("item %s %s\n", qPrintable(service), qPrintable(path));
        std::fflush(stdout);
    }
};

}  // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    auto bus = QDBusConnection::sessionBus();
    Watcher watcher;
    if (!bus.isConnected() ||
        !bus.registerObject(QStringLiteral("/StatusNotifierWatcher"), &watcher,
                            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllProperties |
                                QDBusConnection::ExportAllSignals) ||
        !bus.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"))) {
        std::fprintf(stderr, "sni watcher: cannot serve on the session bus: %s\n",
                     qPrintable(bus.lastError().message()));
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

#include "SniWatcher.moc"
