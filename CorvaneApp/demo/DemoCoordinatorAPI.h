#pragma once
// The account API of the sample session: every answer comes from the sample account, no socket
// is opened. Payout methods and preferences live in memory for the life of the session. Safe
// from any thread, as the real client is.

#include <memory>
#include <mutex>
#include <vector>

#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/demo/DummyDataProvider.h"

namespace corvane {

class DemoCoordinatorAPI final : public CoordinatorAPIProtocol {
  public:
    DemoCoordinatorAPI(std::shared_ptr<const DummyDataProvider> provider, std::string workerID);

    WorkerDashboard dashboard(std::stop_token stop = {}) const override;
    EarningsSummary earningsSummary(std::stop_token stop = {}) const override;
    std::vector<DailyEarning> dailyEarnings(std::optional<int> days, bool allTime,
                                            std::stop_token stop = {}) const override;
    EarningsByHour hourlyEarnings(std::optional<int> days, bool allTime,
                                  std::stop_token stop = {}) const override;
    std::vector<JobRecord> topJobs(std::stop_token stop = {}) const override;
    WorkerPayoutMethodsResponse payoutMethods(std::stop_token stop = {}) const override;
    void addPayoutMethod(const AddPayoutMethodRequest& request,
                         std::stop_token stop = {}) const override;
    void setPrimaryPayoutMethod(const std::string& id, std::stop_token stop = {}) const override;
    void removePayoutMethod(const std::string& id, std::stop_token stop = {}) const override;
    PayoutPreferences putPayoutPrefs(const std::string& method, const std::string& schedule,
                                     std::stop_token stop = {}) const override;
    ActivityHistogramResponse activityHistogram(const std::string& workerID, int days,
                                                std::stop_token stop = {}) const override;

  private:
    std::shared_ptr<const DummyDataProvider> provider_;
    std::string workerID_;
    mutable std::mutex mutex_;
    mutable std::vector<WorkerPayoutMethod> methods_;       // guarded by mutex_
    mutable int nextMethodNumber_ = 1;                      // guarded by mutex_
    mutable std::optional<PayoutPreferences> preferences_;  // guarded by mutex_
};

}  // namespace corvane
