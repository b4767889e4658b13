#include "CorvaneApp/demo/DummyDataProvider.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <numbers>
#include <numeric>

namespace corvane {
namespace {

constexpr double secondsPerDay = 86400;
// The newest payout went out this many days before the reference day; weekly before that.
constexpr int payoutLagDays = 3;
constexpr int payoutCount = 5;
constexpr int newestPayoutNumber = 418;
constexpr int activityCount = 10;
constexpr double activitySpacingSeconds = 240;
constexpr double newestActivityAgeSeconds = 90;

std::string format(const char* pattern, int number) {
    char text[48];
    std::snprintf(text, sizeof text, pattern, number);
    return text;
}

std::string isoUTC(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text;
}

// Nights and evenings, when the owner is away from the machine, earn the most.
constexpr std::array<double, 24> hourWeights{1.6,  1.6,  1.6,  1.6,  1.6,  1.6,  1.6,  0.9,
                                             0.9,  0.45, 0.45, 0.45, 0.45, 0.45, 0.45, 0.45,
                                             0.45, 0.45, 0.9,  0.9,  0.9,  0.9,  1.4,  1.4};

// One local calendar day, `offset` days before the reference day.
struct DemoDay {
    std::tm parts;  // noon of that day, normalised
    long civilIndex;
    int offset;

    std::string key() const { return localDayKey(fromLocalParts(parts)); }
    int mondayFirstWeekday() const { return (parts.tm_wday + 6) % 7; }
};

class Calendar {
  public:
    explicit Calendar(Date reference) : referenceParts_(localParts(reference)) {
        for (int hour = 0; hour < 24; ++hour) {
            const double covered =
                hour < referenceParts_.tm_hour ? 1.0
                : hour == referenceParts_.tm_hour
                    ? (referenceParts_.tm_min * 60 + referenceParts_.tm_sec) / 3600.0
                    : 0.0;
            todayWeights_[hour] = hourWeights[hour] * covered;
        }
    }

    DemoDay day(int offset) const {
        std::tm parts = referenceParts_;
        parts.tm_mday -= offset;
        parts.tm_hour = 12;  // far from any daylight-saving jump
        parts.tm_min = parts.tm_sec = 0;
        parts = localParts(fromLocalParts(parts));
        using namespace std::chrono;
        const year_month_day civil{year(parts.tm_year + 1900), month(unsigned(parts.tm_mon + 1)),
                                   std::chrono::day(unsigned(parts.tm_mday))};
        return {parts, static_cast<long>(sys_days(civil).time_since_epoch().count()), offset};
    }

    // The hour weights a day's amount is spread by: the reference day only up to now.
    const std::array<double, 24>& weights(int offset) const {
        return offset == 0 ? todayWeights_ : hourWeights;
    }

    // What a day earned: a weekly and a slower swing around a steady base, more at weekends,
    // and on the reference day only the share of its hours already gone.
    double amount(int offset) const {
        const DemoDay d = day(offset);
        const double n = double(d.civilIndex);
        double full = 4.2 + 0.85 * std::sin(2 * std::numbers::pi * n / 11) +
                      0.4 * std::cos(2 * std::numbers::pi * n / 5) +
                      (d.mondayFirstWeekday() >= 5 ? 1.1 : 0.0);
        if (offset == 0) {
            const auto& w = weights(0);
            full *= std::accumulate(w.begin(), w.end(), 0.0) /
                    std::accumulate(hourWeights.begin(), hourWeights.end(), 0.0);
        }
        return roundedToCents(full);
    }

    double sum(int fromOffset, int toOffset) const {  // both inclusive
        double total = 0;
        for (int offset = fromOffset; offset <= toOffset; ++offset) total += amount(offset);
        return roundedToCents(total);
    }

    const std::tm& referenceParts() const { return referenceParts_; }
    int minutesToday() const { return referenceParts_.tm_hour * 60 + referenceParts_.tm_min; }

  private:
    std::tm referenceParts_;
    std::array<double, 24> todayWeights_{};
};

int clampedDays(int days) {
    return std::clamp(days, 0, DummyDataProvider::allTimeDays);
}

std::int64_t shardsFor(double amountUSD) {
    return std::llround(amountUSD / DummyDataProvider::averageShardPayoutUSD);
}

// Minutes the owner is at the machine in one weekday's hour: office hours on weekdays, a looser
// afternoon at weekends, almost nothing at night.
int ownerMinutes(int weekday, int hour) {
    if (weekday < 5) {
        if (hour >= 9 && hour <= 17) return 45 + (weekday * 5 + hour) % 11;
        if (hour == 8 || (hour >= 18 && hour <= 21)) return 20 + (hour + weekday) % 7;
        if (hour == 22) return 10;
        if (hour == 7) return 8;
        return (weekday + hour) % 3;
    }
    if (hour >= 10 && hour <= 20) return 18 + (hour * 3 + weekday) % 9;
    return (weekday + hour) % 3;
}

}  // namespace

std::vector<DailyEarning> DummyDataProvider::dailyEarningsSeries(int dayCount) const {
    const Calendar calendar(referenceDate_);
    std::vector<DailyEarning> rows;
    for (int offset = clampedDays(dayCount) - 1; offset >= 0; --offset)
        rows.push_back({calendar.day(offset).key(), calendar.amount(offset)});
    return rows;
}

std::vector<double> DummyDataProvider::earningsByHour(std::optional<int> days, bool allTime) const {
    const Calendar calendar(referenceDate_);
    const int count = clampedDays(allTime || !days ? allTimeDays : *days);
    std::vector<double> hours(24, 0.0);
    for (int offset = 0; offset < count; ++offset) {
        const auto& w = calendar.weights(offset);
        const double total = std::accumulate(w.begin(), w.end(), 0.0);
        if (total <= 0) continue;  // the reference day at midnight has earned nothing yet
        const double amount = calendar.amount(offset);
        for (int hour = 0; hour < 24; ++hour) hours[hour] += amount * w[hour] / total;
    }
    return hours;
}

EarningsRangeSnapshot DummyDataProvider::earningsSnapshot(EarningsRange range) const {
    const auto days = earningsRangeDays(range);
    return EarningsRangeSnapshot::fromRows(dailyEarningsSeries(days.value_or(allTimeDays)),
                                           earningsByHour(days, range == EarningsRange::all));
}

ActivityHistogramResponse DummyDataProvider::activityHistogram(const std::string& workerID,
                                                               int days) const {
    const int span = std::max(days, 0);
    // How often each weekday falls in the `span` days ending today.
    const int todayWeekday = Calendar(referenceDate_).day(0).mondayFirstWeekday();
    std::array<std::int64_t, 7> occurrences{};
    for (int weekday = 0; weekday < 7; ++weekday) {
        const int back = (todayWeekday - weekday + 7) % 7;
        occurrences[weekday] = span / 7 + (back < span % 7 ? 1 : 0);
    }
    ActivityHistogramResponse response;
    response.workerId = workerID;
    response.days = span;
    response.sampleCount = std::int64_t(span) * 1440;  // one sample a minute
    response.histogram.assign(7, std::vector<std::int64_t>(24, 0));
    for (int weekday = 0; weekday < 7; ++weekday) {
        for (int hour = 0; hour < 24; ++hour) {
            const std::int64_t minutes = occurrences[weekday] * ownerMinutes(weekday, hour);
            response.histogram[weekday][hour] = minutes;
            response.activeMinutesTotal += minutes;
        }
    }
    return response;
}

std::vector<WorkerDashboard::PayoutDisbursement> DummyDataProvider::payoutHistory() const {
    const Calendar calendar(referenceDate_);
    std::vector<WorkerDashboard::PayoutDisbursement> payouts;
    for (int k = 0; k < payoutCount; ++k) {
        // Each payout carries the week that left its hold just before it went out.
        const int sentOffset = payoutLagDays + 7 * k;
        const double amount = calendar.sum(sentOffset + holdDays, sentOffset + holdDays + 6);
        const Date sent = addSeconds(referenceDate_, -sentOffset * secondsPerDay);
        WorkerDashboard::PayoutDisbursement payout;
        payout.payoutEventId = format("payout_demo_%04d", newestPayoutNumber - k);
        payout.amountCents = std::llround(amount * 100);
        payout.amountUSD = amount;
        payout.status = "settled";
        payout.method = "usdc";
        payout.createdAt = isoUTC(sent);
        payout.settledAt = isoUTC(addSeconds(sent, secondsPerDay));
        payouts.push_back(std::move(payout));
    }
    return payouts;
}

std::vector<WorkerDashboard::ActivityItem> DummyDataProvider::recentActivity() const {
    std::vector<WorkerDashboard::ActivityItem> items;
    for (int i = 0; i < activityCount; ++i) {
        const double age = newestActivityAgeSeconds + activitySpacingSeconds * i;
        const Date created = addSeconds(referenceDate_, -age);
        WorkerDashboard::ActivityItem item;
        item.payoutId = format("pi_demo_%04d", 5210 - i);
        item.jobId = format("job_demo_%04d", 871 - i / 2);  // two shards per job
        item.shardId = format("shard_demo_%04d", 1742 - i);
        item.durationSeconds = 240 + (i * 37) % 90;
        item.payoutUSD = roundedToCents(0.11 + 0.01 * ((i * 3) % 7));
        item.createdAt = isoUTC(created);
        // The coordinator has yet to confirm the last few minutes; the rest sits in its hold.
        if (age < recentWindowMinutes * 60) {
            item.status = "estimated";
        } else {
            item.status = "held";
            item.holdUntil = isoUTC(addSeconds(created, holdDays * secondsPerDay));
        }
        items.push_back(std::move(item));
    }
    return items;
}

WorkerDashboard DummyDataProvider::dashboard(const std::string& workerID) const {
    const Calendar calendar(referenceDate_);
    const double lifetime = calendar.sum(0, allTimeDays - 1);
    const double held = calendar.sum(0, holdDays - 1);
    // Released since the newest payout went out.
    const double available = calendar.sum(holdDays, holdDays + payoutLagDays - 1);

    WorkerDashboard dashboard;
    dashboard.workerId = workerID;
    dashboard.workerState = WorkerDashboard::WorkerState{
        "busy", isoUTC(addSeconds(referenceDate_, -4)), isoUTC(addSeconds(referenceDate_, -11))};
    dashboard.jobsCompleted = {shardsFor(calendar.amount(0)), shardsFor(calendar.sum(0, 6)),
                               shardsFor(lifetime)};
    dashboard.earningsUSD = {held, available, roundedToCents(held + available)};
    dashboard.payoutSummary.totalEarnedUSD = lifetime;
    dashboard.payoutSummary.releasedUSD = roundedToCents(lifetime - held);
    dashboard.payoutSummary.disbursedUSD = roundedToCents(lifetime - held - available);
    dashboard.payoutSummary.pendingUSD = available;
    dashboard.payoutSummary.schedule = "weekly";
    dashboard.payoutHistory = payoutHistory();
    dashboard.trustTier = "standard";
    dashboard.qualityScore = 0.97;
    dashboard.reputationUpdatedAt = isoUTC(addSeconds(referenceDate_, -secondsPerDay));
    // Oldest held day first: it is the next to be released.
    for (int offset = holdDays - 1; offset >= 0; --offset) {
        const double amount = calendar.amount(offset);
        std::tm releaseDay = calendar.day(offset).parts;
        releaseDay.tm_mday += holdDays;
        releaseDay.tm_hour = releaseDay.tm_min = releaseDay.tm_sec = 0;
        dashboard.holdSchedule.push_back(
            {isoUTC(fromLocalParts(releaseDay)), amount, shardsFor(amount)});
    }
    dashboard.nextRelease = dashboard.holdSchedule.front();
    dashboard.activity = recentActivity();
    return dashboard;
}

EarningsSummary DummyDataProvider::earningsSummary() const {
    const Calendar calendar(referenceDate_);
    const double today = calendar.amount(0);
    const int workMinutes = calendar.minutesToday() * 7 / 10;
    const int dayOfMonth = calendar.referenceParts().tm_mday;
    std::tm lastOfMonth = calendar.referenceParts();
    lastOfMonth.tm_mon += 1;
    lastOfMonth.tm_mday = 0;
    lastOfMonth.tm_hour = 12;
    const int daysInMonth = localParts(fromLocalParts(lastOfMonth)).tm_mday;
    double recent = 0;
    std::int64_t recentShards = 0;
    for (const auto& item : recentActivity()) {
        if (item.status != "estimated") continue;
        recent += item.payoutUSD;
        ++recentShards;
    }
    const double monthToDate = calendar.sum(0, dayOfMonth - 1);

    EarningsSummary summary;
    summary.todayUSD = today;
    summary.todayActiveMinutes = calendar.minutesToday() * 8 / 10;
    summary.todayWorkMinutes = workMinutes;
    summary.todayHourlyUSD = workMinutes > 0 ? roundedToCents(today * 60 / workMinutes) : 0;
    summary.recentHourlyUSD = roundedToCents(recent * 60 / recentWindowMinutes);
    summary.recentWindowMinutes = recentWindowMinutes;
    summary.recentCompletedShards = recentShards;
    summary.jobsCompletedToday = shardsFor(today);
    summary.deltaVsYesterdayUSD = roundedToCents(today - calendar.amount(1));
    summary.monthToDateUSD = monthToDate;
    summary.monthProjectionUSD = roundedToCents(monthToDate * daysInMonth / dayOfMonth);
    return summary;
}

std::vector<JobRecord> DummyDataProvider::topJobs() const {
    std::vector<JobRecord> jobs;
    for (int k = 0; k < 5; ++k) {
        const double duration = 3600 - 420 * k + 17 * ((k * 5) % 3);
        const Date completed = addSeconds(referenceDate_, -(k * 26 + 5) * 3600.0);
        jobs.push_back({format("job_demo_%04d", 860 - 3 * k), duration,
                        roundedToCents(duration / 3600 * 1.35), isoUTC(completed), clientName});
    }
    return jobs;
}

ResourceSampler::Snapshot DummyDataProvider::resourceHistory() const {
    auto tenth = [](double value) { return std::round(value * 10) / 10; };
    ResourceSampler::Snapshot snapshot;
    for (std::size_t i = 0; i < ResourceSampler::chartPoints; ++i) {
        const double x = double(i);
        snapshot.cpuCorvane.push_back(tenth(42 + 9 * std::sin(x / 5) + 3 * std::cos(x / 2.3)));
        snapshot.cpuOther.push_back(tenth(14 + 5 * std::sin(x / 7 + 1)));
        snapshot.ramCorvane.push_back(tenth(11.5 + 0.8 * std::sin(x / 9)));
        snapshot.ramOther.push_back(tenth(38 + 4 * std::sin(x / 11 + 2)));
    }
    snapshot.latestCpuCorvane = snapshot.cpuCorvane.back();
    snapshot.latestCpuOther = snapshot.cpuOther.back();
    snapshot.latestRamCorvane = snapshot.ramCorvane.back();
    snapshot.latestRamOther = snapshot.ramOther.back();
    return snapshot;
}

MachineInfo DummyDataProvider::machine(const std::string& appVersion) {
    MachineInfo info;
    info.name = "demo-workstation";
    info.modelDisplay = "Demo workstation";
    info.chipDisplay = "12-core x86-64";
    info.totalCores = 12;
    info.totalRAM_GB = 32;
    info.region = "us-west · Pacific";
    info.workerID = "wk_demo_7f3a";
    info.appVersion = appVersion;
    info.signedInAs = "Demo Owner";
    return info;
}

WorkerStatusPresentation DummyDataProvider::sessionPresentation() {
    return {WorkerStatus::earning, "Earning", "Demo session · processing queued audio",
            "Corvane · Demo data"};
}

}  // namespace corvane
