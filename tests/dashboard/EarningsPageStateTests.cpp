// The earnings and overview pages' words and numbers, in two time zones: every text of the
// earnings page at its edges from hand-set figures, the sample account as the scenes show it, and
// records the coordinator should not have sent (missing fields, negative amounts, dates that do
// not parse, series shorter than their axis labels).

#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>

#include "CorvaneApp/dashboard/EarningsPageState.h"
#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/dashboard/Formatting.h"
#include "CorvaneApp/dashboard/OverviewPageState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

constexpr double kReference = 1'781'796'600;  // 2026-06-18 15:30 UTC, 08:30 in Los Angeles

// A sample session at the reference moment; its account is fetched only when a test asks.
class PageStateTest : public ::testing::TestWithParam<const char*> {
  protected:
    PageStateTest() {
        ::setenv("TZ", GetParam(), 1);
        ::tzset();
        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(kReference);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        options.sessionElapsed = [] { return 10.0; };
        session.emplace(executor, std::move(options));
        session->launch();
    }
    ~PageStateTest() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    bool losAngeles() const { return std::string(GetParam()) != "UTC"; }
    AppModel& model() { return session->model(); }
    // As the screenshot harness sets a scene: the account's answers land before the scene's own
    // records.
    AppModel& scene(std::string_view id) {
        const auto& scenario = *findScreenshotScenario(id);
        applyScreenshotScenario(scenario, model());
        executor.runUntilIdle();
        if (scenario.prepare) scenario.prepare(*session);
        executor.runUntilIdle();
        return model();
    }
    EarningsPageState page(EarningsRange inForce = EarningsRange::month) {
        return earningsPageState(model(), inForce, "en_US");
    }
    void summary(std::optional<double> recentHourly, std::int64_t shards, std::int64_t minutes,
                 double delta, std::optional<std::int64_t> window = std::nullopt) {
        EarningsSummary s;
        s.todayUSD = 2.5;
        s.todayHourlyUSD = 0.456;
        s.recentHourlyUSD = recentHourly;
        s.recentCompletedShards = shards;
        s.recentWindowMinutes = window;
        s.todayActiveMinutes = minutes;
        s.deltaVsYesterdayUSD = delta;
        s.monthToDateUSD = 48.1;
        s.monthProjectionUSD = 141.6;
        model().earnings().applyEarningsSummary(s);
    }
    void snapshot(EarningsRange range, std::vector<DailyEarning> rows) {
        auto& earnings = model().earnings();
        earnings.applyEarningsSnapshot(EarningsRangeSnapshot::fromRows(std::move(rows), {}), range,
                                       range == EarningsRange::month);
        earnings.finishEarningsRangeRefresh(earnings.beginEarningsRangeRefresh(), range,
                                            std::nullopt);
    }

    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
};

TEST_P(PageStateTest, PaceDeltaAndNotesSayWhatIsActualAndWhatIsEstimated) {
    struct Row {
        std::optional<double> recentHourly;
        std::int64_t shards, minutes;
        std::optional<std::int64_t> window;
        double delta;
        const char* pace;
        const char* paceCaption;
        const char* todayDelta;
    };
    const std::vector<Row> rows{
        // No estimate yet: the window it waits for.
        {std::nullopt, 0, 0, std::nullopt, -0.25, "waiting for last 15 min pace",
         "Waiting for the last 15 min of completed work", "−$0.25 vs yesterday"},
        // A recent rate with no recent shards is no estimate either.
        {1.0, 0, 30, 20, 0, "waiting for last 20 min pace",
         "Waiting for the last 20 min of completed work", "+$0.00 vs yesterday"},
        {1.234, 3, 30, std::nullopt, 1.5, "$1.23/hr last 15 min pace",
         "Projected from the last 15 min of completed work", "+$1.50 vs yesterday"},
        {std::nullopt, 0, 30, std::nullopt, 0.004, "$0.46/hr today completed-work pace",
         "Estimated from today's completed work", "+$0.00 vs yesterday"},
        {-2.0, 1, 5, std::nullopt, -3, "$-2.00/hr last 15 min pace",
         "Projected from the last 15 min of completed work", "−$3.00 vs yesterday"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.pace);
        summary(row.recentHourly, row.shards, row.minutes, row.delta, row.window);
        const auto state = page();
        EXPECT_EQ(state.pace, row.pace);
        EXPECT_EQ(state.paceCaption, row.paceCaption);
        EXPECT_EQ(state.todayDelta, row.todayDelta);
        EXPECT_EQ(overviewPageState(model()).pace, row.pace);
        EXPECT_EQ(state.monthToDate, "$48.10 so far");
        EXPECT_EQ(state.monthProjection, "projected total: $142 this month");
        EXPECT_NEAR(state.monthFraction, 48.1 / 141.6, 1e-9);
    }
    EXPECT_EQ(recentUnpaidLagNote(std::nullopt, 15), std::nullopt);
    EXPECT_EQ(recentUnpaidLagNote(0.42, 15),
              "About $0.42 of recent completed work from the last 15 min may not appear here yet.");
}

TEST_P(PageStateTest, EachRangeHasItsLabelNameNotesAndChartLength) {
    struct Row {
        EarningsRange range;
        const char* label;
        const char* name;
        const char* note;
        const char* subtitle;
        std::size_t zeroLength, exportLength;
    };
    const std::vector<Row> rows{
        {EarningsRange::day, "Today", "Today so far",
         "Actuals so far today. Projected totals on this page estimate future earnings from your "
         "current pace.",
         "Today so far gross actuals so far, after Corvane's 50% routing fee", 24, 1},
        {EarningsRange::week, "7d", "Last 7 days",
         "Actuals for last 7 days. Only today's totals project forward — all other figures are "
         "confirmed.",
         "Last 7 days gross actuals, after Corvane's 50% routing fee", 7, 7},
        {EarningsRange::month, "30d", "Last 30 days",
         "Actuals for last 30 days. Only today's totals project forward — all other figures are "
         "confirmed.",
         "Last 30 days gross actuals, after Corvane's 50% routing fee", 30, 30},
        {EarningsRange::quarter, "90d", "Last 90 days",
         "Actuals for last 90 days. Only today's totals project forward — all other figures are "
         "confirmed.",
         "Last 90 days gross actuals, after Corvane's 50% routing fee", 90, 90},
        {EarningsRange::all, "All", "All time",
         "Actuals for all time. Only today's totals project forward — all other figures are "
         "confirmed.",
         "All time gross actuals, after Corvane's 50% routing fee", 30, 30},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.label);
        EXPECT_EQ(segmentLabel(row.range), row.label);
        EXPECT_EQ(fromSegmentLabel(row.label), row.range);
        EXPECT_EQ(longName(row.range), row.name);
        EXPECT_EQ(projectionNote(row.range), row.note);
        EXPECT_EQ(areaChartSubtitle(row.range), row.subtitle);
        // Nothing earned yet: a zero series of the range's length, and as many zero days to export.
        snapshot(row.range, {});
        const auto state = page(row.range);
        EXPECT_EQ(state.areaChart.series.front().values, std::vector<double>(row.zeroLength, 0.0));
        EXPECT_EQ(state.areaChart.highlightIndex, row.range == EarningsRange::day
                                                      ? (losAngeles() ? 8 : 15)
                                                      : int(row.zeroLength) - 1);
        EXPECT_EQ(earningsExportSeries(row.range, {}).size(), row.exportLength);
        EXPECT_EQ(state.rangeTitle, row.name);
        EXPECT_EQ(state.rangeTotal, "$0.00");
        EXPECT_EQ(state.projectionNote, row.note);
        EXPECT_EQ(state.areaChart.subtitle, row.subtitle);
        EXPECT_EQ(state.jobs.size(), 0u);
        EXPECT_EQ(state.jobsEmpty, "No jobs in the selected window.");
        EXPECT_EQ(state.jobsCaption, "model · audio size · earnings");
    }
    for (const char* other : {"", "30D", "today", "bogus"}) {
        EXPECT_EQ(fromSegmentLabel(other), EarningsRange::month) << other;
    }
}

TEST_P(PageStateTest, ASeriesShorterThanItsLabelsIsDrawnWithoutThem) {
    // A new account's three days in the 90-day range: five labels cannot stand apart on three
    // points, so the axis has none (and nothing throws).
    snapshot(EarningsRange::quarter,
             {{"2026-06-16", 1.0}, {"2026-06-17", 2.0}, {"2026-06-18", 0.5}});
    auto state = page(EarningsRange::quarter);
    EXPECT_EQ(state.areaChart.series.front().values, (std::vector<double>{1.0, 2.0, 0.5}));
    EXPECT_TRUE(state.areaChart.xLabels.empty());
    EXPECT_EQ(state.rangeTotal, "$3.50");
    EXPECT_EQ(state.rangeCaption, "Average $1.17 a day over 3 days");
    // Two days of a week would be labelled with the dates four and three days back: none.
    snapshot(EarningsRange::week, {{"2026-06-17", 2.0}, {"2026-06-18", 0.5}});
    EXPECT_TRUE(page(EarningsRange::week).areaChart.xLabels.empty());
    // All time from today: two labels, and a single point cannot hold them.
    snapshot(EarningsRange::all, {{"2026-06-18", 0.5}});
    EXPECT_TRUE(page(EarningsRange::all).areaChart.xLabels.empty());
    snapshot(EarningsRange::all, {{"2026-06-17", 2.0}, {"2026-06-18", 0.5}});
    EXPECT_EQ(page(EarningsRange::all).areaChart.xLabels,
              (std::vector<std::optional<std::string>>{"Jun 17", "Today"}));
}

TEST_P(PageStateTest, JobsWithMissingOddOrNegativeFieldsStillRead) {
    const bool la = losAngeles();
    JobRecord named{"job_1", 307.4, 0.71, "2026-06-18T14:05:00Z", "Acme Transcripts"};
    JobRecord bare{"job_2", -5, -0.25, std::nullopt, std::string("  ")};
    JobRecord odd{"job_3", 59.5, 0.004, "last Tuesday", std::nullopt};
    JobRecord spaced{"job_4", 3600, 1234.5, "2026-06-17 23:59:59", std::nullopt};
    model().account().setTopJobs({named, bare, odd, spaced});
    const auto jobs = page().jobs;
    ASSERT_EQ(jobs.size(), 4u);
    const std::string nnbsp = "\u202f";  // ICU puts a narrow no-break space before AM and PM
    EXPECT_EQ(jobs[0],
              (RecentJobRow{"Acme Transcripts", "job_1", "5:07 audio", "$0.71",
                            la ? "Jun 18, 7:05" + nnbsp + "AM" : "Jun 18, 2:05" + nnbsp + "PM"}));
    EXPECT_EQ(jobs[1], (RecentJobRow{"job_2", "job_2", "0:00 audio", "−$0.25", "—"}));
    EXPECT_EQ(jobs[2], (RecentJobRow{"job_3", "job_3", "1:00 audio", "$0.00", "last Tuesday"}))
        << "a date that does not parse is shown as it stands";
    EXPECT_EQ(jobs[3].audioSize, "60:00 audio");
    EXPECT_EQ(jobs[3].earnings, "$1,234.50");
    EXPECT_EQ(jobs[3].completed,
              la ? "Jun 17, 4:59" + nnbsp + "PM" : "Jun 17, 11:59" + nnbsp + "PM");
    // The owner's locale decides the date's words and order.
    EXPECT_EQ(formattedJobDate(named.completedAt, "de_DE"),
              la ? "18. Juni, 07:05" : "18. Juni, 14:05");
}

TEST_P(PageStateTest, TheSampleAccountAsTheScenesShowIt) {
    scene("earnings-default");
    const auto state = page();
    EXPECT_EQ(state.rangeLabels, (std::vector<std::string>{"Today", "7d", "30d", "90d", "All"}));
    EXPECT_EQ(state.selectedRange, 2);
    EXPECT_EQ(state.loadingNote, "");
    const auto& area = state.areaChart;
    ASSERT_EQ(area.series.front().values.size(), 30u);
    // The 30-day axis: 29, 21, 14 and 7 days back, then today, at the last point.
    std::vector<std::pair<int, std::string>> placed;
    for (std::size_t i = 0; i < area.xLabels.size(); ++i) {
        if (area.xLabels[i]) placed.emplace_back(int(i), *area.xLabels[i]);
    }
    EXPECT_EQ(placed,
              (std::vector<std::pair<int, std::string>>{
                  {0, "May 20"}, {8, "May 28"}, {15, "Jun 4"}, {22, "Jun 11"}, {29, "Today"}}));
    EXPECT_EQ(area.highlightIndex, 29);
    EXPECT_GE(area.yMax, *std::max_element(area.series.front().values.begin(),
                                           area.series.front().values.end()));
    EXPECT_EQ(area.yLabelFormat, "$%.0f");
    EXPECT_EQ(state.hourBars.xLabels[23], "24");
    EXPECT_EQ(state.hourBars.series.front().values.size(), 24u);
    EXPECT_EQ(state.today, formatUSD(model().earnings().todayEarnings()));
    EXPECT_FALSE(state.jobs.empty());
    EXPECT_EQ(state.jobs.front().title, "Acme Transcripts");
    EXPECT_TRUE(state.unpaidLagNote.has_value()) << "the demo has recent estimated work";
    EXPECT_EQ(earningsExportFileName(model()), "corvane-earnings-20260618.csv");

    // The day: hours on the axis, the current hour marked.
    model().selectEarningsRange(EarningsRange::day);
    EXPECT_EQ(page(EarningsRange::day).loadingNote, "Loading earnings for today…");
    executor.runUntilIdle();
    const auto day = page(EarningsRange::day);
    EXPECT_EQ(day.selectedRange, 0);
    EXPECT_EQ(day.areaChart.series.front().values.size(), 24u);
    EXPECT_EQ(day.areaChart.xLabels[0], "00");
    EXPECT_EQ(day.areaChart.highlightIndex, losAngeles() ? 8 : 15);
    EXPECT_EQ(day.rangeCaption, "Gross actuals so far today");
}

TEST_P(PageStateTest, TheEarningsScenesOfTheCatalogue) {
    // Nothing earned yet, on a session whose account has not been fetched: zeros of the month's
    // length, no jobs, and the sample account's answers do not come back over them.
    scene("earnings-empty");
    const auto empty = page();
    EXPECT_EQ(empty.areaChart.series.front().values, std::vector<double>(30, 0.0));
    EXPECT_EQ(empty.areaChart.xLabels[29], "Today");
    EXPECT_EQ(empty.today, "$0.00");
    EXPECT_EQ(empty.todayDelta, "+$0.00 vs yesterday");
    EXPECT_EQ(empty.pace, "waiting for last 15 min pace");
    EXPECT_EQ(empty.rangeTotal, "$0.00");
    EXPECT_EQ(empty.monthProjection, "projected total: $0 this month");
    EXPECT_TRUE(empty.jobs.empty());
    EXPECT_EQ(empty.unpaidLagNote, std::nullopt);
    EXPECT_EQ(overviewPageState(model()).available, "$0.00");

    // Today's scene: the remembered range, which the page brings into force when shown.
    scene("earnings-range-day");
    EarningsRangeSelection selection(model(), session->userDefaults());
    EXPECT_TRUE(selection.restore());
    executor.runUntilIdle();
    EXPECT_EQ(page(selection.inForce()).areaChart.subtitle,
              "Today so far gross actuals so far, after Corvane's 50% routing fee");
}

TEST_P(PageStateTest, TheOverviewShowsTheHourBalancesAndADownloadOnItsWay) {
    // Before any sample or account: dashes and empty charts, never a crash.
    const auto samples = model().resources().history();
    model().resources().reset();
    auto empty = overviewPageState(model());
    EXPECT_EQ(empty.available, "—");
    EXPECT_EQ(empty.week, "—");
    EXPECT_EQ(empty.activity, "0 jobs today");
    EXPECT_EQ(empty.memoryChart.summary,
              "Memory in use (GB) · last hour (per-minute avg). No samples yet.");

    model().resources().applySamplerSnapshot(samples);
    scene("overview-earning");
    const auto state = overviewPageState(model());
    EXPECT_EQ(state.statusLabel, "Earning");
    EXPECT_EQ(state.statusExplanation, std::nullopt) << "no second copy of the status line";
    EXPECT_EQ(state.weekTitle, "Last 7 days of earnings");
    EXPECT_EQ(state.week, formatUSD(model().earnings().weekEarnings()));
    EXPECT_EQ(state.available, formatUSD(model().account().availableBalance()));
    EXPECT_EQ(state.memoryChart.title, "Memory in use (GB) · last hour (per-minute avg)");
    ASSERT_EQ(state.memoryChart.series.size(), 2u);
    EXPECT_EQ(state.memoryChart.series[0].name, "Corvane resident memory");
    EXPECT_EQ(state.memoryChart.series[1].name, "Machine memory remainder");
    EXPECT_EQ(state.cpuChart.title, "Process CPU (100% = 1 core) · last hour (per-minute avg)");
    EXPECT_EQ(state.cpuChart.series[0].name, "Corvane process CPU");
    EXPECT_EQ(state.cpuChart.series[1].name, "Other process CPU");
    // The demo machine: 32 GB, 12 cores; the first memory sample is 11.5% of it for Corvane.
    EXPECT_NEAR(state.memoryChart.series[0].values.front(), 11.5 / 100 * 32, 1e-9);
    EXPECT_NEAR(state.cpuChart.series[0].values.front(), 45.0 * 12, 1e-9);
    EXPECT_EQ(state.memoryChart.xLabels.size(), 60u);
    EXPECT_EQ(state.memoryChart.xLabels[59], "now");
    EXPECT_EQ(state.memoryChart.xLabels[44], "−15 min");
    EXPECT_EQ(state.memoryChart.xLabels[14], "−45 min");
    EXPECT_EQ(state.memoryChart.yLabelFormat, "%.0f GB");
    EXPECT_EQ(state.cpuChart.yLabelFormat, "%.0f%%");
    EXPECT_FALSE(state.download);

    scene("models-downloading");
    const auto downloading = overviewPageState(model()).download;
    ASSERT_TRUE(downloading);
    EXPECT_EQ(downloading->title, "Downloading Whisper large-v3 turbo");
    EXPECT_EQ(downloading->body,
              "Corvane is fetching Whisper large-v3 turbo to run transcription jobs with.");
    EXPECT_TRUE(downloading->detail.starts_with("40% · "));
    EXPECT_FALSE(downloading->failed);
    scene("models-download-failed");
    const auto failed = overviewPageState(model()).download;
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->title, "Model download failed");
    EXPECT_EQ(failed->body,
              "Corvane can't start earning on this computer until the Whisper large-v3 turbo "
              "weights download completes.");
    EXPECT_EQ(failed->detail, "The network connection was lost.");
    EXPECT_EQ(failed->retryTitle, "Retry download");
    EXPECT_FALSE(failed->fraction);
}

TEST(ChartStateTest, AxisTopsAreFourRoundSteps) {
    const std::vector<std::pair<double, double>> rows{
        {0, 1}, {0.3, 1}, {1.7, 2}, {6.3, 8}, {9.9, 10}, {16.4, 20}, {123, 200}, {540, 800}};
    for (const auto& [largest, top] : rows)
        EXPECT_DOUBLE_EQ(niceAxisTop(largest, 1), top) << largest;
    EXPECT_DOUBLE_EQ(niceAxisTop(40, 100), 100) << "never below the floor";
    EXPECT_DOUBLE_EQ(niceAxisTop(std::nan(""), 1), 1);
    // Every tick reads exactly: a step of 2.5 keeps its half, cents keep two places.
    const std::vector<std::tuple<double, int, std::string>> formats{
        {800, 1, "%.0f"}, {10, 1, "%.1f"}, {4, 1, "%.0f"}, {2, 1, "%.1f"},
        {1, 1, "%.2f"},   {1, 2, "%.2f"},  {2, 2, "%.2f"}, {100, 2, "%.0f"}};
    for (const auto& [top, digits, format] : formats)
        EXPECT_EQ(valueAxisFormat(top, "", "", digits), format) << top;
    EXPECT_EQ(valueAxisFormat(20, "$", "", 2), "$%.0f");
    EXPECT_EQ(valueAxisFormat(400, "", "%%"), "%.0f%%");
    EXPECT_EQ(lastHourLabels(3),
              (std::vector<std::optional<std::string>>{std::nullopt, std::nullopt, "now"}));
    EXPECT_EQ(audioSizeLabel(59.4), "0:59 audio");
    EXPECT_EQ(audioSizeLabel(59.5), "1:00 audio");
    EXPECT_EQ(audioSizeLabel(3725), "62:05 audio");
    EXPECT_EQ(monthProjectionLine(0.4), "projected total: $0 this month");
}

INSTANTIATE_TEST_SUITE_P(Zones, PageStateTest, ::testing::Values("UTC", "America/Los_Angeles"),
                         [](const auto& info) {
                             return std::string(info.param[0] == 'U' ? "UTC" : "LosAngeles");
                         });

}  // namespace
}  // namespace corvane
