// The desktop shell over the sample session, offscreen: what the owner clicks reaches the model,
// and the popover, the tray menu and the dashboard follow the model's change notifications.

#include <gtest/gtest.h>

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QPushButton>

#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/shell/DesktopShell.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "CorvaneApp/ui/tray/PopoverWindow.h"
#include "CorvaneApp/ui/tray/TrayController.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

class DesktopShellTest : public ::testing::Test {
  protected:
    DesktopShellTest() {
        DemoSession::Options options;
        options.version = "0.2.0";
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.sessionElapsed = [] { return 10.0; };
        session.emplace(main, std::move(options));
        session->launch();
        session->model().refreshFromAPI();
        shell.emplace(
            *session, main,
            DesktopShell::Options{"0.2.0", [this] { ++quits; }, [this] { ++onboardings; }});
    }

    template <typename T>
    T& find(QWidget& root, const char* name) {
        auto* widget = root.findChild<T*>(QString::fromLatin1(name));
        if (!widget) throw std::runtime_error(std::string("no widget ") + name);
        return *widget;
    }
    std::string trayLine() { return shell->tray().menu().actions().at(0)->text().toStdString(); }

    QApplication& app = testing::qtTestApp();
    QtExecutor main{app};
    std::optional<DemoSession> session;
    std::optional<DesktopShell> shell;
    int quits = 0;
    int onboardings = 0;  // times the shell asked for the onboarding window
};

TEST_F(DesktopShellTest, PausingFromThePopoverChangesTheWordsEverywhereAtOnce) {
    shell->togglePopover();
    auto& popover = shell->popover();
    ASSERT_TRUE(popover.isVisible());
    auto& label = find<QLabel>(popover, "statusLabel");
    EXPECT_EQ(label.text().toStdString(), "Earning");

    find<QPushButton>(popover, "pauseButton").click();
    EXPECT_EQ(session->model().statusLabel(), "Paused");
    EXPECT_TRUE(testing::runEventsUntil([&] { return label.text() == QStringLiteral("Paused"); }));
    EXPECT_EQ(trayLine(), "Paused — Paused by you");
    EXPECT_EQ(shell->tray().menu().actions().at(1)->text().toStdString(), "Resume");

    // The tray menu's item takes the pause back off; the popover's button follows.
    shell->tray().menu().actions().at(1)->trigger();
    EXPECT_TRUE(testing::runEventsUntil([&] {
        return label.text() == QStringLiteral("Earning") &&
               popover.findChild<QPushButton*>(QStringLiteral("pauseButton")) != nullptr;
    }));
    EXPECT_EQ(trayLine(), "Earning — Demo session · processing queued audio");
}

TEST_F(DesktopShellTest, TheFooterAndTheStatusActionsOpenWhatTheySay) {
    shell->togglePopover();
    find<QPushButton>(shell->popover(), "dashboardButton").click();
    EXPECT_TRUE(testing::runEventsUntil([&] { return shell->dashboard().isVisible(); }));
    EXPECT_FALSE(shell->popover().isVisible());

    // Outside the schedule, the popover offers the schedule page.
    session->model().setStatusPresentation(
        WorkerStatusPresentation::defaultFor(WorkerStatus::scheduled));
    shell->togglePopover();
    find<QPushButton>(shell->popover(), "editScheduleButton").click();
    EXPECT_EQ(shell->dashboard().currentPage(), DashPage::schedule);
    EXPECT_EQ(shell->dashboard().windowTitle().toStdString(), "Corvane — Schedule & limits");
    EXPECT_EQ(session->userDefaults().string("cvn.page"), "schedule") << "the page is remembered";

    shell->togglePopover();
    find<QPushButton>(shell->popover(), "quitButton").click();
    EXPECT_EQ(quits, 1);
}

// Signing out closes the dashboard and asks for onboarding; both surfaces then offer the way in.
TEST_F(DesktopShellTest, SigningOutClosesTheDashboardAndShowsTheWayBackIn) {
    shell->openDashboard();
    ASSERT_TRUE(testing::runEventsUntil([&] { return shell->dashboard().isVisible(); }));
    session->model().signOut();
    EXPECT_TRUE(testing::runEventsUntil([&] { return !shell->dashboard().isVisible(); }));
    EXPECT_EQ(onboardings, 1);
    shell->openDashboard();
    EXPECT_TRUE(testing::runEventsUntil([&] {
        auto* welcome = shell->dashboard().findChild<QWidget*>(QStringLiteral("preOnboarding"));
        return welcome && welcome->isVisible();
    }));
    shell->togglePopover();
    auto& connect = find<QPushButton>(shell->popover(), "connectComputer");
    EXPECT_TRUE(connect.isVisible());
    EXPECT_EQ(connect.text().toStdString(), "Connect this computer");
    connect.click();
    EXPECT_EQ(onboardings, 2);
    EXPECT_EQ(trayLine(), "Not enrolled — Sign in to start earning");
    EXPECT_FALSE(shell->tray().menu().actions().at(1)->isVisible())
        << "no pause while not enrolled";
}

}  // namespace
}  // namespace corvane
