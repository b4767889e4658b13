#pragma once
// The signed-in account as the coordinator last told it: balances, payouts, recent activity, the
// week's best jobs, when that was, and the published version. A failed refresh changes nothing
// here, so the screens keep the last good values.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class AccountState {
  public:
    explicit AccountState(ModelChanges& changes) : changes_(changes) {}
    AccountState(const AccountState&) = delete;
    AccountState& operator=(const AccountState&) = delete;

    void applyDashboard(const WorkerDashboard& dashboard);
    // Stores the version; the update banner waits for an installer, so it is never offered.
    void applyLatestAppVersion(const AppVersion& version, std::string_view runningVersion);
    void setTopJobs(std::vector<JobRecord> jobs);
    void setLastRefreshAt(std::optional<Date> date);
    void reset();

    const std::optional<std::string>& coordinatorWorkerStatus() const {
        return coordinatorWorkerStatus_;
    }
    // The coordinator's own word for the worker is "busy".
    bool coordinatorReportsBusy() const;
    std::optional<double> heldBalance() const { return heldBalance_; }
    std::optional<double> availableBalance() const { return availableBalance_; }
    std::optional<double> lifetimeEarnings() const { return lifetimeEarnings_; }
    const std::vector<WorkerDashboard::PayoutDisbursement>& payoutHistory() const {
        return payoutHistory_;
    }
    const std::vector<WorkerDashboard::ActivityItem>& recentActivity() const {
        return recentActivity_;
    }
    const std::vector<JobRecord>& topJobs() const { return topJobs_; }
    const std::optional<Date>& lastRefreshAt() const { return lastRefreshAt_; }
    const std::optional<AppVersion>& latestAppVersion() const { return latestAppVersion_; }
    bool updateAvailable() const { return updateAvailable_; }

    // The "estimated" activity created within the `windowMinutes` before `now`.
    std::vector<WorkerDashboard::ActivityItem> recentEstimatedActivity(
        Date now, std::int64_t windowMinutes) const;

    // Dotted integers compared position by position, missing positions as 0.
    static bool isVersionNewer(std::string_view version, std::string_view current);

  private:
    ModelChanges& changes_;
    std::optional<std::string> coordinatorWorkerStatus_;
    std::optional<double> heldBalance_, availableBalance_, lifetimeEarnings_;
    std::vector<WorkerDashboard::PayoutDisbursement> payoutHistory_;
    std::vector<WorkerDashboard::ActivityItem> recentActivity_;
    std::vector<JobRecord> topJobs_;
    std::optional<Date> lastRefreshAt_;
    std::optional<AppVersion> latestAppVersion_;
    bool updateAvailable_ = false;
};

}  // namespace corvane
