#include "CorvaneApp/config/ScheduleGrid.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

TEST(ScheduleGridTest, RecommendedBlocksTheWorkingDayOnly) {
    auto grid = ScheduleGrid::recommended();
    ASSERT_EQ(grid.weeklyGrid.size(), 7u);
    int blocked = 0;
    for (int day = 0; day < 7; ++day) {
        ASSERT_EQ(grid.weeklyGrid[static_cast<size_t>(day)].size(), 24u);
        for (int hour = 0; hour < 24; ++hour) blocked += grid.isAllowed(day, hour) ? 0 : 1;
    }
    EXPECT_EQ(blocked, 5 * 8);
    EXPECT_FALSE(grid.isAllowed(4, 16));  // Friday 16:00
    EXPECT_TRUE(grid.isAllowed(4, 17));   // Friday 17:00
    EXPECT_FALSE(grid.isAllowed(0, 9));   // Monday 09:00
    EXPECT_TRUE(grid.isAllowed(0, 8));
}

TEST(ScheduleGridTest, NormalizeCompletesShortInputAndDropsExtras) {
    EXPECT_EQ(ScheduleGrid::normalize({}), ScheduleGrid::recommended());

    // Rows and hours beyond the week are cut; short rows are completed (the scanner suite
    // covers six, eight and broken rows read from a file).
    auto grid = ScheduleGrid::normalize(std::vector<std::vector<bool>>(8, std::vector<bool>(30, false)));
    ASSERT_EQ(grid.weeklyGrid.size(), 7u);
    for (const auto& row : grid.weeklyGrid) EXPECT_EQ(row.size(), 24u);
    EXPECT_FALSE(grid.isAllowed(6, 12));  // a present Sunday cell keeps its value
}

TEST(ScheduleGridTest, SetAllowedChangesOneCellAndIgnoresOutOfRange) {
    auto grid = ScheduleGrid::recommended();
    const auto before = grid;
    for (auto [day, hour] : {std::pair{7, 0}, {0, 24}, {-1, 3}, {2, -1}}) {
        grid.setAllowed(false, day, hour);
        EXPECT_EQ(grid, before) << day << "/" << hour;
    }
    grid.setAllowed(false, 6, 23);
    EXPECT_FALSE(grid.isAllowed(6, 23));
    grid.setAllowed(true, 6, 23);
    EXPECT_EQ(grid, before);

    ScheduleGrid ragged{{{false}}};  // a stored grid from an old file
    EXPECT_TRUE(ragged.isAllowed(9, 10));  // outside the week: recommended's answer
    ragged.setAllowed(false, 3, 20);
    EXPECT_FALSE(ragged.isAllowed(3, 20));
    EXPECT_FALSE(ragged.isAllowed(0, 0));  // kept through completion
    EXPECT_TRUE(ragged.isAllowed(0, 1));   // missing cells read from recommended
}

}  // namespace
}  // namespace corvane
