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
    EXPECT_TRUE(grid.isAllowed(5, 10));   // Saturday 10:00
    EXPECT_TRUE(grid.isAllowed(6, 12));
}

TEST(ScheduleGridTest, NormalizeCompletesShortInputAndDropsExtras) {
    EXPECT_EQ(ScheduleGrid::normalize({}), ScheduleGrid::recommended());

    std::vector<std::vector<bool>> rows(8, std::vector<bool>(30, false));
    rows[1].resize(3);  // Tuesday stops after 02:00
    auto grid = ScheduleGrid::normalize(rows);
    ASSERT_EQ(grid.weeklyGrid.size(), 7u);
    for (const auto& row : grid.weeklyGrid) EXPECT_EQ(row.size(), 24u);
    EXPECT_FALSE(grid.isAllowed(0, 23));
    EXPECT_FALSE(grid.isAllowed(1, 2));
    EXPECT_TRUE(grid.isAllowed(1, 3));   // missing, from recommended
    EXPECT_FALSE(grid.isAllowed(1, 9));  // missing, recommended blocks it
    EXPECT_FALSE(grid.isAllowed(6, 12)); // a present Sunday cell keeps its value
}

TEST(ScheduleGridTest, RaggedStoredGridReadsMissingCellsFromRecommended) {
    ScheduleGrid grid{{{false, false}, {true}}};
    EXPECT_FALSE(grid.isAllowed(0, 1));
    EXPECT_TRUE(grid.isAllowed(0, 2));   // beyond the row
    EXPECT_TRUE(grid.isAllowed(1, 0));
    EXPECT_FALSE(grid.isAllowed(1, 10)); // recommended: Tuesday 10:00 blocked
    EXPECT_TRUE(grid.isAllowed(5, 10));  // no such row
    EXPECT_TRUE(grid.isAllowed(9, 10));  // outside the week: recommended's answer
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

    ScheduleGrid ragged{{{false}}};
    ragged.setAllowed(false, 3, 20);
    EXPECT_FALSE(ragged.isAllowed(3, 20));
    EXPECT_FALSE(ragged.isAllowed(0, 0));  // kept through completion
    EXPECT_TRUE(ragged.isAllowed(0, 1));
}

}  // namespace
}  // namespace corvane
