// The single-key readers and the schedule grid, on the cases the corpus files don't show.

#include "CorvaneApp/config/ConfigScanners.h"

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigStore.h"

namespace corvane::configyaml {
namespace {

using Opt = std::optional<std::string>;

TEST(ConfigScannersTest, ScalarTopFindsTheKeyOnlyInsideItsSection) {
    const std::pair<std::string, Opt> rows[] = {
        {"polling:\n  min_idle_minutes: 5\n", std::nullopt},
        {"idle_detection:\nother: 1\n  min_idle_minutes: 5\n", std::nullopt},
        {"idle_detection: yes\n  min_idle_minutes: 3\n", "3"},
        {"idle_detection:\n  min_idle_minutes_old: 3\n", std::nullopt},
        {"idle_detection:\n  min_idle_minutes: 5#x\n", "5#x"},
        {"idle_detection:\n  min_idle_minutes:\n", ""},
    };
    for (const auto& [yaml, expected] : rows) EXPECT_EQ(scalarTop("idle_detection", "min_idle_minutes", yaml), expected) << yaml;
}

TEST(ConfigScannersTest, IdentityReadsCutCommentsUnlikeTheSettingReads) {
    const std::string yaml = "coordinator_url: 'https://o''brien.example/#frag'\nempty: ''\n  worker_id: nested\n";
    // The identity reader cuts at the first '#', quote or not; doubled quotes stay doubled.
    EXPECT_EQ(WorkerConfig::extractTopLevelString("coordinator_url", yaml), "'https://o''brien.example/");
    EXPECT_EQ(scalarFlat("coordinator_url", yaml), "https://o''brien.example/#frag");
    EXPECT_EQ(WorkerConfig::extractTopLevelString("empty", yaml), std::nullopt);
    EXPECT_EQ(scalarFlat("worker_id", yaml), std::nullopt);

    // Both identity keys, non-empty, or no config at all.
    EXPECT_EQ(WorkerConfig::parse("worker_id: 'w1'\n"), std::nullopt);
    EXPECT_EQ(WorkerConfig::parse("worker_id: ''\ncoordinator_url: 'https://c'\n"), std::nullopt);
    EXPECT_EQ(WorkerConfig::load("/nonexistent/config.yaml"), std::nullopt);
}

TEST(ConfigScannersTest, GridFallsBackToRunScheduleOnlyWithoutAScheduleGrid) {
    EXPECT_EQ(nestedWeeklyGrid("schedule", "weekly_grid", "schedule:\n  weekly_grid:\n  enabled: true\n"), std::nullopt);
    auto both = WorkerConfigStore::parseSettings(
        "run_schedule:\n  weekly_grid:\n    - [false]\nschedule:\n  weekly_grid:\n    - [true, false]\n");
    EXPECT_EQ(both.scheduleGrid, ScheduleGrid::normalize({{true, false}}));
}

TEST(ConfigScannersTest, ConversionsAcceptOnlyWholeValues) {
    using configlines::toBool, configlines::toNumber;
    for (const char* text : {"ON", "1"}) EXPECT_EQ(toBool(text), true) << text;
    for (const char* text : {"No", "off", "0"}) EXPECT_EQ(toBool(text), false) << text;
    for (const char* text : {"", "tru", "1.0", " true"}) EXPECT_EQ(toBool(text), std::nullopt) << text;
    EXPECT_EQ(toNumber("+3"), 3.0);
    EXPECT_EQ(toNumber("1e2"), 100.0);
    for (const char* text : {"", " 5", "5 ", "5min", "0x10", "1,5", "inf", "+-1"}) EXPECT_EQ(toNumber(text), std::nullopt) << text;
}

TEST(ScheduleGridTest, CellsOutsideTheWeekNeitherChangeNorBreakTheGrid) {
    auto grid = ScheduleGrid::normalize(std::vector<std::vector<bool>>(7, std::vector<bool>(30, false)));
    for (const auto& row : grid.weeklyGrid) EXPECT_EQ(row.size(), 24u);
    const auto before = grid;
    for (auto [day, hour] : {std::pair{7, 0}, {0, 24}, {-1, 3}, {2, -1}}) {
        grid.setAllowed(true, day, hour);
        EXPECT_EQ(grid, before) << day << "/" << hour;
    }

    ScheduleGrid ragged{{{false}}};  // a stored grid from an old file
    EXPECT_TRUE(ragged.isAllowed(9, 10));   // outside the week: the recommended answer
    EXPECT_FALSE(ragged.isAllowed(0, 9));   // missing cells read from recommended
    ragged.setAllowed(false, 3, 20);
    EXPECT_FALSE(ragged.isAllowed(3, 20));
    EXPECT_FALSE(ragged.isAllowed(0, 0));   // kept through completion
    EXPECT_EQ(ScheduleGrid::normalize({}), ScheduleGrid::recommended());
}

}  // namespace
}  // namespace corvane::configyaml
