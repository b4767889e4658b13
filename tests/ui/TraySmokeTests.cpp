// The shipped binary as a panel sees it: a private session bus with a StatusNotifierWatcher and an
// X server (Xvfb), in a home that was never enrolled. The test reads the tray item and its menu
// over D-Bus (StatusNotifierItem, dbusmenu), clicks the menu and checks how the process ends.

#include <signal.h>
#include <sys/types.h>

#include <gtest/gtest.h>

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

constexpr int kLimitMs = 90'000;  // generous: a sanitized Qt start on a busy machine takes seconds
const QString kItemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString kMenuInterface = QStringLiteral("com.canonical.dbusmenu");

// Reads lines of a child's current read channel until one holds `text`; empty when none comes.
QString waitForLine(QProcess& process, const QString& text) {
    QDeadlineTimer deadline(kLimitMs);
    for (;;) {
        while (process.canReadLine()) {
            const QString line = QString::fromUtf8(process.readLine()).trimmed();
            if (line.contains(text)) return line;
        }
        if (deadline.hasExpired() || !process.waitForReadyRead(int(deadline.remainingTime())))
            return {};
    }
}

// One tray item as a panel talks to it.
class TrayItem {
  public:
    TrayItem(QDBusConnection bus, QString service, QString path)
        : bus_(std::move(bus)), service_(std::move(service)), path_(std::move(path)) {
        auto call = QDBusMessage::createMethodCall(
            service_, path_, QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"));
        call << kItemInterface << QStringLiteral("Menu");
        const auto menu = bus_.call(call, QDBus::Block, kLimitMs).arguments().value(0);
        menuPath_ = menu.value<QDBusVariant>().variant().value<QDBusObjectPath>().path();
    }

    // "label", "label (disabled)" or "-" per visible top-level entry, and the entries' ids.
    std::vector<std::string> menu(std::vector<int>* ids = nullptr) const {
        auto call = QDBusMessage::createMethodCall(service_, menuPath_, kMenuInterface,
                                                   QStringLiteral("GetLayout"));
        call << 0 << -1 << QStringList();
        const auto reply = bus_.call(call, QDBus::Block, kLimitMs);
        std::vector<std::string> lines;
        if (reply.arguments().size() < 2) return lines;
        const auto root = reply.arguments().at(1).value<QDBusArgument>();
        int id = 0;
        QVariantMap properties;
        root.beginStructure();
        root >> id >> properties;
        root.beginArray();
        while (!root.atEnd()) {
            QDBusVariant child;
            root >> child;
            const auto entry = child.variant().value<QDBusArgument>();
            entry.beginStructure();
            entry >> id >> properties;
            entry.endStructure();  // a tray menu has no sub-menus to walk
            if (!properties.value(QStringLiteral("visible"), true).toBool()) continue;
            const bool separator =
                properties.value(QStringLiteral("type")).toString() == QStringLiteral("separator");
            const bool enabled = properties.value(QStringLiteral("enabled"), true).toBool();
            lines.push_back(
                separator ? "-"
                          : properties.value(QStringLiteral("label")).toString().toStdString() +
                                (enabled ? "" : " (disabled)"));
            if (ids) ids->push_back(id);
        }
        root.endArray();
        root.endStructure();
        return lines;
    }

    bool click(const std::string& label) const {
        std::vector<int> ids;
        const auto lines = menu(&ids);
        for (std::size_t i = 0; i < lines.size(); ++i) {
            if (lines[i] != label) continue;
            auto event = QDBusMessage::createMethodCall(service_, menuPath_, kMenuInterface,
                                                        QStringLiteral("Event"));
            event << ids[i] << QStringLiteral("clicked") << QVariant::fromValue(QDBusVariant(0))
                  << 0u;
            return bus_.send(event);
        }
        return false;
    }

    // Re-checks `done` whenever the item announces a change, until the limit.
    bool waitUntil(const std::function<bool()>& done) const {
        QEventLoop loop;
        bus_.connect(service_, menuPath_, kMenuInterface, QStringLiteral("LayoutUpdated"), &loop,
                     SLOT(quit()));
        bus_.connect(service_, menuPath_, kMenuInterface, QStringLiteral("ItemsPropertiesUpdated"),
                     &loop, SLOT(quit()));
        QDeadlineTimer deadline(kLimitMs);
        QTimer::singleShot(kLimitMs, &loop, &QEventLoop::quit);
        while (!done()) {
            if (deadline.hasExpired()) return false;
            loop.exec();
        }
        return true;
    }

  private:
    mutable QDBusConnection bus_;  // connect() is not const
    QString service_, path_, menuPath_;
};

class TraySmokeTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        testing::qtTestApp();  // QProcess and the D-Bus client want an application object
        root = std::make_unique<QTemporaryDir>();
        QFile config(root->filePath(QStringLiteral("bus.conf")));
        config.open(QIODevice::WriteOnly);
        config.write(
            QStringLiteral(
                "<busconfig><type>session</type><listen>unix:dir=%1</listen><auth>EXTERNAL</auth>"
                "<policy context=\"default\"><allow send_destination=\"*\"/><allow "
                "receive_sender=\"*\"/>"
                "<allow own=\"*\"/></policy></busconfig>\n")
                .arg(root->path())
                .toUtf8());
        config.close();
        bus = start(QStringLiteral("dbus-daemon"),
                    {QStringLiteral("--config-file=") + config.fileName(),
                     QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        busAddress = waitForLine(*bus, QStringLiteral("unix:"));
        // -displayfd picks a free display and prints its number once the server takes clients.
        display =
            start(QStringLiteral("Xvfb"), {QStringLiteral("-displayfd"), QStringLiteral("1"),
                                           QStringLiteral("-nolisten"), QStringLiteral("tcp")});
        const QString number = waitForLine(*display, QString());
        if (busAddress.isEmpty() || number.isEmpty()) {
            setUpError =
                "dbus-daemon or Xvfb did not start (scripts/common.sh installs them for the tests)";
            return;
        }
        displayName = QStringLiteral(":") + number;
        // The watcher must be on the bus before the application asks for a tray.
        watcher = start(QStringLiteral(CORVANE_UI_SNI_WATCHER), {});
        if (waitForLine(*watcher, QStringLiteral("ready")).isEmpty())
            setUpError = "the tray watcher did not start";
        client = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(busAddress, kClientName));
    }
    static void TearDownTestSuite() {
        client.reset();
        QDBusConnection::disconnectFromBus(kClientName);
        for (auto* process : {&watcher, &display, &bus}) {
            if (*process) {
                (*process)->kill();
                (*process)->waitForFinished(kLimitMs);
                process->reset();
            }
        }
        root.reset();
    }

    static std::unique_ptr<QProcess> start(const QString& program, const QStringList& arguments,
                                           const QString& platform = QString()) {
        auto process = std::make_unique<QProcess>();
        auto environment = QProcessEnvironment::systemEnvironment();
        for (const char* name :
             {"WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP", "DESKTOP_SESSION", "XAUTHORITY"}) {
            environment.remove(QString::fromLatin1(name));
        }
        environment.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
        environment.insert(QStringLiteral("DISPLAY"), displayName);
        environment.insert(QStringLiteral("XDG_RUNTIME_DIR"), root->path());
        // A home that was never enrolled, and nothing of this machine's own settings.
        for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME"}) {
            environment.insert(QString::fromLatin1(name),
                               root->filePath(QString::fromLatin1(name)));
        }
        if (!platform.isEmpty()) environment.insert(QStringLiteral("QT_QPA_PLATFORM"), platform);
        process->setProcessEnvironment(environment);
        process->start(program, arguments);  // a bare name is looked up on PATH
        process->waitForStarted(kLimitMs);
        return process;
    }

    void SetUp() override { ASSERT_TRUE(setUpError.empty()) << setUpError; }

    // The shipped binary; its log (stderr) is what the test reads from it.
    std::unique_ptr<QProcess> startApp(const QString& platform) {
        auto app = start(QStringLiteral(CORVANE_BINARY), {}, platform);
        app->setReadChannel(QProcess::StandardError);
        return app;
    }

    static ::testing::AssertionResult endedWith(QProcess& app, int exitCode) {
        const bool ended = app.waitForFinished(kLimitMs);
        if (ended && app.exitStatus() == QProcess::NormalExit && app.exitCode() == exitCode)
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure()
               << (ended ? "ended with " + std::to_string(app.exitCode()) : "still running")
               << ":\n"
               << app.readAllStandardError().toStdString();
    }

    static inline std::unique_ptr<QTemporaryDir> root;
    static inline std::unique_ptr<QProcess> bus, display, watcher;
    static inline QString busAddress, displayName;
    static inline std::unique_ptr<QDBusConnection> client;
    static inline const QString kClientName = QStringLiteral("smoke-test");
    static inline std::string setUpError;
};

TEST_F(TraySmokeTest, TheRealApplicationShowsItsTrayAndQuitsThroughItsMenu) {
    auto app = startApp(QStringLiteral("xcb"));
    const auto words = waitForLine(*watcher, QStringLiteral("item ")).split(u' ');
    ASSERT_EQ(words.size(), 3) << "no tray item registered:\n"
                               << app->readAllStandardError().toStdString();
    const TrayItem item(*client, words[1], words[2]);
    EXPECT_TRUE(item.waitUntil([&] {
        return item.menu() ==
               std::vector<std::string>{"Not enrolled — Sign in to start earning (disabled)",
                                        "-",
                                        "Open Dashboard",
                                        "Preferences…",
                                        "-",
                                        "About Corvane",
                                        "Quit Corvane"};
    })) << app->readAllStandardError().toStdString();
    ASSERT_TRUE(item.click("Quit Corvane"));
    EXPECT_TRUE(endedWith(*app, 0));
}

// Whether a window of that title is mapped on the test's X server, asked until `kLimitMs` passes
// (the application maps it on its own time).
bool windowAppears(const QString& display, const QString& title) {
    QDeadlineTimer deadline(kLimitMs);
    while (!deadline.hasExpired()) {
        QProcess query;
        query.start(QStringLiteral("xwininfo"), {QStringLiteral("-root"), QStringLiteral("-tree"),
                                                 QStringLiteral("-display"), display});
        query.waitForFinished(kLimitMs);
        if (QString::fromUtf8(query.readAllStandardOutput()).contains(u'"' + title + u'"'))
            return true;
        QThread::msleep(100);
    }
    return false;
}

TEST_F(TraySmokeTest, OpenDashboardFromTheTrayMenuShowsTheDashboard) {
    auto app = startApp(QStringLiteral("xcb"));
    const auto words = waitForLine(*watcher, QStringLiteral("item ")).split(u' ');
    ASSERT_EQ(words.size(), 3) << app->readAllStandardError().toStdString();
    const TrayItem item(*client, words[1], words[2]);
    ASSERT_TRUE(item.waitUntil([&] { return !item.menu().empty(); }));
    ASSERT_TRUE(item.click("Open Dashboard"));
    EXPECT_TRUE(windowAppears(displayName, QStringLiteral("Corvane — Overview")))
        << app->readAllStandardError().toStdString();
    ASSERT_TRUE(item.click("Quit Corvane"));
    EXPECT_TRUE(endedWith(*app, 0));
}

TEST_F(TraySmokeTest, ASecondStartBringsTheRunningOneForwardAndEnds) {
    auto app = startApp(QStringLiteral("xcb"));
    const auto words = waitForLine(*watcher, QStringLiteral("item ")).split(u' ');
    ASSERT_EQ(words.size(), 3) << app->readAllStandardError().toStdString();
    const TrayItem item(*client, words[1], words[2]);
    auto second = start(QStringLiteral(CORVANE_BINARY), {}, QStringLiteral("xcb"));
    EXPECT_TRUE(endedWith(*second, 0));
    EXPECT_TRUE(second->readAllStandardOutput().contains("already running"));
    EXPECT_TRUE(windowAppears(displayName, QStringLiteral("Corvane — Overview")))
        << app->readAllStandardError().toStdString();
    ASSERT_TRUE(item.click("Quit Corvane"));
    EXPECT_TRUE(endedWith(*app, 0));
}

// A panel that comes after Corvane (started later, or restarted) still gets the icon.
TEST_F(TraySmokeTest, ATrayHostThatAppearsAfterTheStartGetsTheIcon) {
    QFile config(root->filePath(QStringLiteral("bus.conf")));
    auto lateBus = start(QStringLiteral("dbus-daemon"),
                         {QStringLiteral("--config-file=") + config.fileName(),
                          QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
    const QString address = waitForLine(*lateBus, QStringLiteral("unix:"));
    ASSERT_FALSE(address.isEmpty());
    const QString shared = std::exchange(busAddress, address);
    auto app = startApp(QStringLiteral("xcb"));
    ASSERT_FALSE(waitForLine(*app, QStringLiteral("No system tray is available")).isEmpty());
    auto lateWatcher = start(QStringLiteral(CORVANE_UI_SNI_WATCHER), {});
    busAddress = shared;
    EXPECT_FALSE(waitForLine(*lateWatcher, QStringLiteral("item ")).isEmpty())
        << app->readAllStandardError().toStdString();
    EXPECT_FALSE(waitForLine(*app, QStringLiteral("a tray host appeared")).isEmpty());
    ::kill(pid_t(app->processId()), SIGTERM);
    EXPECT_TRUE(endedWith(*app, 0));
    for (auto* process : {&lateWatcher, &lateBus}) {
        (*process)->kill();
        (*process)->waitForFinished(kLimitMs);
    }
}

// Its own display, taken away under it: Qt ends the process, and the session is stopped first.
TEST_F(TraySmokeTest, ADisplayThatGoesAwayEndsTheProcessAfterStoppingTheSession) {
    auto ownDisplay =
        start(QStringLiteral("Xvfb"), {QStringLiteral("-displayfd"), QStringLiteral("1"),
                                       QStringLiteral("-nolisten"), QStringLiteral("tcp")});
    const QString number = waitForLine(*ownDisplay, QString());
    ASSERT_FALSE(number.isEmpty());
    const QString shared = std::exchange(displayName, QStringLiteral(":") + number);
    auto app = startApp(QStringLiteral("xcb"));
    displayName = shared;
    ASSERT_FALSE(waitForLine(*app, QStringLiteral("not enrolled yet")).isEmpty());
    ownDisplay->kill();
    ownDisplay->waitForFinished(kLimitMs);
    EXPECT_FALSE(
        waitForLine(*app, QStringLiteral("the display went away; stopping the worker")).isEmpty());
    EXPECT_TRUE(app->waitForFinished(kLimitMs));
}

// Offscreen has no tray: the process says so and keeps running until a termination signal.
TEST_F(TraySmokeTest, WithoutATrayTheRealApplicationRunsUntilASignalEndsItCleanly) {
    for (int signalNumber : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signalNumber);
        auto app = startApp(QStringLiteral("offscreen"));
        ASSERT_FALSE(
            waitForLine(*app, QStringLiteral("No system tray is available: the dashboard stands"))
                .isEmpty());
        // A home that was never enrolled starts with the onboarding window.
        ASSERT_FALSE(waitForLine(*app, QStringLiteral("showing onboarding")).isEmpty());
        ::kill(pid_t(app->processId()), signalNumber);
        EXPECT_TRUE(endedWith(*app, 0));
    }
}

// The tray application announces itself as a headless worker does: while it runs in an enrolled
// home, `corvane signout` refuses and the enrolment stays; once it has quit, sign-out goes ahead.
TEST_F(TraySmokeTest, WhileTheDesktopRunsSignOutRefusesAndTheEnrolmentStays) {
    const std::filesystem::path varnix =
        root->filePath(QStringLiteral("HOME/.varnix-compute")).toStdString();
    const std::string coordinator = "http://127.0.0.1:9";  // nothing listens: refused at once
    std::filesystem::create_directories(varnix);
    writeFileAtomically(varnix / "config.yaml",
                        "coordinator_url: \"" + coordinator + "\"\nworker_id: \"w-smoke\"\n", 0600);
    KeychainStore keychain(std::make_shared<FileCredentialBackend>(varnix / "credentials"));
    keychain.storePythonWorkerToken("token", coordinator, "w-smoke");
    // The weights' download fails at once too, instead of reaching for the internet.
    qputenv("REGISTRY_URL", "http://127.0.0.1:9");
    auto app = startApp(QStringLiteral("xcb"));
    qunsetenv("REGISTRY_URL");
    ASSERT_FALSE(waitForLine(*app, QStringLiteral("status: ")).isEmpty())
        << "it never announced itself";

    auto signOut = [&] {
        auto command = start(QStringLiteral(CORVANE_BINARY), {QStringLiteral("signout")});
        command->waitForFinished(kLimitMs);
        return std::pair(command->exitCode(), command->readAllStandardError().toStdString());
    };
    const auto [refused, why] = signOut();
    EXPECT_EQ(refused, 1);
    EXPECT_NE(why.find("Corvane is running (process " + std::to_string(app->processId()) + ")"),
              std::string::npos)
        << why;
    EXPECT_TRUE(std::filesystem::exists(varnix / "config.yaml"));
    EXPECT_EQ(keychain.pythonWorkerToken(coordinator, "w-smoke"), "token");

    const auto words = waitForLine(*watcher, QStringLiteral("item ")).split(u' ');
    ASSERT_EQ(words.size(), 3);
    const TrayItem item(*client, words[1], words[2]);
    ASSERT_TRUE(item.waitUntil([&] {
        const auto menu = item.menu();
        return std::find(menu.begin(), menu.end(), "Quit Corvane") != menu.end();
    }));
    ASSERT_TRUE(item.click("Quit Corvane"));
    EXPECT_TRUE(endedWith(*app, 0));
    const auto [signedOut, _] = signOut();
    EXPECT_EQ(signedOut, 0);
    EXPECT_FALSE(std::filesystem::exists(varnix / "config.yaml"));
    std::filesystem::remove_all(varnix);  // the next test's home was never enrolled
}

}  // namespace
}  // namespace corvane
