#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/dashboard/DemoShardProgress.h"
#include "CorvaneApp/dashboard/ScreenshotScenarios.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>

namespace corvane {
namespace {

TEST(DataModeTest, ResolveTakesTheFirstValidSourceInOrder) {
    auto dir = std::filesystem::temp_directory_path() / ("corvane-datamode-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    UserDefaults defaults(dir / "defaults.json");
    EXPECT_EQ(resolveDataMode({}, {}, defaults), DataMode::real);
    EXPECT_EQ(resolveDataMode({"--data-mode=bogus", "--data-mode=dummy"}, {}, defaults), DataMode::dummy);
    EXPECT_EQ(resolveDataMode({"--data-mode=real"}, {{"CORVANE_DATA_MODE", "dummy"}}, defaults), DataMode::real);
    EXPECT_EQ(resolveDataMode({"--data-mode="}, {{"CORVANE_DATA_MODE", "dummy"}}, defaults), DataMode::dummy);
    defaults.setString("CorvaneDataMode", "dummy");
    EXPECT_EQ(resolveDataMode({"--data-mode"}, {{"CORVANE_DATA_MODE", "Dummy"}}, defaults), DataMode::dummy);
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

    const auto& catalog = screenshotCatalog();
    ASSERT_EQ(catalog.size(), 19u);
    EXPECT_EQ(catalog.front().id, "popover-earning");
    EXPECT_EQ(catalog.back().id, "settings-default");
    std::set<std::string_view> ids;
    for (const auto& scenario : catalog) ids.insert(scenario.id);
    EXPECT_EQ(ids.size(), catalog.size());
    EXPECT_EQ(findScreenshotScenario("no-such-id"), nullptr);
    ASSERT_NE(findScreenshotScenario("payouts-default"), nullptr);
    EXPECT_EQ(findScreenshotScenario("payouts-default")->surface,
              (ScreenshotSurface{ScreenshotSurface::Kind::dashboard, DashPage::payouts}));
}

TEST(DemoShardProgressTest, FollowsTheThirtySixSecondRhythm) {
    auto at = [](double s) { return liveShardProgress(s); };
    ASSERT_TRUE(at(0.5));
    EXPECT_EQ(*at(0.5), (DemoShardProgress{"job_demo_live_900", "shard_demo_live_001", 0, 310}));
    ASSERT_TRUE(at(23.9));
    EXPECT_EQ(at(23.9)->elapsedSeconds, 23);
    EXPECT_FALSE(at(24));
    EXPECT_FALSE(at(35.9));
    EXPECT_EQ(at(36)->jobID, "job_demo_live_901");
    EXPECT_EQ(at(36)->shardID, "shard_demo_live_002");
    EXPECT_EQ(at(80)->jobID, "job_demo_live_902");
    EXPECT_EQ(*at(108), *at(0));
    EXPECT_EQ(*at(-5), *at(0));
    EXPECT_EQ(*at(std::nan("")), *at(0));
}

}  // namespace
}  // namespace corvane
