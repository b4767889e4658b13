#pragma once
// The demo session's account: sample records in the coordinator's own shapes, all counted from
// one reference instant so that the screens read as "now" whenever the demo runs. Every number
// comes from the calendar date it belongs to, so a day shows the same amount in every range and
// the balances, payouts and summaries add up to the same series.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/EarningsState.h"
#include "CorvaneApp/app/MachineInfo.h"
#include "CorvaneApp/app/WorkerStatus.h"
#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class DummyDataProvider {
  public:
    static constexpr int allTimeDays = 180;  // the demo account's age
    static constexpr int holdDays = 7;       // earnings wait this long before release
    static constexpr int recentWindowMinutes = 15;
    static constexpr double averageShardPayoutUSD = 0.14;
    static constexpr const char* clientName = "Acme Transcripts";

    explicit DummyDataProvider(Date referenceDate) : referenceDate_(referenceDate) {}

    Date referenceDate() const { return referenceDate_; }

    // `dayCount` local calendar days, oldest first, ending with the reference day (earned so far).
    std::vector<DailyEarning> dailyEarningsSeries(int dayCount) const;
    // What those days earned in each local hour, summed over the days: `days` of them, or the
    // whole account with `allTime`. The reference day counts only up to the reference instant.
    std::vector<double> earningsByHour(std::optional<int> days, bool allTime) const;
    EarningsRangeSnapshot earningsSnapshot(EarningsRange range) const;

    // Minutes the owner was at the machine per weekday (Monday first) and hour, over `days`.
    ActivityHistogramResponse activityHistogram(const std::string& workerID, int days) const;
    WorkerDashboard dashboard(const std::string& workerID) const;
    EarningsSummary earningsSummary() const;
    std::vector<JobRecord> topJobs() const;  // this week's, best paid first
    std::vector<WorkerDashboard::PayoutDisbursement> payoutHistory() const;  // newest first
    std::vector<WorkerDashboard::ActivityItem> recentActivity() const;       // newest first
    ResourceSampler::Snapshot resourceHistory() const;
    // The demo machine, running this build's `appVersion`.
    static MachineInfo machine(const std::string& appVersion);
    // The words the demo session shows while it works.
    static WorkerStatusPresentation sessionPresentation();

  private:
    Date referenceDate_;
};

}  // namespace corvane
