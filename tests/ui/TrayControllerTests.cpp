#include "CorvaneApp/ui/tray/TrayController.h"

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
        actions.onPauseResume = [this] { calls.push_back("pause"); };
        actions.onOpenDashboard = [this] { calls.push_back("dashboard"); };
        actions.onPreferences = [this] { calls.push_back("preferences"); };
        actions.onAbout = [this] { calls.push_back("about"); };
        actions.onQuit = [this] { calls.push_back("quit"); };
        auto tray = std::make_unique<TrayController>(std::move(actions));
        tray->render(state);
        return tray;
    }
    static std::vector<std::string> lines(const TrayController& tray) {
        std::vector<std::string> out;
        for (const QAction* action : tray.menu().actions()) {
            if (!action->isVisible()) continue;
            out.push_back(action->isSeparator() ? "-"
                                                : action->text().toStdString() +
                                                      (action->isEnabled() ? "" : " (disabled)"));
        }
        return out;
    }

    TrayMenuState state{"Earning — Processing work", "Corvane · Earning", "earning",
                        StatusAction{StatusAction::Kind::pause, "Pause", true, ""}};
    std::vector<std::string> calls;
};

TEST_F(TrayControllerTest, MenuIsTheStatusLinePauseThenTheApplicationItems) {
    auto tray = makeTray();
    EXPECT_EQ(lines(*tray),
              (std::vector<std::string>{"Earning — Processing work (disabled)", "Pause", "-",
                                        "Open Dashboard", "Preferences…", "-", "About Corvane",
                                        "Quit Corvane"}));
    EXPECT_EQ(tray->tooltip().toStdString(), "Corvane · Earning");

    for (int index : {1, 3, 4, 6, 7}) tray->menu().actions().at(index)->trigger();
    EXPECT_EQ(calls,
              (std::vector<std::string>{"pause", "dashboard", "preferences", "about", "quit"}));

    // An item whose callback throws is logged and the loop goes on.
    testing::LogCapture logs;
    TrayActions failing;
    failing.onAbout = [] { throw std::runtime_error("no window yet"); };
    TrayController broken(std::move(failing));
    broken.menu().actions().at(6)->trigger();
    EXPECT_TRUE(logs.contains("TrayController error: About Corvane failed: no window yet"));
}

TEST_F(TrayControllerTest, RenderFollowsTheStatusAndThePauseThatHolds) {
    auto tray = makeTray();
    state = {"Paused — Paused by you", "Corvane · Paused", "paused",
             StatusAction{StatusAction::Kind::resume, "Resume", true, ""}};
    tray->render(state);
    EXPECT_EQ(lines(*tray).at(0), "Paused — Paused by you (disabled)");
    EXPECT_EQ(lines(*tray).at(1), "Resume");
    EXPECT_EQ(tray->tooltip().toStdString(), "Corvane · Paused");
    EXPECT_EQ(tray->shownIconName(), "paused");

    // Someone else's pause: the owner can't lift it from here.
    state.pauseAction = StatusAction{StatusAction::Kind::pause, "Pause", false, "in a meeting"};
    tray->render(state);
    EXPECT_EQ(lines(*tray).at(1), "Pause (disabled)");

    // Not enrolled: no pause item; blank fields never leave an empty line or tooltip, and an
    // unknown glyph name still draws.
    state = {"", "", "flux_capacitor", std::nullopt};
    tray->render(state);
    EXPECT_EQ(lines(*tray).at(0), "Corvane (disabled)");
    EXPECT_EQ(lines(*tray).at(1), "-");
    EXPECT_EQ(tray->tooltip().toStdString(), "Corvane");
    tray->show();
    ASSERT_TRUE(tray->trayIcon());
    EXPECT_EQ(tray->trayIcon()->contextMenu(), &tray->menu());
    EXPECT_FALSE(tray->trayIcon()->icon().isNull());
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
