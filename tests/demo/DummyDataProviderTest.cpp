#include <gtest/gtest.h>

#include <cstdlib>
#include <numeric>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/DummyDataProvider.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

const Date kReference = dateFromUnixSeconds(1'781'771'400);  // Thursday 2026-06-18 08:30 UTC

double total(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0);
}

Date parsed(const std::optional<std::string>& text) {
    return AppModelDateParser::parseCoordinatorTimestamp(text.value_or("")).value_or(Date{});
}

class DummyDataProviderTest : public ::testing::Test {
  protected:
    DummyDataProviderTest() { useZone("UTC"); }
    ~DummyDataProviderTest() override { useZone("UTC"); }
    static void useZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    testing::ManualExecutor executor;
    DummyDataProvider provider{kReference};
};

TEST_F(DummyDataProviderTest, TheSampleSessionFillsWhatTheScreensShow) {
    DemoSession::Options options;
    options.version = "0.2.0";
    options.referenceDate = kReference;
    options.simulateModelDownload = false;
    options.startBackgroundTasks = false;
    options.now = [] { return kReference + std::chrono::hours(5); };  // the demo keeps its own day
    DemoSession session(executor, std::move(options));
    session.launch();
    AppModel& m = session.model();
    m.refreshFromAPI();
    executor.runUntilIdle();

    EXPECT_EQ(m.statusSub(), "Demo session · processing queued audio");
    EXPECT_EQ(m.statusTooltip(), "Corvane · Demo data");
    EXPECT_EQ(m.currentDate(), kReference);
    EXPECT_EQ(m.account().lastRefreshAt(), kReference);
    std::optional<ActivityHistogramResponse> histogram;
    m.loadActivityHistogram(28, [&](auto response, auto) { histogram = std::move(response); });
    executor.runUntilIdle();
    EXPECT_EQ(histogram, provider.activityHistogram(m.machine().workerID, 28))
        << "no network asked";
    EXPECT_EQ(m.account().payoutHistory(), provider.payoutHistory());
    EXPECT_EQ(m.account().topJobs().front().clientDisplayName, "Acme Transcripts");
    const auto& earnings = m.earnings();
    EXPECT_EQ(earnings.earningsVisibleRange(), EarningsRange::month);
    ASSERT_EQ(earnings.earningsHourly().size(), 24u);
    EXPECT_NEAR(total(earnings.earningsHourly()), total(earnings.earningsLast30()), 1e-6);

    // Balances, summary and series tell one story.
    const auto summary = provider.earningsSummary();
    const auto series = provider.earningsSnapshot(EarningsRange::all).daily;
    EXPECT_NEAR(*m.account().lifetimeEarnings(), total(series), 0.006);
    EXPECT_NEAR(*m.account().heldBalance(), total({series.end() - 7, series.end()}), 0.006);
    EXPECT_EQ(earnings.jobsCompletedToday(), summary.jobsCompletedToday);
    // The shards of the last 15 minutes before the reference instant are the estimated ones.
    ASSERT_TRUE(m.estimatedRecentUnpaidCompletedWork());
    EXPECT_NEAR(*m.estimatedRecentUnpaidCompletedWork() * 4, *summary.recentHourlyUSD, 0.03);
    EXPECT_EQ(std::int64_t(m.account()
                               .recentEstimatedActivity(m.currentDate(),
                                                        earnings.hourlyEstimateWindowMinutes())
                               .size()),
              summary.recentCompletedShards);
    // The rows alone give the summary's day and month.
    m.earnings().applyDerivedEarningsSummaryFallback(earnings.earningsLast30Rows(),
                                                     m.currentDate());
    EXPECT_EQ(earnings.deltaVsYesterday(), summary.deltaVsYesterdayUSD);
    EXPECT_EQ(earnings.monthProjection(), summary.monthProjectionUSD);
}

TEST_F(DummyDataProviderTest, EachRangeCoversItsDaysEndingOnTheReferenceDay) {
    const std::tuple<EarningsRange, std::size_t, const char*> rows[] = {
        {EarningsRange::day, 1, "2026-06-18"},
        {EarningsRange::week, 7, "2026-06-12"},
        {EarningsRange::month, 30, "2026-05-20"},
        {EarningsRange::quarter, 90, "2026-03-21"},
        {EarningsRange::all, 180, "2025-12-21"}};
    const auto all = provider.earningsSnapshot(EarningsRange::all);
    for (const auto& [range, days, first] : rows) {
        SCOPED_TRACE(std::string(rawValue(range)));
        const auto snapshot = provider.earningsSnapshot(range);
        ASSERT_EQ(snapshot.dailyRows.size(), days);
        EXPECT_EQ(snapshot.dailyRows.front().date, first);
        EXPECT_EQ(snapshot.dailyRows.back().date, "2026-06-18");
        EXPECT_EQ(snapshot.startDate, parsed(std::string(first) + " 00:00:00"));
        EXPECT_NEAR(total(snapshot.hourly), total(snapshot.daily), 1e-6);
        // A day earns the same in every range that shows it.
        EXPECT_TRUE(std::equal(snapshot.dailyRows.begin(), snapshot.dailyRows.end(),
                               all.dailyRows.end() - days));
    }
    // Today has earned only up to 08:30.
    const auto today = provider.earningsSnapshot(EarningsRange::day).hourly;
    EXPECT_GT(today[8], 0);
    EXPECT_EQ(total({today.begin() + 9, today.end()}), 0);
    // A day later, the same dates keep their amounts and the former today is whole.
    const auto later =
        DummyDataProvider(kReference + std::chrono::hours(24)).dailyEarningsSeries(180);
    EXPECT_TRUE(std::equal(all.dailyRows.begin() + 1, all.dailyRows.end() - 1, later.begin()));
    EXPECT_GT(later[178].amountUSD, all.dailyRows.back().amountUSD);

    useZone("America/New_York");  // clocks went forward on 2026-03-08
    DummyDataProvider spring(dateFromUnixSeconds(1'773'158'400));  // 2026-03-10 12:00 local
    std::string dates;
    for (const auto& row : spring.dailyEarningsSeries(4)) dates += row.date + " ";
    EXPECT_EQ(dates, "2026-03-07 2026-03-08 2026-03-09 2026-03-10 ");
    EXPECT_EQ(unixSeconds(*spring.earningsSnapshot(EarningsRange::week).startDate), 1'772'600'400);
}

TEST_F(DummyDataProviderTest, RecordsAreDatedFromTheReferenceInstant) {
    const auto payouts = provider.payoutHistory();
    EXPECT_EQ(secondsBetween(parsed(payouts[0].createdAt), kReference), 3 * 86400.0);
    for (std::size_t i = 1; i < payouts.size(); ++i) {
        EXPECT_EQ(secondsBetween(parsed(payouts[i].createdAt), parsed(payouts[i - 1].createdAt)),
                  7 * 86400.0);
        EXPECT_EQ(payouts[i].amountCents, std::llround(*payouts[i].amountUSD * 100));
    }
    const auto dashboard = provider.dashboard("wk_x");
    EXPECT_EQ(dashboard.nextRelease, dashboard.holdSchedule.front());
    EXPECT_EQ(parsed(dashboard.nextRelease->holdUntil), parsed(std::string("2026-06-19 00:00:00")));
}

TEST_F(DummyDataProviderTest, TheActivityHistogramCountsEachWeekdayAsOftenAsItFell) {
    const auto week = provider.activityHistogram("wk_demo", 7);
    const auto eight = provider.activityHistogram("wk_demo", 8);
    EXPECT_EQ(provider.activityHistogram("wk_demo", 0).activeMinutesTotal, 0);
    std::int64_t minutes = 0;
    for (int day = 0; day < 7; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            minutes += week.histogram[day][hour];
            EXPECT_LE(week.histogram[day][hour], 60);
            // The eighth day back is another Thursday (index 3).
            EXPECT_EQ(eight.histogram[day][hour], (day == 3 ? 2 : 1) * week.histogram[day][hour]);
        }
    }
    EXPECT_EQ(minutes, week.activeMinutesTotal);
    // Busy office hours, quiet nights: what the schedule suggestions look for.
    EXPECT_GE(week.histogram[1][10], 30);
    EXPECT_LT(week.histogram[1][3], 30);
}

}  // namespace
}  // namespace corvane
