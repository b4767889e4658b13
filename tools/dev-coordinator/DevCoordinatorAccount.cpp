// The account endpoints of the local coordinator: the worker's dashboard (its completed shards and
// its payout pair; no money moves here), the earnings summary (shards done, nothing earned), empty
// earnings and job histories, and the payout-preference endpoint with the two refusals a
// real one gives: a method that isn't set up yet, and a payout already queued for this cycle.

#include <httplib.h>

#include <array>
#include <chrono>
#include <ctime>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/platform/Log.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane::dev {
namespace {

void answer(httplib::Response& response, int status, const nlohmann::json& body) {
    response.status = status;
    response.set_content(body.dump(), "application/json");
}

std::string nowISO8601() {
    std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text.data();
}

bool isString(const nlohmann::json& body, const char* key) {
    return body.contains(key) && body[key].is_string() && !body[key].get<std::string>().empty();
}

}  // namespace

void DevCoordinator::handleDashboard(const httplib::Request& request, httplib::Response& response,
                                     const std::string&) {
    WorkerDashboard dashboard;
    dashboard.workerId = request.get_header_value("X-Worker-ID");
    dashboard.trustTier = "new";
    {
        std::lock_guard lock(mutex_);
        const auto completed = static_cast<std::int64_t>(results_.size());
        dashboard.jobsCompleted = {completed, completed, completed};
        dashboard.payoutSummary.method = payoutPrefs_.method;
        dashboard.payoutSummary.schedule = payoutPrefs_.schedule;
        dashboard.payoutSummary.updatedAt = payoutPrefs_.updatedAt;
    }
    answer(response, 200, dashboard.encode());
}

void DevCoordinator::handleEarningsSummary(const httplib::Request&, httplib::Response& response,
                                           const std::string&) {
    EarningsSummary summary;
    {
        std::lock_guard lock(mutex_);
        summary.jobsCompletedToday = static_cast<std::int64_t>(results_.size());
    }
    answer(response, 200, summary.encode());
}

// Daily earnings and the week's top jobs: lists, empty here.
void DevCoordinator::handleNoHistory(const httplib::Request&, httplib::Response& response,
                                     const std::string&) {
    answer(response, 200, nlohmann::json::array());
}

void DevCoordinator::handleNoHourlyEarnings(const httplib::Request&, httplib::Response& response,
                                            const std::string&) {
    answer(response, 200, {{"hours", std::vector<double>(24, 0.0)}});
}

DevCoordinator::PayoutPrefs DevCoordinator::payoutPrefs() const {
    std::lock_guard lock(mutex_);
    return payoutPrefs_;
}

void DevCoordinator::requirePayoutSetup(std::string method, std::string requiredSetup) {
    std::lock_guard lock(mutex_);
    payoutSetupRequired_[std::move(method)] = std::move(requiredSetup);
}

void DevCoordinator::setPayoutCycleInProgress(bool inProgress) {
    std::lock_guard lock(mutex_);
    payoutCycleInProgress_ = inProgress;
}

void DevCoordinator::handlePutPayoutPrefs(const httplib::Request& request,
                                          httplib::Response& response, const std::string&) {
    const nlohmann::json body =
        nlohmann::json::parse(request.body, nullptr, /*allow_exceptions=*/false);
    if (!body.is_object() || !isString(body, "method") || !isString(body, "schedule")) {
        answer(response, 422,
               {{"detail", "The payout preferences need \"method\" and \"schedule\" strings"}});
        return;
    }
    const std::string method = body["method"].get<std::string>();
    const std::string schedule = body["schedule"].get<std::string>();
    PayoutPrefs accepted;
    {
        std::lock_guard lock(mutex_);
        if (payoutCycleInProgress_) {
            answer(response, 409, {{"detail", "A payout is already queued for this cycle"}});
            return;
        }
        if (auto it = payoutSetupRequired_.find(method); it != payoutSetupRequired_.end()) {
            answer(response, 400,
                   {{"detail", "Set up " + method + " before choosing it"},
                    {"required_setup", it->second}});
            return;
        }
        payoutPrefs_ = {method, schedule, nowISO8601()};
        accepted = payoutPrefs_;
        noteChange();
    }
    log::get("DevCoordinator")->info("payout prefs set to {} {}", method, schedule);
    answer(response, 200,
           {{"method", accepted.method},
            {"schedule", accepted.schedule},
            {"updated_at", accepted.updatedAt}});
}

}  // namespace corvane::dev
