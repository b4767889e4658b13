#include "CorvaneApp/dashboard/ScheduleActivityHistoryStore.h"

#include <gtest/gtest.h>

namespace corvane {
namespace {

ActivityHistogramResponse response(std::string workerID, int total,
                                   std::vector<std::vector<std::int64_t>> rows) {
    ActivityHistogramResponse value;
    value.workerId = std::move(workerID);
    value.days = 28;
    value.activeMinutesTotal = total;
    value.histogram = std::move(rows);
    return value;
}

TEST(ScheduleActivityHistoryStoreTest, TransitionsKeepLateAnswersForAFormerWorkerOut) {
    ScheduleActivityHistoryStore store;
    const auto grid = ScheduleGrid::recommended();
    int changes = 0;
    auto subscription = store.observe([&] { ++changes; });
    EXPECT_EQ(store.bannerText(grid, 1), kNoActivityHistoryText);

    store.completeLoad("w-1", response("w-1", 10, {{10}}));  // idle: ignored
    EXPECT_FALSE(store.histogram());

    store.beginLoad("w-1");
    EXPECT_EQ(store.bannerText(grid, 1), "Loading activity history...");
    store.completeLoad("w-1", response("w-1", 0, {}));
    EXPECT_TRUE(store.isLoadedButEmpty());
    EXPECT_EQ(store.bannerText(grid, 1),
              "Activity history loaded, but no active minutes were recorded yet.");

    // A reload for the same worker keeps the histogram on view; another worker's clears it.
    store.beginLoad("w-1");
    EXPECT_TRUE(store.histogram());
    EXPECT_FALSE(store.isLoadedButEmpty());
    store.beginLoad("w-2");
    EXPECT_FALSE(store.histogram());
    store.completeLoad("w-1", response("w-1", 5, {{5}}));
    store.failLoad("w-1", "late");
    EXPECT_EQ(store.loadState(), ScheduleActivityHistoryStore::LoadState{
                                     ScheduleActivityHistoryStore::Loading{"w-2"}});

    // Ragged rows with negative minutes become a seven-by-24 engine.
    store.completeLoad("w-2", response("w-2", 60, {{-3, 60, std::int64_t{1} << 40}, {}}));
    auto engine = store.suggestionEngine();
    ASSERT_TRUE(engine);
    EXPECT_EQ(engine->histogram.size(), 7u);
    EXPECT_EQ(engine->activityMinutes(0, 0), 0);
    EXPECT_EQ(engine->activityMinutes(0, 1), 60);
    EXPECT_EQ(engine->cellState(grid, 0, 2), ScheduleSuggestionEngine::CellState::allowedBusy);

    store.failLoad("w-2", "Coordinator unreachable");
    EXPECT_FALSE(store.suggestionEngine());
    EXPECT_EQ(store.bannerText(grid, 1), "Coordinator unreachable");
    EXPECT_EQ(changes, 6);
}

}  // namespace
}  // namespace corvane
