// The single-key readers and the schedule grid, on the cases the corpus files don't show.

#include "CorvaneApp/config/ConfigScanners.h"

#include <gtest/gtest.h>

#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/config/WorkerConfig.h"

namespace corvane::configyaml {
namespace {

TEST(ConfigScannersTest, IdentityReadsCutCommentsUnlikeTheSettingReads) {
    const std::string yaml =
        "coordinator_url: 'https://o''brien.example/#frag'\nempty: ''\n  worker_id: nested\n";
    // The identity reader cuts at the first '#', quote or not; doubled quotes stay doubled.
    EXPECT_EQ(WorkerConfig::extractTopLevelString("coordinator_url", yaml),
              "'https://o''brien.example/");
    EXPECT_EQ(scalarFlat("coordinator_url", yaml), "https://o''brien.example/#frag");
    EXPECT_EQ(WorkerConfig::extractTopLevelString("empty", yaml), std::nullopt);
    EXPECT_EQ(scalarFlat("worker_id", yaml), std::nullopt);

    // Both identity keys, non-empty, or no config at all.
    EXPECT_EQ(WorkerConfig::parse("worker_id: 'w1'\n"), std::nullopt);
    EXPECT_EQ(WorkerConfig::parse("worker_id: ''\ncoordinator_url: 'https://c'\n"), std::nullopt);
    EXPECT_EQ(WorkerConfig::load("/nonexistent/config.yaml"), std::nullopt);
}

TEST(ScheduleGridTest, CellsOutsideTheWeekNeitherChangeNorBreakTheGrid) {
    auto grid =
        ScheduleGrid::normalize(std::vector<std::vector<bool>>(7, std::vector<bool>(30, false)));
    for (const auto& row : grid.weeklyGrid) EXPECT_EQ(row.size(), 24u);
    const auto before = grid;
    for (auto [day, hour] : {std::pair{7, 0}, {0, 24}, {-1, 3}, {2, -1}}) {
        grid.setAllowed(true, day, hour);
        EXPECT_EQ(grid, before) << day << "/" << hour;
    }

    ScheduleGrid ragged{{{false}}};        // a stored grid from an old file
    EXPECT_TRUE(ragged.isAllowed(9, 10));  // outside the week: the recommended answer
    EXPECT_FALSE(ragged.isAllowed(0, 9));  // missing cells read from recommended
    ragged.setAllowed(false, 3, 20);
    EXPECT_FALSE(ragged.isAllowed(3, 20));
    EXPECT_FALSE(ragged.isAllowed(0, 0));  // kept through completion
    EXPECT_EQ(ScheduleGrid::normalize({}), ScheduleGrid::recommended());
}

}  // namespace
}  // namespace corvane::configyaml
