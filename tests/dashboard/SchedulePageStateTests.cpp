// The Schedule & limits page's numbers and words: rates, monthly estimates, the sliders' ranges,
// recommended marks and hints on computers of several sizes, the scenario table, the heatmap with
// and without history, and the drag-paint rules of the working grid.

#include <gtest/gtest.h>

#include "CorvaneApp/dashboard/ScenarioTable.h"
#include "CorvaneApp/dashboard/ScheduleGridEditor.h"
#include "CorvaneApp/dashboard/SchedulePageState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using CellState = ScheduleSuggestionEngine::CellState;

ScheduleGrid filled(bool allowed) {
    ScheduleGrid grid;
    grid.weeklyGrid.assign(7, std::vector<bool>(24, allowed));
    return grid;
}

TEST(ScheduleEstimate, RatesAndMonthlyFiguresFollowTheLimitsAndTheGrid) {
    const std::tuple<double, double, double> rates[] = {
        {50, 19, 0.70},                      // under 20 GB the RAM term is 0
        {50, 20, 0.712}, {50, 100, 0.7372},  // counted up to 62 GB
        {0, 0, 0},       {95, 62, 1.3672},
    };
    for (const auto& [cpu, ram, rate] : rates)
        EXPECT_NEAR(scheduleRate(cpu, ram), rate, 1e-9) << cpu << "% " << ram << " GB";

    WorkerSettings settings;  // away 90% · 48 GB (1.2888/hr), in use 20% · 10 GB (0.28/hr)
    const std::tuple<ScheduleGrid, double, MonthlyEstimate> grids[] = {
        {ScheduleGrid::recommended(), 128 / 7.0, {722, 810}},
        {filled(false), 0, {192, 216}},  // the in-use rate all day
        {filled(true), 24, {887, 995}},  // no in-use hours left
    };
    for (const auto& [grid, hours, estimate] : grids) {
        settings.scheduleGrid = grid;
        EXPECT_NEAR(allowedHoursAway(grid), hours, 1e-9);
        EXPECT_EQ(monthlyEstimate(settings), estimate) << hours;
    }
}

class SchedulePageStateTest : public ::testing::Test {
  protected:
    SchedulePageStateTest() {
        DemoSession::Options options;
        options.referenceDate = dateFromUnixSeconds(1'781'771'400);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        session_.emplace(executor_, std::move(options));
    }
    AppModel& machine(double ramGB, int cores) {
        auto info = session_->model().machine();
        info.totalRAM_GB = ramGB;
        info.totalCores = cores;
        session_->model().setMachine(info);
        return session_->model();
    }
    SchedulePageState state(const WorkerSettings& settings = {},
                            SchedulePageTab tab = SchedulePageTab::away) {
        return schedulePageState(session_->model(), settings, settings.scheduleGrid, tab, history_);
    }

    testing::ManualExecutor executor_;
    std::optional<DemoSession> session_;
    ScheduleActivityHistoryStore history_;
};

TEST_F(SchedulePageStateTest, HeadShowsTheEstimateAndTheTwoRates) {
    machine(32, 12);
    const auto page = state();
    EXPECT_EQ(page.estimateText, "$722 – $810");
    EXPECT_EQ(page.away, (ScheduleRateState{"$1.29/hr", "Away projection",
                                            "heuristic from your away CPU/RAM limits"}));
    EXPECT_EQ(page.inUse, (ScheduleRateState{"$0.28/hr", "In-use projection",
                                             "heuristic from your in-use CPU/RAM limits"}));
    EXPECT_EQ(rawValue(SchedulePageTab::inUse), "using");
    EXPECT_EQ(schedulePageTabFromRaw("using"), SchedulePageTab::inUse);
    EXPECT_EQ(schedulePageTabFromRaw("nonsense"), SchedulePageTab::away);
}

TEST_F(SchedulePageStateTest, SliderRangesRecommendedMarksAndHintsAtTheRamThresholds) {
    struct Row {
        double ram;
        double awayRamSetting, inUseRamSetting;
        int top, awayRecommended, inUseRecommended;
        std::string awayRamHint, inUseRamHint;
    };
    const Row rows[] = {
        {4, 3, 1, 4, 3, 1,
         "3 GB of 4 (2 GB reserved). Single worker only — bump to 20+ GB for parallel jobs.",
         "1 GB of 4 (2 GB reserved). Small jobs only — whisper-tiny, embeddings"},
        {8, 48, 10, 6, 6, 1,
         "6 GB of 8 (2 GB reserved). Single worker only — bump to 20+ GB for parallel jobs.",
         "6 GB of 8 (2 GB reserved). Small jobs only — whisper-large, small LLMs"},
        {16, 19, 4, 14, 12, 3,
         "14 GB of 16 (2 GB reserved). Single worker only — bump to 20+ GB for parallel jobs.",
         "4 GB of 16 (2 GB reserved). Small jobs only — whisper-tiny, embeddings"},
        {32, 20, 5, 30, 24, 5,
         "20 GB of 32 (2 GB reserved). Enough for a parallel worker when demand is high.",
         "5 GB of 32 (2 GB reserved). Small jobs only — whisper-large, small LLMs"},
        {31.6, 19.6, 4.4, 30, 24, 5,
         "20 GB of 32 (2 GB reserved). Enough for a parallel worker when demand is high.",
         "4 GB of 32 (2 GB reserved). Small jobs only — whisper-tiny, embeddings"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.ram);
        machine(row.ram, 8);
        WorkerSettings settings;
        settings.awayRamCeilingGB = row.awayRamSetting;
        settings.inUseRamCeilingGB = row.inUseRamSetting;
        const auto page = state(settings);
        EXPECT_EQ(page.awayRam.maximum, row.top);
        EXPECT_EQ(page.inUseRam.maximum, row.top);
        EXPECT_EQ(page.awayRam.recommended, row.awayRecommended);
        EXPECT_EQ(page.inUseRam.recommended, row.inUseRecommended);
        EXPECT_EQ(page.awayRam.hint, row.awayRamHint);
        EXPECT_EQ(page.inUseRam.hint, row.inUseRamHint);
        EXPECT_EQ(page.awayRam.valueText, std::to_string(page.awayRam.value) + " GB");
    }

    machine(32, 12);
    WorkerSettings settings;
    settings.awayCpuCeiling = 100;  // above the slider: shown at its top, never written back
    const auto page = state(settings);
    EXPECT_EQ(page.awayCpu,
              (LimitSliderState{ScheduleSetting::awayCpuCeiling, "Computer CPU Allowed", 95, 0, 95,
                                71, "95%", "Recommended 71%",
                                "95% of 12 cores. Capped at 95% so the system stays "
                                "responsive in the background."}));
    EXPECT_EQ(page.inUseCpu.hint,
              "20% of 12 cores. Below 25% goes unnoticed while you work; above 40% may show up on "
              "fans during video calls.");
    EXPECT_EQ(page.inUseCpu.recommended, 20);
    EXPECT_EQ(page.idle.minimum, 1);
    EXPECT_EQ(page.idle.maximum, 30);
    EXPECT_EQ(page.idle.valueText, "3 min");
    EXPECT_FALSE(page.idle.recommended);
}

TEST_F(SchedulePageStateTest, ScenarioRowsOnTwoComputers) {
    machine(32, 12);
    const std::vector<ScenarioRowState> thirtyTwo{
        {"Minimum", "60% · 8 GB", "10% · 4 GB", "$458", false},
        {"Conservative", "80% · 16 GB", "15% · 5 GB", "$614", false},
        {"Current", "90% · 48 GB", "20% · 10 GB", "$714", true},
        {"Open", "95% · 24 GB", "30% · 8 GB", "$766", false},
        {"Maximum", "95% · 30 GB", "50% · 12 GB", "$816", false},
    };
    EXPECT_EQ(state().scenarios, thirtyTwo);

    const auto small = ScenarioTable::make(WorkerSettings{}, 4);
    EXPECT_EQ(small.rows[3], (ScenarioTable::Row{"Open", 95, 3, 30, 1, false}));
    EXPECT_EQ(small.rows[4], (ScenarioTable::Row{"Maximum", 95, 4, 50, 2, false}))
        << "the larger of RAM - 2 and 4";
    EXPECT_EQ(small.hoursAway, 18);
    EXPECT_EQ(small.hoursIn, 6);
    WorkerSettings open;
    open.scheduleGrid = filled(true);
    EXPECT_EQ(ScenarioTable::make(open, 4).hoursIn, 0);
}

TEST_F(SchedulePageStateTest, HeatmapLegendAndBannerWithAndWithoutHistory) {
    machine(32, 12);
    WorkerSettings settings;
    auto page = state(settings);
    EXPECT_EQ(page.heatmap.cells[1][14].state, CellState::blocked);
    EXPECT_EQ(page.heatmap.cells[1][14].accessibleName, "Tuesday 14:00, quiet");
    EXPECT_EQ(page.heatmap.cells[6][3].accessibleName, "Sunday 03:00, open");
    EXPECT_EQ(page.heatmap.legend[2].label, "Quiet — Corvane never runs · 40 h");
    EXPECT_EQ(page.heatmap.legend[0].label, "Risky to run — consider quiet · 0 h");
    EXPECT_EQ(page.bannerText, kNoActivityHistoryText);
    EXPECT_FALSE(page.canApplySuggestions);

    history_.beginLoad("wk");
    EXPECT_EQ(state(settings).bannerText, "Loading activity history...");
    // Busy every working day from 9 to 17 except Tuesday at 14, and 700 minutes on Saturday at 3.
    ActivityHistogramResponse response;
    response.activeMinutesTotal = 1;
    response.histogram.assign(7, std::vector<std::int64_t>(24, 0));
    for (int day = 0; day < 5; ++day) {
        for (int hour = 9; hour < 17; ++hour) response.histogram[day][hour] = 90;
    }
    response.histogram[1][14] = 12;
    response.histogram[5][3] = 700;
    history_.completeLoad("wk", response);
    page = state(settings);
    EXPECT_EQ(page.heatmap.cells[1][14].state, CellState::quietSuggest);
    EXPECT_EQ(page.heatmap.cells[1][14].accessibleName, "Tuesday 14:00, quiet, suggested to open");
    EXPECT_EQ(page.heatmap.cells[5][3].accessibleName, "Saturday 03:00, open, risky to run");
    EXPECT_EQ(page.heatmap.legend[0].count, 1);
    EXPECT_EQ(page.heatmap.legend[1].count, 1);
    EXPECT_EQ(page.heatmap.legend[2].count, 39);
    EXPECT_EQ(page.bannerText, "Tue 2 PM–3 PM, adds ~$1.29/wk");
    EXPECT_TRUE(page.canApplySuggestions);

    // A click on the suggested cell opens it, and the heatmap says so at once.
    ScheduleGridEditor editor(settings.scheduleGrid);
    ASSERT_TRUE(editor.toggleCell({1, 14}));
    page = schedulePageState(session_->model(), settings, editor.grid(), SchedulePageTab::away,
                             history_);
    EXPECT_EQ(page.heatmap.cells[1][14].state, CellState::allowed);
    EXPECT_FALSE(page.canApplySuggestions);
    EXPECT_EQ(page.estimateText, "$726 – $815") << "an hour a week moves to the away rate";

    // A history that fails to load shows the store's message; the grid still edits.
    history_.failLoad("wk", "Corvane is not enrolled on this computer.");
    page = state(settings);
    EXPECT_EQ(page.bannerText, "Corvane is not enrolled on this computer.");
    EXPECT_EQ(page.heatmap.cells[1][14].state, CellState::blocked);
    EXPECT_TRUE(editor.toggleCell({1, 14}));
    EXPECT_EQ(editor.grid(), ScheduleGrid::recommended());
}

TEST(ScheduleGridEditorTest, DragPaintSequences) {
    // Monday 9 to 16 is blocked in the recommended grid; 8 and 17 are open.
    struct Row {
        const char* name;
        std::vector<HeatmapCell> strokes;
        std::vector<bool> changed;  // what each stroke reported
        std::vector<std::pair<HeatmapCell, bool>> after;
    };
    const Row rows[] = {
        {"the first cell's opposite paints every cell",
         {{0, 8}, {0, 9}, {0, 10}, {1, 10}},
         {true, false, false, false},
         {{{0, 8}, false}, {{0, 9}, false}, {{1, 10}, false}}},
        {"from a quiet cell the drag opens",
         {{0, 12}, {0, 13}, {0, 17}, {1, 13}},
         {true, true, false, true},
         {{{0, 12}, true}, {{0, 13}, true}, {{0, 17}, true}, {{1, 13}, true}}},
        {"back over a painted cell leaves it painted",
         {{0, 17}, {0, 16}, {0, 17}, {0, 16}, {0, 15}},
         {true, false, false, false, false},
         {{{0, 17}, false}, {{0, 16}, false}, {{0, 15}, false}}},
        {"cells outside the grid are passed over",
         {{7, 3}, {0, 24}, {-1, 0}, {6, 23}},
         {false, false, false, true},
         {{{6, 23}, false}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        ScheduleGridEditor editor;
        std::vector<bool> changed;
        for (const auto& stroke : row.strokes) changed.push_back(editor.paintDraggedCell(stroke));
        EXPECT_EQ(changed, row.changed);
        EXPECT_TRUE(editor.isDragging());
        EXPECT_FALSE(editor.follow(ScheduleGrid::recommended())) << "a drag keeps its strokes";
        for (const auto& [cell, allowed] : row.after)
            EXPECT_EQ(editor.grid().isAllowed(cell.day, cell.hour), allowed);
        EXPECT_TRUE(editor.finishDragPaint()) << "one save when the drag ends";
        EXPECT_FALSE(editor.finishDragPaint()) << "and no second";
        EXPECT_TRUE(editor.paintedCells().empty());
    }

    // The next drag takes its own mode, and may change a cell the last one painted.
    ScheduleGridEditor editor;
    editor.paintDraggedCell({0, 8});
    editor.finishDragPaint();
    EXPECT_TRUE(editor.paintDraggedCell({0, 8}));
    EXPECT_TRUE(editor.grid().isAllowed(0, 8));
    editor.finishDragPaint();
    EXPECT_FALSE(editor.toggleCell({0, 24}));
    EXPECT_TRUE(editor.follow(filled(false)));
    EXPECT_FALSE(editor.grid().isAllowed(5, 5));
}

}  // namespace
}  // namespace corvane
