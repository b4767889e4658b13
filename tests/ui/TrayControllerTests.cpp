#include "CorvaneApp/ui/TrayController.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/LogCapture.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

class TrayControllerTest : public ::testing::Test {
  protected:
    void SetUp() override { testing::qtTestApp(); }

    std::unique_ptr<TrayController> makeTray() {
        TrayActions actions;
        actions.onOpenDashboard = [this] { calls.push_back("dashboard"); };
        actions.onPreferences = [this] { calls.push_back("preferences"); };
        actions.onAbout = [this] { calls.push_back("about"); };
        actions.onQuit = [this] { calls.push_back("quit"); };
        return std::make_unique<TrayController>(std::move(actions), [this] {
            ++reads;
            if (failReads) throw std::runtime_error("state file unreadable");
            return status;
        });
    }

    TrayStatus status{"Earning — Processing work", "Corvane · Earning", "earning"};
    bool failReads = false;
    int reads = 0;
    std::vector<std::string> calls;
};

TEST_F(TrayControllerTest, MenuIsTheStatusLineThenTheApplicationItems) {
    auto tray = makeTray();
    EXPECT_EQ(reads, 1);  // read once so the menu is complete before it is shown
    std::vector<std::string> lines;
    for (const QAction* action : tray->menu().actions()) {
        lines.push_back(action->isSeparator() ? "-"
                                              : action->text().toStdString() +
                                                    (action->isEnabled() ? "" : " (disabled)"));
    }
    EXPECT_EQ(lines, (std::vector<std::string>{"Earning — Processing work (disabled)", "-",
                                               "Open Dashboard", "Preferences…", "-",
                                               "About Corvane", "Quit Corvane"}));
    EXPECT_EQ(tray->trayIcon().toolTip().toStdString(), "Corvane · Earning");
    EXPECT_EQ(tray->trayIcon().contextMenu(), &tray->menu());

    for (int index : {2, 3, 5, 6}) tray->menu().actions().at(index)->trigger();
    EXPECT_EQ(calls, (std::vector<std::string>{"dashboard", "preferences", "about", "quit"}));

    // An item whose callback throws is logged and the loop goes on.
    testing::LogCapture logs;
    TrayActions failing;
    failing.onAbout = [] { throw std::runtime_error("no window yet"); };
    TrayController broken(std::move(failing), [] { return TrayStatus{}; });
    broken.menu().actions().at(5)->trigger();
    EXPECT_TRUE(logs.contains("TrayController error: About Corvane failed: no window yet"));
}

TEST_F(TrayControllerTest, RefreshFollowsTheStatusAndKeepsTheLastOneWhenReadingFails) {
    auto tray = makeTray();
    status = {"Paused — Paused by you", "Corvane · Paused", "paused"};
    tray->refresh();
    EXPECT_EQ(tray->menu().actions().front()->text().toStdString(), "Paused — Paused by you");
    EXPECT_EQ(tray->trayIcon().toolTip().toStdString(), "Corvane · Paused");
    EXPECT_EQ(tray->shownIconName(), "paused");

    testing::LogCapture logs;
    failReads = true;
    tray->refresh();
    EXPECT_EQ(tray->menu().actions().front()->text().toStdString(), "Paused — Paused by you");
    EXPECT_TRUE(logs.contains(
        "TrayController error: Could not read the status for the tray: state file unreadable"));

    // Blank fields never leave an empty line or tooltip; an unknown glyph name still draws.
    failReads = false;
    status = {"", "", "flux_capacitor"};
    tray->refresh();
    EXPECT_EQ(tray->menu().actions().front()->text().toStdString(), "Corvane");
    EXPECT_EQ(tray->trayIcon().toolTip().toStdString(), "Corvane");
    EXPECT_FALSE(tray->trayIcon().icon().isNull());
}

TEST(TrayIconSetTest, EveryStatusHasALegibleGlyphAtPanelSizes) {
    testing::qtTestApp();
    TrayIconSet icons;
    for (const std::string name : {"notEnrolled", "earning", "idle", "paused", "scheduled",
                                   "throttled", "offline", "updating", "whatever"}) {
        SCOPED_TRACE(name);
        for (int size : {16, 22}) {
            EXPECT_TRUE(icons.icon(name).availableSizes().contains(QSize(size, size)));
            const QImage image = TrayIconSet::render(name, size);
            EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0) << "corner must stay clear at " << size;
            // The glyph's left flank, clear of the inner mark (on the rim for the outline-only
            // glyph).
            const QColor flank =
                image.pixelColor(size * (name == "notEnrolled" ? 3 : 6) / 32, size / 2);
            EXPECT_GT(flank.alpha(), 200) << "glyph missing at " << size;
        }
    }
    // Statuses that share a colour still tell apart by their mark.
    EXPECT_NE(TrayIconSet::render("paused", 16), TrayIconSet::render("notEnrolled", 16));
    EXPECT_NE(TrayIconSet::render("scheduled", 16), TrayIconSet::render("throttled", 16));
}

}  // namespace
}  // namespace corvane
