#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/demo/DemoShardProgress.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

namespace corvane {
namespace {

TEST(DataModeTest, ResolveTakesTheFirstValidSourceInOrder) {
    auto dir =
        std::filesystem::temp_directory_path() / ("corvane-datamode-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    UserDefaults defaults(dir / "defaults.json");
    EXPECT_EQ(resolveDataMode({}, {}, defaults), DataMode::real);
    EXPECT_EQ(resolveDataMode({"--data-mode=bogus", "--data-mode=dummy"}, {}, defaults),
              DataMode::dummy);
    EXPECT_EQ(resolveDataMode({"--data-mode=real"}, {{"CORVANE_DATA_MODE", "dummy"}}, defaults),
              DataMode::real);
    EXPECT_EQ(resolveDataMode({"--data-mode="}, {{"CORVANE_DATA_MODE", "dummy"}}, defaults),
              DataMode::dummy);
    defaults.setString("CorvaneDataMode", "dummy");
    EXPECT_EQ(resolveDataMode({"--data-mode"}, {{"CORVANE_DATA_MODE", "Dummy"}}, defaults),
              DataMode::dummy);
    defaults.setString("CorvaneDataMode", "nope");
    EXPECT_EQ(resolveDataMode({}, {}, defaults), DataMode::real);
    std::filesystem::remove_all(dir);
}

TEST(ScreenshotLaunchArgsTest, ParseAndCatalogue) {
    EXPECT_EQ(ScreenshotLaunchArgs::parse({"corvane", "--capture-to=/tmp/a.png"}), std::nullopt);
    EXPECT_EQ(ScreenshotLaunchArgs::parse({"--screen=", "--capture-to=/tmp/a.png"}), std::nullopt);
    EXPECT_EQ(ScreenshotLaunchArgs::parse({"--screen=models-ready", "--capture-to="}),
              (ScreenshotLaunchArgs{"models-ready", std::nullopt}));
    EXPECT_EQ(ScreenshotLaunchArgs::parse({"--capture-to=/tmp/a.png", "--screen=popover-idle"}),
              (ScreenshotLaunchArgs{"popover-idle", std::filesystem::path("/tmp/a.png")}));

    ASSERT_GE(screenshotCatalog().size(), 19u) << "the frame's scenes, then the pages' own";
    EXPECT_EQ(screenshotCatalog()[18].id, "settings-default");
    EXPECT_EQ(findScreenshotScenario("no-such-id"), nullptr);
    ASSERT_NE(findScreenshotScenario("payouts-default"), nullptr);
    EXPECT_EQ(findScreenshotScenario("payouts-default")->surface,
              (ScreenshotSurface{ScreenshotSurface::Kind::dashboard, DashPage::payouts}));
}

TEST(DemoShardProgressTest, FollowsTheThirtySixSecondRhythm) {
    const DemoShardProgress start{"job_demo_live_900", "shard_demo_live_001", 0, 310};
    EXPECT_EQ(liveShardProgress(0.5), start);
    EXPECT_EQ(liveShardProgress(23.9).value().elapsedSeconds, 23);
    EXPECT_FALSE(liveShardProgress(24));
    EXPECT_EQ(liveShardProgress(108), start);
    EXPECT_EQ(liveShardProgress(-5), start);
    EXPECT_EQ(liveShardProgress(std::nan("")), start);
}

}  // namespace
}  // namespace corvane
