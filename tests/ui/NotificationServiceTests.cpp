// Notifications as the desktop's notification service receives them: a private session bus with a
// fake org.freedesktop.Notifications that records every Notify call, the sample session's bridge
// with the D-Bus deliverer, and the notification log in a scratch folder.

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <fstream>

#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/ui/shell/DBusNotificationDeliverer.h"
#include "tests/eligibility/PrivateBus.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

class FakeNotificationService : public QObject, protected QDBusContext {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

  public:
    struct Call {
        QString app;
        uint replaces;
        QString icon, summary, body;
        QStringList actions;
        QVariantMap hints;
        int timeout;
    };
    std::vector<Call> calls;
    std::vector<uint> closed;
    bool failNotify = false;

  public slots:
    uint Notify(const QString& app, uint replaces, const QString& icon, const QString& summary,
                const QString& body, const QStringList& actions, const QVariantMap& hints,
                int timeout) {
        if (failNotify) {
            sendErrorReply(QDBusError::Failed, QStringLiteral("the service is broken"));
            return 0;
        }
        calls.push_back({app, replaces, icon, summary, body, actions, hints, timeout});
        return replaces != 0 ? replaces : uint(calls.size());
    }
    void CloseNotification(uint id) { closed.push_back(id); }
    QStringList GetCapabilities() { return {QStringLiteral("body"), QStringLiteral("actions")}; }
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion) {
        vendor = QStringLiteral("tests");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("fake");
    }

  signals:
    void ActionInvoked(uint id, const QString& actionKey);
    void NotificationClosed(uint id, uint reason);
};

class NotificationServiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        testing::qtTestApp();
        ASSERT_FALSE(bus.address().empty()) << "dbus-daemon did not start";
        address = QString::fromStdString(bus.address());
        client = QDBusConnection::connectToBus(address, QStringLiteral("notifications-client"));
        ASSERT_TRUE(client.isConnected());

        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(1'781'796'600);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        options.notificationLog = NotificationEventLog::Options{folder / "notifications.log",
                                                                folder / "notifications.1.log"};
        session.emplace(executor, std::move(options));
        session->launch();
        session->notifications().setDeliverer(std::make_shared<DBusNotificationDeliverer>(client));
    }
    void TearDown() override {
        session.reset();
        if (serving)
            serviceBus().unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("notifications-client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("notifications-service"));
    }

    QDBusConnection serviceBus() {
        return QDBusConnection::connectToBus(address, QStringLiteral("notifications-service"));
    }
    void serve() {
        auto connection = serviceBus();
        ASSERT_TRUE(connection.registerObject(
            QStringLiteral("/org/freedesktop/Notifications"), &service,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
        ASSERT_TRUE(connection.registerService(QStringLiteral("org.freedesktop.Notifications")));
        serving = true;
    }
    std::vector<std::string> logLines() const {
        std::vector<std::string> out;
        std::ifstream file(folder / "notifications.log");
        for (std::string line; std::getline(file, line);)
            out.push_back(line.substr(line.find("] ") + 2));
        return out;
    }

    testing::ScratchFolder folder;
    testing::PrivateBus bus{folder.path()};
    QString address;
    QDBusConnection client{QString()};
    FakeNotificationService service;
    bool serving = false;
    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
};

TEST_F(NotificationServiceTest, FireAllReachesTheServiceOneAfterAnother) {
    serve();
    bool finished = false;
    const auto timers = executor.timerCount();
    session->notifications().fireAllSequential([&] { finished = true; });
    while (!finished) {
        // Each step waits on the service's answer; a delayed one on the (fake) clock.
        ASSERT_TRUE(testing::runEventsUntil([&] {
            return finished || executor.timerCount() > timers;
        })) << service.calls.size()
            << " calls so far";
        if (executor.timerCount() > timers)
            executor.advance(DevNotificationCatalog::delayedSeconds);
    }
    ASSERT_TRUE(testing::runEventsUntil(
        [&] { return session->notifications().pendingDailySummary().has_value(); }));
    ASSERT_EQ(service.calls.size(), 4u);
    const QStringList diagnose{QStringLiteral("diagnose"), QStringLiteral("Diagnose")};
    const std::vector<std::tuple<QString, QString, QStringList>> expected{
        {"$12.40 sent to PayPal", "Your Corvane earnings are on their way.", {}},
        {"$12.40 sent to PayPal", "Your Corvane earnings are on their way.", {}},
        {"Worker offline > 10 min", "Worker hasn't checked in for 12 minutes.", diagnose},
        {"Worker offline > 10 min", "Worker hasn't checked in for 12 minutes.", diagnose}};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        SCOPED_TRACE(i);
        const auto& call = service.calls[i];
        EXPECT_EQ(call.summary, std::get<0>(expected[i]));
        EXPECT_EQ(call.body, std::get<1>(expected[i]));
        EXPECT_EQ(call.actions, std::get<2>(expected[i]));
        EXPECT_EQ(call.app, QStringLiteral("Corvane"));
        EXPECT_EQ(call.replaces, 0u) << "one never replaces another";
        EXPECT_EQ(call.hints.value(QStringLiteral("desktop-entry")).toString(),
                  QStringLiteral("corvane"));
    }
    int attempts = 0;
    for (const auto& line : logLines()) attempts += line.ends_with("outcome=would-have-fired");
    EXPECT_EQ(attempts, 5) << "the daily summary's attempt too";
}

TEST_F(NotificationServiceTest, WithNoServiceTheAttemptIsLoggedAsUnauthorized) {
    bool finished = false;
    session->notifications().fire(DevNotificationCatalog::entries()[0], [&] { finished = true; });
    ASSERT_TRUE(testing::runEventsUntil([&] { return finished; }));
    const auto lines = logLines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1],
              "notification-auth source=\"firstTrigger\" status=denied outcome=abort-no-reprompt");
    EXPECT_TRUE(lines[2].ends_with("title=\"$12.40 sent to PayPal\" outcome=aborted-unauthorized"))
        << lines[2];
}

TEST_F(NotificationServiceTest, AServiceThatFailsIsADeliveryErrorAndItsActionsComeBack) {
    serve();
    service.failNotify = true;
    bool finished = false;
    session->notifications().fire(DevNotificationCatalog::entries()[2], [&] { finished = true; });
    ASSERT_TRUE(testing::runEventsUntil([&] { return finished; }));
    EXPECT_TRUE(logLines().back().ends_with(
        "title=\"Worker offline > 10 min\" outcome=delivery-error error=\"the service is broken\""))
        << logLines().back();

    // Shown, then the owner picks "Diagnose" on it.
    service.failNotify = false;
    int diagnosed = 0;
    session->notifications().setDiagnoseHandler([&] { ++diagnosed; });
    finished = false;
    session->notifications().fire(DevNotificationCatalog::entries()[2], [&] { finished = true; });
    ASSERT_TRUE(testing::runEventsUntil([&] { return finished; }));
    ASSERT_EQ(service.calls.size(), 1u);
    emit service.ActionInvoked(99,
                               QStringLiteral("diagnose"));  // not ours: comes first, does nothing
    emit service.ActionInvoked(1, QStringLiteral("diagnose"));
    ASSERT_TRUE(testing::runEventsUntil([&] { return diagnosed > 0; }));
    EXPECT_EQ(diagnosed, 1);
}

}  // namespace
}  // namespace corvane

#include "NotificationServiceTests.moc"
