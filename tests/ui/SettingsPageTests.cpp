// The settings page's behaviour offscreen, over the sample session: a click becomes the session's
// change, the confirmations decide, the clipboard gets the diagnostics, the dev tools wait for
// their sequence, and the keyboard reaches every control. How it looks is the golden pictures'.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QCheckBox>
#include <QClipboard>
#include <QGuiApplication>
#include <QPushButton>
#include <QTimeEdit>

#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/ui/dashboard/pages/SettingsPage.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

class SettingsPageTest : public ::testing::Test {
  protected:
    SettingsPageTest() {
        testing::qtTestApp();
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
        session->model().refreshFromAPI();
        executor.runUntilIdle();
        SettingsPage::Dialogs dialogs;
        dialogs.confirm = [this](const SettingsConfirmation& c) {
            confirmations.push_back(c.title);
            return answer;
        };
        dialogs.inform = [this](const SettingsMessage& m) { messages.push_back(m.title); };
        dialogs.quit = [this] { ++quits; };
        context.emplace(PageContext{*session, executor, [](DashPage) {}, [] {}});
        page.emplace(*context, dialogs);
        page->resize(900, 700);
        page->show();
        page->refresh();
    }

    template <typename T>
    T& find(const char* name) {
        auto* widget = page->findChild<T*>(QString::fromLatin1(name));
        if (!widget) throw std::runtime_error(std::string("no ") + name);
        return *widget;
    }

    testing::ScratchFolder folder;
    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
    std::optional<PageContext> context;
    bool answer = false;
    std::vector<std::string> confirmations, messages;
    int quits = 0;
    std::optional<SettingsPage> page;
};

TEST_F(SettingsPageTest, SwitchesStoreTheOwnersChoices) {
    auto& defaults = session->userDefaults();
    find<QCheckBox>("notifyPayout").click();
    EXPECT_EQ(defaults.boolean("notify.payout"), false);
    EXPECT_FALSE(find<QTimeEdit>("dailySummaryTime").isEnabled());
    find<QCheckBox>("notifyDaily").click();
    EXPECT_EQ(defaults.boolean("notify.daily"), true);
    auto& time = find<QTimeEdit>("dailySummaryTime");
    EXPECT_TRUE(time.isEnabled());
    time.setTime(QTime(21, 15));
    EXPECT_EQ(defaults.integer("notify.dailyHour"), 21);
    EXPECT_EQ(defaults.integer("notify.dailyMinute"), 15);

    find<QCheckBox>("launchAtLogin").click();
    EXPECT_TRUE(session->launchesAtLogin());
    find<QCheckBox>("showInTaskbar").click();
    EXPECT_TRUE(find<QCheckBox>("showInTaskbar").isChecked()) << "kept by the page";
    EXPECT_EQ(page->state()->general[1].on, true);
}

TEST_F(SettingsPageTest, CopyDiagnosticsPutsTheSummaryOnTheClipboard) {
    QGuiApplication::clipboard()->clear();
    find<QPushButton>("copyDiagnostics").click();
    const auto text = QGuiApplication::clipboard()->text().toStdString();
    EXPECT_EQ(text, diagnosticsSummary(session->model(), DataMode::dummy,
                                       NotificationPreferences::read(session->userDefaults())));
    EXPECT_EQ(page->state()->diagnosticsLine, "Diagnostics copied to the clipboard.");
}

TEST_F(SettingsPageTest, SignOutAndUninstallGoAheadOnlyWhenConfirmed) {
    find<QPushButton>("signOut").click();
    EXPECT_EQ(session->model().phase(), AppPhase::enrolled) << "cancelled";
    answer = true;
    find<QPushButton>("signOut").click();
    EXPECT_EQ(session->model().phase(), AppPhase::notEnrolled);
    EXPECT_FALSE(find<QPushButton>("signOut").isEnabled());

    session->enroll();
    find<QPushButton>("uninstall").click();
    EXPECT_EQ(confirmations,
              (std::vector<std::string>{"Sign out on this computer?", "Sign out on this computer?",
                                        "Uninstall Corvane?"}));
    EXPECT_EQ(session->model().phase(), AppPhase::notEnrolled);
    EXPECT_EQ(messages, std::vector<std::string>{"Sample session signed out"});
    EXPECT_EQ(quits, 0) << "the sample session goes on";
}

TEST_F(SettingsPageTest, DevToolsResetTheSampleSessionAndWaitForTheirSequence) {
    session->userDefaults().setString("cvn.page", "settings");
    session->userDefaults().setBool("notify.offline", false);
    session->userDefaults().setString("CorvaneDataMode", "dummy");
    find<QPushButton>("fireAllTestNotifications").click();
    EXPECT_FALSE(find<QPushButton>("fireAllTestNotifications").isEnabled()) << "one at a time";
    EXPECT_FALSE(find<QPushButton>("resetToFirstLaunch").isEnabled());
    executor.advance(2 * DevNotificationCatalog::delayedSeconds);
    EXPECT_TRUE(find<QPushButton>("fireAllTestNotifications").isEnabled());
    EXPECT_EQ(page->state()->devTools->status,
              "All test notifications sent; the daily summary waits for 22:00.");

    find<QPushButton>("resetToFirstLaunch").click();
    EXPECT_EQ(session->model().phase(), AppPhase::notEnrolled);
    EXPECT_FALSE(session->userDefaults().contains("cvn.page"));
    EXPECT_FALSE(session->userDefaults().contains("notify.offline"));
    EXPECT_TRUE(session->userDefaults().contains("CorvaneDataMode")) << "not the page's";
}

TEST_F(SettingsPageTest, EveryControlIsNamedAndReachedByTheKeyboard) {
    int controls = 0;
    for (auto* widget : page->findChildren<QWidget*>()) {
        const bool interactive =
            qobject_cast<QAbstractButton*>(widget) || qobject_cast<QTimeEdit*>(widget);
        if (!interactive || !widget->isVisibleTo(page.operator->())) continue;
        ++controls;
        SCOPED_TRACE(widget->objectName().toStdString());
        EXPECT_FALSE(widget->objectName().isEmpty());
        const auto* button = qobject_cast<QAbstractButton*>(widget);
        const QString name = !widget->accessibleName().isEmpty() ? widget->accessibleName()
                             : button                            ? button->text()
                                                                 : QString();
        EXPECT_FALSE(name.isEmpty());
        EXPECT_TRUE(widget->focusPolicy() & Qt::TabFocus);
    }
    EXPECT_EQ(controls, 6 + 1 + 2 + 2 + 1 + 5 + 1);  // switches, time, updates, account, tools
}

}  // namespace
}  // namespace corvane
