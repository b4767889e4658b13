#pragma once
// What the account has earned as the screens show it: today's figures and estimates, the month,
// the canonical 30-day and 24-hour series, and a snapshot per earnings range. Figures come from
// the coordinator's summary, or from the daily rows when the summary is down.

#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

// Dollar amounts as the screens show and sum them.
inline double roundedToCents(double usd) {
    return std::round(usd * 100) / 100;
}

enum class EarningsRange { day, week, month, quarter, all };
std::string_view rawValue(EarningsRange range);
// Days asked of the coordinator; absent for `all`, which asks for all time instead.
std::optional<int> earningsRangeDays(EarningsRange range);

struct EarningsRangeSnapshot {
    std::vector<double> daily;
    std::vector<DailyEarning> dailyRows;
    std::vector<double> hourly;  // always 24 values
    std::optional<Date> startDate;
    bool operator==(const EarningsRangeSnapshot&) const = default;

    // From the coordinator's daily rows and hour totals; the start is the first row's local day.
    static EarningsRangeSnapshot fromRows(std::vector<DailyEarning> rows,
                                          std::vector<double> hours);
};

class EarningsState {
  public:
    static constexpr std::int64_t defaultWindowMinutes = 15;

    explicit EarningsState(ModelChanges& changes) : changes_(changes) {}
    EarningsState(const EarningsState&) = delete;
    EarningsState& operator=(const EarningsState&) = delete;

    void applyEarningsSummary(const EarningsSummary& summary);
    void applyEarningsSnapshot(const EarningsRangeSnapshot& snapshot, EarningsRange range,
                               bool updateCanonicalSeries);
    // Today, the day before and the month from the rows, as of `referenceDate`.
    void applyDerivedEarningsSummaryFallback(const std::vector<DailyEarning>& rows,
                                             Date referenceDate);
    // A range request starts: loading, and the generation its answer must carry.
    std::uint64_t beginEarningsRangeRefresh();
    // The answer of request `generation`; an older request answering late is dropped (false).
    bool finishEarningsRangeRefresh(std::uint64_t generation, EarningsRange range,
                                    const std::optional<EarningsRangeSnapshot>& snapshot);
    // Empties the session's figures; the visible range goes back to the month.
    void reset();

    std::optional<double> todayEarnings() const { return todayEarnings_; }
    std::optional<double> hourlyEstimate() const { return hourlyEstimate_; }
    bool hourlyEstimateUsesRecentWindow() const { return hourlyEstimateUsesRecentWindow_; }
    std::int64_t hourlyEstimateWindowMinutes() const { return hourlyEstimateWindowMinutes_; }
    std::optional<double> monthEarnings() const { return monthEarnings_; }
    std::optional<double> monthProjection() const { return monthProjection_; }
    std::optional<double> deltaVsYesterday() const { return deltaVsYesterday_; }
    std::optional<std::int64_t> activeMinutesToday() const { return activeMinutesToday_; }
    std::int64_t jobsCompletedToday() const { return jobsCompletedToday_; }
    std::int64_t recentCompletedShards() const { return recentCompletedShards_; }
    const std::vector<DailyEarning>& earningsLast30Rows() const { return earningsLast30Rows_; }
    const std::vector<double>& earningsLast30() const { return earningsLast30_; }
    const std::vector<double>& earningsHourly() const { return earningsHourly_; }
    EarningsRange earningsVisibleRange() const { return earningsVisibleRange_; }
    bool earningsRangeLoading() const { return earningsRangeLoading_; }
    const std::map<EarningsRange, EarningsRangeSnapshot>& earningsRangeSnapshots() const {
        return earningsRangeSnapshots_;
    }

    // The last 7 days of the canonical rows (all of them when fewer); absent without rows.
    std::optional<double> weekEarnings() const;
    EarningsRangeSnapshot currentEarningsSnapshot() const;
    // The hour of `now` for the day range, else the last day of the visible series.
    int earningsChartTodayIndex(Date now) const;
    std::string hourlyEstimateCaption() const;
    std::string hourlyEstimateShortCaption() const;
    // Recent unpaid work from the "estimated" items of the window: their sum in cents (absent
    // when nothing), and the line that says where it comes from.
    static std::optional<double> estimatedRecentUnpaidCompletedWork(
        const std::vector<WorkerDashboard::ActivityItem>& recentEstimated);
    std::string estimatedRecentUnpaidSummary(std::size_t recentEstimatedCount) const;

    // 24 values: padded with zeros in front, or the last 24 of a longer list.
    static std::vector<double> normalizeHourly(std::vector<double> hours);

  private:
    template <typename T, typename U>
    void assign(T& field, U&& value) {
        changes_.assign(field, std::forward<U>(value), ModelPart::earnings);
    }

    ModelChanges& changes_;
    std::optional<double> todayEarnings_;
    std::optional<double> hourlyEstimate_;
    bool hourlyEstimateUsesRecentWindow_ = false;
    std::int64_t hourlyEstimateWindowMinutes_ = defaultWindowMinutes;
    std::optional<double> monthEarnings_, monthProjection_, deltaVsYesterday_;
    std::optional<std::int64_t> activeMinutesToday_;
    std::int64_t jobsCompletedToday_ = 0;
    std::int64_t recentCompletedShards_ = 0;
    std::vector<DailyEarning> earningsLast30Rows_;
    std::vector<double> earningsLast30_;
    std::vector<double> earningsHourly_ = std::vector<double>(24, 0.0);
    std::map<EarningsRange, EarningsRangeSnapshot> earningsRangeSnapshots_;
    EarningsRange earningsVisibleRange_ = EarningsRange::month;
    bool earningsRangeLoading_ = false;
    std::uint64_t earningsRangeRequestGeneration_ = 0;
};

}  // namespace corvane
