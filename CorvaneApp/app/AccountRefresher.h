#pragma once
// The account's network side, off the main sequence: one full refresh at a time (the dashboard
// with its retries, then the earnings, summary and top jobs), a range's earnings, and the
// activity histogram. Each answer is posted back to the main sequence; nothing is delivered once
// the refresher is gone or the request was cancelled.

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "CorvaneApp/app/EarningsState.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/platform/BackgroundRunner.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/SleepProvider.h"

namespace corvane {

class AccountRefresher {
  public:
    static constexpr int dashboardAttempts = 3;

    // What one full refresh brought back; absent pieces failed (and were logged).
    struct Outcome {
        std::optional<AppVersion> appVersion;
        std::optional<WorkerDashboard> dashboard;
        std::optional<EarningsRangeSnapshot> month;
        std::optional<std::pair<EarningsRange, EarningsRangeSnapshot>> visible;
        std::optional<EarningsSummary> summary;
        std::optional<std::vector<JobRecord>> topJobs;
        bool succeeded = false;  // the dashboard and every supplemental piece answered
        bool signOut = false;    // the dashboard refused the token
    };
    using FetchAppVersion = std::function<AppVersion(std::stop_token)>;
    using API = std::shared_ptr<const CoordinatorAPIProtocol>;

    AccountRefresher(Executor& mainSequence, std::shared_ptr<BackgroundRunner> runner,
                     std::shared_ptr<SleepProvider> sleeper);
    ~AccountRefresher();
    AccountRefresher(const AccountRefresher&) = delete;
    AccountRefresher& operator=(const AccountRefresher&) = delete;

    // A refresh already in flight is not doubled: the call is ignored. Without `api` only the
    // version is asked.
    void refresh(API api, FetchAppVersion fetchVersion, EarningsRange visible,
                 std::function<void(Outcome)> done);
    bool isRefreshing() const { return refreshJob_ != nullptr; }
    void cancelRefresh() { refreshJob_.reset(); }

    // A newer range request replaces one in flight, which is cancelled.
    void loadRange(API api, EarningsRange range,
                   std::function<void(std::optional<EarningsRangeSnapshot>)> done);
    void cancelRange() { rangeJob_.reset(); }
    // `error` says why there is no answer.
    void loadHistogram(API api, std::string workerID, int days,
                       std::function<void(std::optional<ActivityHistogramResponse>,
                                          std::optional<std::string> error)>
                           done);

    // The published version alone (the owner asked); absent when it could not be had.
    void loadAppVersion(FetchAppVersion fetchVersion,
                        std::function<void(std::optional<AppVersion>)> done);

    // A range's daily rows and hours; absent (and logged) when either request fails.
    static std::optional<EarningsRangeSnapshot> loadEarningsSnapshot(
        const CoordinatorAPIProtocol& api, EarningsRange range, std::stop_token stop);

  private:
    static Outcome fetch(SleepProvider& sleeper, const API& api,
                         const FetchAppVersion& fetchVersion, EarningsRange visible,
                         std::stop_token stop);
    // Posts work to the main sequence, where it runs while this refresher lives.
    std::function<void(std::function<void(AccountRefresher&)>)> poster();

    Executor& main_;
    std::shared_ptr<BackgroundRunner> runner_;
    std::shared_ptr<SleepProvider> sleeper_;
    std::unique_ptr<BackgroundJob> refreshJob_;
    std::unique_ptr<BackgroundJob> rangeJob_;
    std::unique_ptr<BackgroundJob> histogramJob_;
    std::unique_ptr<BackgroundJob> versionJob_;
    std::shared_ptr<AccountRefresher*> alive_;
};

}  // namespace corvane
