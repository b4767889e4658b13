#include "CorvaneApp/demo/DemoCoordinatorAPI.h"

#include <algorithm>

#include "CorvaneApp/coordinator/CoordinatorAPIError.h"

namespace corvane {

DemoCoordinatorAPI::DemoCoordinatorAPI(std::shared_ptr<const DummyDataProvider> provider,
                                       std::string workerID)
    : provider_(std::move(provider)), workerID_(std::move(workerID)) {}

WorkerDashboard DemoCoordinatorAPI::dashboard(std::stop_token) const {
    auto dashboard = provider_->dashboard(workerID_);
    std::lock_guard lock(mutex_);
    if (preferences_) {
        dashboard.payoutSummary.method = preferences_->method;
        dashboard.payoutSummary.schedule = preferences_->schedule;
    }
    return dashboard;
}

EarningsSummary DemoCoordinatorAPI::earningsSummary(std::stop_token) const {
    return provider_->earningsSummary();
}

std::vector<DailyEarning> DemoCoordinatorAPI::dailyEarnings(std::optional<int> days, bool allTime,
                                                            std::stop_token) const {
    return provider_->dailyEarningsSeries(allTime || !days ? DummyDataProvider::allTimeDays
                                                           : *days);
}

EarningsByHour DemoCoordinatorAPI::hourlyEarnings(std::optional<int> days, bool allTime,
                                                  std::stop_token) const {
    return {provider_->earningsByHour(days, allTime)};
}

std::vector<JobRecord> DemoCoordinatorAPI::topJobs(std::stop_token) const {
    return provider_->topJobs();
}

WorkerPayoutMethodsResponse DemoCoordinatorAPI::payoutMethods(std::stop_token) const {
    std::lock_guard lock(mutex_);
    WorkerPayoutMethodsResponse response;
    response.methods = methods_;
    for (const auto& method : methods_) {
        if (method.isPrimary) response.primaryMethodId = method.id;
    }
    return response;
}

void DemoCoordinatorAPI::addPayoutMethod(const AddPayoutMethodRequest& request,
                                         std::stop_token) const {
    std::lock_guard lock(mutex_);
    WorkerPayoutMethod method;
    method.id = "pm_demo_" + std::to_string(nextMethodNumber_++);
    method.method = request.method;
    method.walletAddress = request.walletAddress;
    method.email = request.email;
    method.routingNumber = request.routingNumber;
    method.accountNumber = request.accountNumber;
    method.accountHolderName = request.accountHolderName;
    method.accountType = request.accountType;
    if (request.method == PayoutMethodType::ach && request.accountNumber) {
        // A coordinator shows a bank account by its kind and last digits.
        const auto& number = *request.accountNumber;
        method.detail =
            std::string(request.accountType == PayoutBankAccountType::savings ? "Savings"
                                                                              : "Checking") +
            " ····" + number.substr(number.size() > 4 ? number.size() - 4 : 0);
    }
    method.canDelete = true;
    method.status = "active";
    const bool primary = request.makePrimary || methods_.empty();
    if (primary) {
        for (auto& other : methods_) other.isPrimary = false;
    }
    method.isPrimary = primary;
    methods_.push_back(std::move(method));
}

void DemoCoordinatorAPI::setPrimaryPayoutMethod(const std::string& id, std::stop_token) const {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(methods_.begin(), methods_.end(), [&](auto& m) { return m.id == id; });
    if (it == methods_.end()) throw CoordinatorAPIError::httpError(404, "payout method not found");
    for (auto& method : methods_) method.isPrimary = method.id == id;
}

void DemoCoordinatorAPI::removePayoutMethod(const std::string& id, std::stop_token) const {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(methods_.begin(), methods_.end(), [&](auto& m) { return m.id == id; });
    if (it == methods_.end()) throw CoordinatorAPIError::httpError(404, "payout method not found");
    const bool wasPrimary = it->isPrimary;
    methods_.erase(it);
    if (wasPrimary && !methods_.empty()) methods_.front().isPrimary = true;
}

PayoutPreferences DemoCoordinatorAPI::putPayoutPrefs(const std::string& method,
                                                     const std::string& schedule,
                                                     std::stop_token) const {
    std::lock_guard lock(mutex_);
    preferences_ = PayoutPreferences{method, schedule, {}};
    return *preferences_;
}

ActivityHistogramResponse DemoCoordinatorAPI::activityHistogram(const std::string& workerID,
                                                                int days, std::stop_token) const {
    return provider_->activityHistogram(workerID, days);
}

}  // namespace corvane
