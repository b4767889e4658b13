#include "CorvaneApp/dashboard/ScheduleSuggestionEngine.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

using Engine = ScheduleSuggestionEngine;

// Busy everywhere (60 minutes) except the given quiet cells.
Engine busyExcept(std::initializer_list<std::pair<int, int>> quiet) {
    std::vector<std::vector<int>> rows(7, std::vector<int>(24, 60));
    for (auto [day, hour] : quiet) rows[static_cast<size_t>(day)][static_cast<size_t>(hour)] = 0;
    return Engine::fromRaw(rows);
}

TEST(ScheduleSuggestionEngineTest, WorkingDayQuietGivesOneBlockAndItsEarnings) {
    auto engine = busyExcept({});
    for (int day = 0; day < 5; ++day)
        for (int hour = 9; hour < 17; ++hour)
            engine.histogram[static_cast<size_t>(day)][static_cast<size_t>(hour)] = 0;
    auto grid = ScheduleGrid::recommended();
    auto blocks = engine.quietSuggestionBlocks(grid);
    ASSERT_EQ(blocks.size(), 1u);
    EXPECT_EQ(blocks[0], (Engine::SuggestionBlock{"0-4-9-17", 0, 4, 9, 17, 40.0}));
    EXPECT_EQ(engine.suggestionBannerText(grid, 0.5, false), "Mon-Fri 9 AM–5 PM, adds ~$20.00/wk");
    EXPECT_EQ(engine.applySuggestions(grid), 40);
    EXPECT_EQ(grid, ScheduleGrid::normalize(
                        std::vector<std::vector<bool>>(7, std::vector<bool>(24, true))));
}

TEST(ScheduleSuggestionEngineTest, ThresholdsAndMerging) {
    auto grid = ScheduleGrid::recommended();
    auto engine = busyExcept({});
    engine.histogram[0][9] = 29;
    engine.histogram[0][10] = 30;
    engine.histogram[5][1] = 600;
    engine.histogram[5][2] = 601;
    EXPECT_EQ(engine.cellState(grid, 0, 9), Engine::CellState::quietSuggest);
    EXPECT_EQ(engine.cellState(grid, 0, 10), Engine::CellState::blocked);
    EXPECT_EQ(engine.cellState(grid, 5, 1), Engine::CellState::allowed);
    EXPECT_EQ(engine.cellState(grid, 5, 2), Engine::CellState::allowedBusy);

    // Monday and Wednesday at 9 stay apart; adding Tuesday joins all three.
    auto split = busyExcept({{0, 9}, {2, 9}});
    EXPECT_EQ(split.quietSuggestRuns(grid).size(), 2u);
    auto joined = busyExcept({{0, 9}, {1, 9}, {2, 9}});
    EXPECT_EQ(joined.quietSuggestRuns(grid), (std::vector<Engine::RunBlock>{{0, 2, 9, 10, 3}}));
}

TEST(ScheduleSuggestionEngineTest, BannerNamesThreeLargestButApplyOpensAll) {
    auto grid = ScheduleGrid::recommended();
    auto engine = busyExcept(
        {{0, 9}, {0, 10}, {0, 11}, {0, 12}, {1, 14}, {1, 15}, {1, 16}, {3, 9}, {3, 10}, {4, 16}});
    EXPECT_EQ(engine.suggestionBannerText(grid, 1.0, false),
              "Mon 9 AM–1 PM, adds ~$4.00/wk · Tue 2 PM–5 PM, adds ~$3.00/wk · Thu 9 AM–11 AM, "
              "adds ~$2.00/wk");
    EXPECT_EQ(engine.applySuggestions(grid), 10);
    EXPECT_TRUE(grid.isAllowed(4, 16));
}

TEST(ScheduleSuggestionEngineTest, BadHistogramsAreReadAsZeroAndSuggestNothingWithoutHistory) {
    auto grid = ScheduleGrid::recommended();
    // Missing days and hours, values out of range and negative: all read as 0.
    auto ragged = Engine::fromRaw({{-50, 5}, {}, {0, 0, 0}});
    ASSERT_EQ(ragged.histogram.size(), 7u);
    EXPECT_EQ(ragged.activityMinutes(0, 0), 0);
    EXPECT_EQ(ragged.activityMinutes(0, 1), 5);
    EXPECT_EQ(ragged.activityMinutes(6, 23), 0);
    EXPECT_EQ(ragged.activityMinutes(7, 0), 0);
    EXPECT_EQ(ragged.activityMinutes(0, -1), 0);

    auto zeros = Engine::fromRaw(std::vector<std::vector<int>>(7, std::vector<int>(24, 0)));
    EXPECT_FALSE(zeros.hasHistory());
    EXPECT_EQ(zeros.cellState(grid, 0, 9), Engine::CellState::blocked);
    EXPECT_TRUE(zeros.quietSuggestionBlocks(grid).empty());
    EXPECT_EQ(zeros.suggestionBannerText(grid, 1, false), kNoActivityHistoryText);
    auto before = grid;
    EXPECT_EQ(zeros.applySuggestions(grid), 0);
    EXPECT_EQ(grid, before);
    EXPECT_EQ(busyExcept({}).suggestionBannerText(grid, 1, false),
              "No quiet-suggest hours right now.");
}

TEST(ScheduleSuggestionEngineTest, Labels) {
    EXPECT_EQ(Engine::dayRangeLabel(6, 6), "Sun");
    EXPECT_EQ(Engine::dayRangeLabel(2, 9), "Days 2-9");
    EXPECT_EQ(Engine::hourRangeLabel(0, 24), "All day");
    EXPECT_EQ(Engine::hourRangeLabel(5, 5), "All day");
    EXPECT_EQ(Engine::hourRangeLabel(0, 12), "12 AM–12 PM");
    EXPECT_EQ(Engine::hourRangeLabel(22, 24), "10 PM–12 AM");
}

}  // namespace
}  // namespace corvane
