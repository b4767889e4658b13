// The account endpoints of the local coordinator: the worker's dashboard (its completed shards,
// its payout pair, and the balances and payout history a test sets; no money moves here), the
// earnings summary (shards done, nothing earned), empty earnings and job histories, the payout
// methods kept in memory, and the payout-preference endpoint with the two refusals a real one
// gives: a method that isn't set up yet, and a payout already queued for this cycle.

#include <httplib.h>

#include <algorithm>
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

// A method as the coordinator lists it: snake-case keys, the bank account shown by its last
// digits.
nlohmann::json wireMethod(const WorkerPayoutMethod& method, std::size_t count) {
    nlohmann::json out{{"id", method.id},
                       {"method", rawValue(method.method)},
                       {"is_primary", method.isPrimary},
                       // The primary one goes last: another must take its place first.
                       {"can_delete", !(method.isPrimary && count > 1)}};
    auto put = [&out](const char* key, const std::optional<std::string>& value) {
        if (value) out[key] = *value;
    };
    put("wallet_address", method.walletAddress);
    put("email", method.email);
    put("routing_number", method.routingNumber);
    put("account_number", method.accountNumber);
    put("account_holder_name", method.accountHolderName);
    if (method.accountType) out["account_type"] = rawValue(*method.accountType);
    if (method.method == PayoutMethodType::ach && method.accountNumber) {
        const auto& number = *method.accountNumber;
        const std::string kind =
            method.accountType == PayoutBankAccountType::savings ? "Savings" : "Checking";
        out["detail"] = kind + " ····" + number.substr(number.size() > 4 ? number.size() - 4 : 0);
    }
    put("created_at", method.createdAt);
    put("status", method.status);
    return out;
}

// The field a new method of `type` lacks, if any.
std::optional<std::string> missingField(PayoutMethodType type, const nlohmann::json& body) {
    std::vector<const char*> required;
    switch (type) {
        case PayoutMethodType::usdc:
            required = {"wallet_address"};
            break;
        case PayoutMethodType::paypal:
            required = {"email"};
            break;
        case PayoutMethodType::ach:
            required = {"routing_number", "account_number", "account_holder_name"};
            break;
    }
    for (const char* key : required) {
        if (!isString(body, key)) return key;
    }
    return std::nullopt;
}

std::optional<std::string> optionalString(const nlohmann::json& body, const char* key) {
    if (!isString(body, key)) return std::nullopt;
    return body[key].get<std::string>();
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
        dashboard.earningsUSD = balances_;
        dashboard.payoutHistory = payoutHistory_;
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

std::vector<WorkerPayoutMethod> DevCoordinator::payoutMethods() const {
    std::lock_guard lock(mutex_);
    return payoutMethods_;
}

void DevCoordinator::addPayout(WorkerDashboard::PayoutDisbursement payout) {
    std::lock_guard lock(mutex_);
    payoutHistory_.push_back(std::move(payout));
}

void DevCoordinator::setBalances(double held, double available) {
    std::lock_guard lock(mutex_);
    balances_ = {held, available, held + available};
}

void DevCoordinator::handleListPayoutMethods(const httplib::Request&, httplib::Response& response,
                                             const std::string&) {
    nlohmann::json methods = nlohmann::json::array();
    nlohmann::json body;
    std::lock_guard lock(mutex_);
    for (const auto& method : payoutMethods_) {
        methods.push_back(wireMethod(method, payoutMethods_.size()));
        if (method.isPrimary) body["primary_method_id"] = method.id;
    }
    body["methods"] = std::move(methods);
    answer(response, 200, body);
}

void DevCoordinator::handleAddPayoutMethod(const httplib::Request& request,
                                           httplib::Response& response, const std::string&) {
    const nlohmann::json body =
        nlohmann::json::parse(request.body, nullptr, /*allow_exceptions=*/false);
    std::optional<PayoutMethodType> type;
    if (body.is_object() && isString(body, "method"))
        type = payoutMethodTypeFromRaw(body["method"].get<std::string>());
    if (!type) {
        answer(response, 422, {{"detail", "Unknown payout method"}, {"field", "method"}});
        return;
    }
    if (auto field = missingField(*type, body)) {
        answer(response, 422, {{"detail", "This field is required."}, {"field", *field}});
        return;
    }
    WorkerPayoutMethod method;
    method.method = *type;
    method.walletAddress = optionalString(body, "wallet_address");
    method.email = optionalString(body, "email");
    method.routingNumber = optionalString(body, "routing_number");
    method.accountNumber = optionalString(body, "account_number");
    method.accountHolderName = optionalString(body, "account_holder_name");
    if (auto kind = optionalString(body, "account_type"))
        method.accountType = payoutBankAccountTypeFromRaw(*kind);
    method.createdAt = nowISO8601();
    method.status = "active";
    const bool makePrimary = body.contains("make_primary") && body["make_primary"].is_boolean() &&
                             body["make_primary"].get<bool>();
    nlohmann::json answered;
    {
        std::lock_guard lock(mutex_);
        method.id = "pm_" + std::to_string(nextPayoutMethodNumber_++);
        // The first method becomes primary whatever was asked.
        method.isPrimary = makePrimary || payoutMethods_.empty();
        if (method.isPrimary) {
            for (auto& other : payoutMethods_) other.isPrimary = false;
        }
        payoutMethods_.push_back(method);
        answered = wireMethod(method, payoutMethods_.size());
        noteChange();
    }
    answer(response, 201, answered);
}

void DevCoordinator::handleSetPrimaryPayoutMethod(const httplib::Request&,
                                                  httplib::Response& response,
                                                  const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(payoutMethods_.begin(), payoutMethods_.end(),
                           [&](const auto& method) { return method.id == id; });
    if (it == payoutMethods_.end()) {
        answer(response, 404, {{"detail", "Payout method not found"}});
        return;
    }
    for (auto& method : payoutMethods_) method.isPrimary = method.id == id;
    noteChange();
    response.status = 204;
}

void DevCoordinator::handleRemovePayoutMethod(const httplib::Request&, httplib::Response& response,
                                              const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = std::find_if(payoutMethods_.begin(), payoutMethods_.end(),
                           [&](const auto& method) { return method.id == id; });
    if (it == payoutMethods_.end()) {
        answer(response, 404, {{"detail", "Payout method not found"}});
        return;
    }
    if (it->isPrimary && payoutMethods_.size() > 1) {
        answer(response, 409,
               {{"detail", "Make another method primary before removing this one."}});
        return;
    }
    payoutMethods_.erase(it);
    noteChange();
    response.status = 204;
}

}  // namespace corvane::dev
