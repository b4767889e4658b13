#include "CorvaneApp/app/EarningsState.h"

#include <algorithm>
#include <numeric>

namespace corvane {

std::string_view rawValue(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return "day";
        case EarningsRange::week:
            return "week";
        case EarningsRange::month:
            return "month";
        case EarningsRange::quarter:
            return "quarter";
        case EarningsRange::all:
            return "all";
    }
    return "month";
}

std::optional<int> earningsRangeDays(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return 1;
        case EarningsRange::week:
            return 7;
        case EarningsRange::month:
            return 30;
        case EarningsRange::quarter:
            return 90;
        case EarningsRange::all:
            return std::nullopt;
    }
    return 30;
}

EarningsRangeSnapshot EarningsRangeSnapshot::fromRows(std::vector<DailyEarning> rows,
                                                      std::vector<double> hours) {
    EarningsRangeSnapshot snapshot;
    for (const auto& row : rows) snapshot.daily.push_back(row.amountUSD);
    if (!rows.empty()) {
        if (auto parts = parseLocalDayKey(rows.front().date))
            snapshot.startDate = fromLocalParts(*parts);
    }
    snapshot.dailyRows = std::move(rows);
    snapshot.hourly = EarningsState::normalizeHourly(std::move(hours));
    return snapshot;
}

void EarningsState::applyEarningsSummary(const EarningsSummary& summary) {
    ModelChanges::Batch batch(changes_);
    assign(todayEarnings_, std::optional<double>(roundedToCents(summary.todayUSD)));
    assign(hourlyEstimateWindowMinutes_,
           summary.recentWindowMinutes ? std::max<std::int64_t>(*summary.recentWindowMinutes, 1)
                                       : defaultWindowMinutes);
    assign(recentCompletedShards_, summary.recentCompletedShards.value_or(0));
    const std::int64_t minutes = summary.todayWorkMinutes.value_or(summary.todayActiveMinutes);
    std::optional<double> estimate;
    if (summary.recentHourlyUSD) {
        if (recentCompletedShards_ > 0) estimate = roundedToCents(*summary.recentHourlyUSD);
    } else if (recentCompletedShards_ > 0 || minutes > 0) {
        estimate = roundedToCents(summary.todayHourlyUSD);
    }
    assign(hourlyEstimate_, estimate);
    assign(hourlyEstimateUsesRecentWindow_, summary.recentHourlyUSD.has_value());
    assign(activeMinutesToday_, std::optional<std::int64_t>(std::max<std::int64_t>(minutes, 0)));
    assign(jobsCompletedToday_, summary.jobsCompletedToday);
    assign(deltaVsYesterday_, std::optional<double>(roundedToCents(summary.deltaVsYesterdayUSD)));
    assign(monthEarnings_, std::optional<double>(roundedToCents(summary.monthToDateUSD)));
    assign(monthProjection_, std::optional<double>(roundedToCents(summary.monthProjectionUSD)));
}

void EarningsState::applyEarningsSnapshot(const EarningsRangeSnapshot& snapshot,
                                          EarningsRange range, bool updateCanonicalSeries) {
    ModelChanges::Batch batch(changes_);
    auto& stored = earningsRangeSnapshots_[range];
    assign(stored, snapshot);
    if (!updateCanonicalSeries) return;
    assign(earningsLast30Rows_, snapshot.dailyRows);
    assign(earningsLast30_, snapshot.daily);
    assign(earningsHourly_, normalizeHourly(snapshot.hourly));
}

void EarningsState::applyDerivedEarningsSummaryFallback(const std::vector<DailyEarning>& rows,
                                                        Date referenceDate) {
    if (rows.empty()) return;
    ModelChanges::Batch batch(changes_);
    const std::tm refParts = localParts(referenceDate);
    std::tm yesterdayParts = refParts;
    yesterdayParts.tm_mday -= 1;
    const std::string todayKey = localDayKey(referenceDate);
    const std::string yesterdayKey = localDayKey(fromLocalParts(yesterdayParts));
    std::optional<double> today, yesterday;
    double month = 0;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        if (!today && row->date == todayKey) today = row->amountUSD;
        if (!yesterday && row->date == yesterdayKey) yesterday = row->amountUSD;
    }
    for (const auto& row : rows) {
        auto parts = parseLocalDayKey(row.date);
        if (parts && parts->tm_year == refParts.tm_year && parts->tm_mon == refParts.tm_mon)
            month += row.amountUSD;
    }
    const double todayValue = today.value_or(0);
    assign(todayEarnings_, std::optional<double>(roundedToCents(todayValue)));
    assign(deltaVsYesterday_,
           std::optional<double>(roundedToCents(todayValue - yesterday.value_or(0))));
    assign(monthEarnings_, std::optional<double>(roundedToCents(month)));
    assign(monthProjection_,
           std::optional<double>(
               roundedToCents(month * daysInLocalMonth(refParts) / std::max(refParts.tm_mday, 1))));
}

std::uint64_t EarningsState::beginEarningsRangeRefresh() {
    assign(earningsRangeLoading_, true);
    return ++earningsRangeRequestGeneration_;
}

bool EarningsState::finishEarningsRangeRefresh(
    std::uint64_t generation, EarningsRange range,
    const std::optional<EarningsRangeSnapshot>& snapshot) {
    if (generation != earningsRangeRequestGeneration_) return false;
    ModelChanges::Batch batch(changes_);
    if (snapshot) applyEarningsSnapshot(*snapshot, range, range == EarningsRange::month);
    assign(earningsVisibleRange_, range);
    assign(earningsRangeLoading_, false);
    return true;
}

void EarningsState::reset() {
    ModelChanges::Batch batch(changes_);
    assign(todayEarnings_, std::nullopt);
    assign(monthEarnings_, std::nullopt);
    assign(monthProjection_, std::nullopt);
    assign(hourlyEstimate_, std::nullopt);
    assign(deltaVsYesterday_, std::nullopt);
    assign(activeMinutesToday_, std::nullopt);
    assign(jobsCompletedToday_, std::int64_t{0});
    assign(recentCompletedShards_, std::int64_t{0});
    assign(earningsLast30_, std::vector<double>{});
    assign(earningsLast30Rows_, std::vector<DailyEarning>{});
    assign(earningsHourly_, std::vector<double>(24, 0.0));
    assign(hourlyEstimateWindowMinutes_, defaultWindowMinutes);
    assign(earningsVisibleRange_, EarningsRange::month);
    assign(earningsRangeSnapshots_, std::map<EarningsRange, EarningsRangeSnapshot>{});
}

std::optional<double> EarningsState::weekEarnings() const {
    if (earningsLast30Rows_.empty()) return std::nullopt;
    const std::size_t count = std::min<std::size_t>(7, earningsLast30Rows_.size());
    return std::accumulate(earningsLast30Rows_.end() - static_cast<std::ptrdiff_t>(count),
                           earningsLast30Rows_.end(), 0.0,
                           [](double sum, const DailyEarning& row) { return sum + row.amountUSD; });
}

EarningsRangeSnapshot EarningsState::currentEarningsSnapshot() const {
    if (auto it = earningsRangeSnapshots_.find(earningsVisibleRange_);
        it != earningsRangeSnapshots_.end())
        return it->second;
    if (earningsVisibleRange_ != EarningsRange::month) return {};
    return EarningsRangeSnapshot::fromRows(earningsLast30Rows_, earningsHourly_);
}

int EarningsState::earningsChartTodayIndex(Date now) const {
    if (earningsVisibleRange_ == EarningsRange::day) return std::min(localParts(now).tm_hour, 23);
    const auto daily = currentEarningsSnapshot().daily;
    return daily.empty() ? 0 : static_cast<int>(daily.size()) - 1;
}

std::string EarningsState::hourlyEstimateCaption() const {
    const std::string minutes = std::to_string(hourlyEstimateWindowMinutes_);
    if (!hourlyEstimate_) return "Waiting for the last " + minutes + " min of completed work";
    if (hourlyEstimateUsesRecentWindow_)
        return "Projected from the last " + minutes + " min of completed work";
    return "Estimated from today's completed work";
}

std::string EarningsState::hourlyEstimateShortCaption() const {
    if (!hourlyEstimate_) return "Waiting for recent work";
    if (hourlyEstimateUsesRecentWindow_)
        return "Last " + std::to_string(hourlyEstimateWindowMinutes_) + " min";
    return "Today";
}

std::optional<double> EarningsState::estimatedRecentUnpaidCompletedWork(
    const std::vector<WorkerDashboard::ActivityItem>& recentEstimated) {
    double sum = 0;
    for (const auto& item : recentEstimated) sum += item.payoutUSD;
    if (recentEstimated.empty() || sum <= 0) return std::nullopt;
    return roundedToCents(sum);
}

std::string EarningsState::estimatedRecentUnpaidSummary(std::size_t recentEstimatedCount) const {
    if (recentEstimatedCount == 0) return "Waiting for recent estimated unpaid work";
    return "Estimated from the last " + std::to_string(recentEstimatedCount) + " completed " +
           (recentEstimatedCount == 1 ? "shard" : "shards") + " over " +
           std::to_string(hourlyEstimateWindowMinutes_) + " min";
}

std::vector<double> EarningsState::normalizeHourly(std::vector<double> hours) {
    if (hours.size() == 24) return hours;
    if (hours.size() < 24) hours.insert(hours.begin(), 24 - hours.size(), 0.0);
    if (hours.size() > 24) hours.erase(hours.begin(), hours.end() - 24);
    return hours;
}

}  // namespace corvane
