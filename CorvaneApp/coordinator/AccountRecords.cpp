#include "CorvaneApp/coordinator/AccountRecords.h"

#include <algorithm>
#include <initializer_list>

namespace corvane {
namespace {

[[noreturn]] void missing(const char* key) {
    throw DecodingError(std::string("The data couldn't be read: key \"") + key + "\" is missing");
}

double requireDouble(const Json& object, const char* key) {
    auto value = json::optionalDouble(object, key);
    if (!value) missing(key);
    return *value;
}

std::int64_t requireInteger(const Json& object, const char* key) {
    auto value = json::optionalInteger(object, key);
    if (!value) missing(key);
    return *value;
}

std::optional<bool> optionalBool(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (!value) return std::nullopt;
    if (!value->is_boolean()) json::wrongType(key, "a Boolean");
    return value->get<bool>();
}

const Json& requireArray(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (!value) missing(key);
    if (!value->is_array()) json::wrongType(key, "a list");
    return *value;
}

template <typename T>
std::vector<T> decodeArray(const Json& array) {
    std::vector<T> out;
    out.reserve(array.size());
    for (const auto& item : array) out.push_back(T::decode(item));
    return out;
}

std::optional<std::string> textOf(const Json& value) {
    // Tried as a string, then an integer, then a floating number: 7.0 reads as "7", 1.5 as "1.5".
    if (value.is_string()) return value.get<std::string>();
    if (!value.is_number()) return std::nullopt;
    if (auto integer = json::asInteger(value)) return std::to_string(*integer);
    return value.dump();
}

const char* firstPresent(const Json& object, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        if (json::member(object, key)) return key;
    }
    return nullptr;
}

bool nonEmpty(const std::optional<std::string>& text) {
    return text && !text->empty();
}

}  // namespace

std::string decodeRequiredString(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (!value) missing(key);
    if (auto text = textOf(*value)) return *text;
    throw DecodingError(std::string("Expected string-like value for ") + key);
}

std::optional<std::string> decodeOptionalString(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    return value ? textOf(*value) : std::nullopt;
}

WorkerDashboard::ActivityItem WorkerDashboard::ActivityItem::decode(const Json& json) {
    ActivityItem item;
    item.payoutId = decodeRequiredString(json, "payout_id");
    item.jobId = decodeRequiredString(json, "job_id");
    item.shardId = decodeOptionalString(json, "shard_id");
    item.durationSeconds = json::optionalDouble(json, "duration_seconds");
    item.payoutUSD = requireDouble(json, "payout_usd");
    item.status = json::requireString(json, "status");
    item.createdAt = json::requireString(json, "created_at");
    item.holdUntil = json::optionalString(json, "hold_until");
    item.releasedAt = json::optionalString(json, "released_at");
    return item;
}

Json WorkerDashboard::ActivityItem::encode() const {
    Json out{{"payout_id", payoutId}, {"job_id", jobId}};
    json::putIfPresent(out, "shard_id", shardId);
    json::putIfPresent(out, "duration_seconds", durationSeconds);
    out["payout_usd"] = payoutUSD;
    out["status"] = status;
    out["created_at"] = createdAt;
    json::putIfPresent(out, "hold_until", holdUntil);
    json::putIfPresent(out, "released_at", releasedAt);
    return out;
}

WorkerDashboard::PayoutDisbursement WorkerDashboard::PayoutDisbursement::decode(const Json& json) {
    PayoutDisbursement entry;
    entry.payoutEventId = decodeOptionalString(json, "payout_event_id");
    entry.amountCents = json::optionalInteger(json, "amount_cents");
    entry.amountUSD = json::optionalDouble(json, "amount_usd");
    entry.status = json::optionalString(json, "status");
    entry.method = json::optionalString(json, "method");
    entry.createdAt = json::optionalString(json, "created_at");
    entry.settledAt = json::optionalString(json, "settled_at");
    return entry;
}

Json WorkerDashboard::PayoutDisbursement::encode() const {
    Json out = Json::object();
    json::putIfPresent(out, "payout_event_id", payoutEventId);
    json::putIfPresent(out, "amount_cents", amountCents);
    json::putIfPresent(out, "amount_usd", amountUSD);
    json::putIfPresent(out, "status", status);
    json::putIfPresent(out, "method", method);
    json::putIfPresent(out, "created_at", createdAt);
    json::putIfPresent(out, "settled_at", settledAt);
    return out;
}

namespace {

WorkerDashboard::HoldEntry decodeHold(const Json& json) {
    return {json::requireString(json, "hold_until"), requireDouble(json, "amount_usd"),
            requireInteger(json, "item_count")};
}

Json encodeHold(const WorkerDashboard::HoldEntry& hold) {
    return {{"hold_until", hold.holdUntil},
            {"amount_usd", hold.amountUSD},
            {"item_count", hold.itemCount}};
}

const Json& requireObject(const Json& object, const char* key) {
    const Json* value = json::member(object, key);
    if (!value) missing(key);
    if (!value->is_object()) json::wrongType(key, "an object");
    return *value;
}

}  // namespace

WorkerDashboard WorkerDashboard::decode(const Json& json) {
    WorkerDashboard dashboard;
    dashboard.workerId = json::requireString(json, "worker_id");
    if (const Json* state = json::member(json, "worker_state")) {
        dashboard.workerState = WorkerState{json::optionalString(*state, "status"),
                                            json::optionalString(*state, "last_poll_at"),
                                            json::optionalString(*state, "last_heartbeat")};
    }
    const Json& jobs = requireObject(json, "jobs_completed");
    dashboard.jobsCompleted = {requireInteger(jobs, "today"), requireInteger(jobs, "this_week"),
                               requireInteger(jobs, "all_time")};
    const Json& earnings = requireObject(json, "earnings_usd");
    dashboard.earningsUSD = {requireDouble(earnings, "held"), requireDouble(earnings, "available"),
                             requireDouble(earnings, "total")};
    const Json& summary = requireObject(json, "payout_summary");
    dashboard.payoutSummary = {
        requireDouble(summary, "total_earned_usd"), requireDouble(summary, "released_usd"),
        requireDouble(summary, "disbursed_usd"),    requireDouble(summary, "pending_usd"),
        json::optionalString(summary, "method"),    json::optionalString(summary, "schedule"),
        json::optionalString(summary, "updated_at")};
    dashboard.payoutHistory = decodeArray<PayoutDisbursement>(requireArray(json, "payout_history"));
    dashboard.trustTier = json::requireString(json, "trust_tier");
    dashboard.qualityScore = json::optionalDouble(json, "quality_score");
    dashboard.reputationUpdatedAt = json::optionalString(json, "reputation_updated_at");
    if (const Json* next = json::member(json, "next_release"))
        dashboard.nextRelease = decodeHold(*next);
    for (const auto& hold : requireArray(json, "hold_schedule"))
        dashboard.holdSchedule.push_back(decodeHold(hold));
    dashboard.activity = decodeArray<ActivityItem>(requireArray(json, "activity"));
    return dashboard;
}

Json WorkerDashboard::encode() const {
    Json out{{"worker_id", workerId}};
    if (workerState) {
        Json state = Json::object();
        json::putIfPresent(state, "status", workerState->status);
        json::putIfPresent(state, "last_poll_at", workerState->lastPollAt);
        json::putIfPresent(state, "last_heartbeat", workerState->lastHeartbeat);
        out["worker_state"] = std::move(state);
    }
    out["jobs_completed"] = {{"today", jobsCompleted.today},
                             {"this_week", jobsCompleted.thisWeek},
                             {"all_time", jobsCompleted.allTime}};
    out["earnings_usd"] = {{"held", earningsUSD.held},
                           {"available", earningsUSD.available},
                           {"total", earningsUSD.total}};
    Json summary{{"total_earned_usd", payoutSummary.totalEarnedUSD},
                 {"released_usd", payoutSummary.releasedUSD},
                 {"disbursed_usd", payoutSummary.disbursedUSD},
                 {"pending_usd", payoutSummary.pendingUSD}};
    json::putIfPresent(summary, "method", payoutSummary.method);
    json::putIfPresent(summary, "schedule", payoutSummary.schedule);
    json::putIfPresent(summary, "updated_at", payoutSummary.updatedAt);
    out["payout_summary"] = std::move(summary);
    out["payout_history"] = Json::array();
    for (const auto& entry : payoutHistory) out["payout_history"].push_back(entry.encode());
    out["trust_tier"] = trustTier;
    json::putIfPresent(out, "quality_score", qualityScore);
    json::putIfPresent(out, "reputation_updated_at", reputationUpdatedAt);
    if (nextRelease) out["next_release"] = encodeHold(*nextRelease);
    out["hold_schedule"] = Json::array();
    for (const auto& hold : holdSchedule) out["hold_schedule"].push_back(encodeHold(hold));
    out["activity"] = Json::array();
    for (const auto& item : activity) out["activity"].push_back(item.encode());
    return out;
}

EarningsSummary EarningsSummary::decode(const Json& json) {
    EarningsSummary summary;
    summary.todayUSD = requireDouble(json, "today_usd");
    summary.todayActiveMinutes = requireInteger(json, "today_active_minutes");
    summary.todayWorkMinutes = json::optionalInteger(json, "today_work_minutes");
    summary.todayHourlyUSD = requireDouble(json, "today_hourly_usd");
    summary.recentHourlyUSD = json::optionalDouble(json, "recent_hourly_usd");
    summary.recentWindowMinutes = json::optionalInteger(json, "recent_window_minutes");
    summary.recentCompletedShards = json::optionalInteger(json, "recent_completed_shards");
    summary.jobsCompletedToday = requireInteger(json, "jobs_completed_today");
    summary.deltaVsYesterdayUSD = requireDouble(json, "delta_vs_yesterday_usd");
    summary.monthToDateUSD = requireDouble(json, "month_to_date_usd");
    summary.monthProjectionUSD = requireDouble(json, "month_projection_usd");
    return summary;
}

Json EarningsSummary::encode() const {
    Json out{{"today_usd", todayUSD}, {"today_active_minutes", todayActiveMinutes}};
    json::putIfPresent(out, "today_work_minutes", todayWorkMinutes);
    out["today_hourly_usd"] = todayHourlyUSD;
    json::putIfPresent(out, "recent_hourly_usd", recentHourlyUSD);
    json::putIfPresent(out, "recent_window_minutes", recentWindowMinutes);
    json::putIfPresent(out, "recent_completed_shards", recentCompletedShards);
    out["jobs_completed_today"] = jobsCompletedToday;
    out["delta_vs_yesterday_usd"] = deltaVsYesterdayUSD;
    out["month_to_date_usd"] = monthToDateUSD;
    out["month_projection_usd"] = monthProjectionUSD;
    return out;
}

EarningsByHour EarningsByHour::decode(const Json& json) {
    EarningsByHour out;
    for (const auto& hour : requireArray(json, "hours")) {
        if (!hour.is_number()) json::wrongType("hours", "a list of numbers");
        out.hours.push_back(hour.get<double>());
    }
    return out;
}

DailyEarning DailyEarning::decode(const Json& json) {
    return {json::requireString(json, "date"), requireDouble(json, "amount_usd")};
}

JobRecord JobRecord::decode(const Json& json) {
    return {json::requireString(json, "job_id"), requireDouble(json, "duration_seconds"),
            requireDouble(json, "amount_usd"), json::optionalString(json, "completed_at"),
            json::optionalString(json, "client_display_name")};
}

PayoutPreferences PayoutPreferences::decode(const Json& json) {
    return {json::requireString(json, "method"), json::requireString(json, "schedule"),
            json::requireString(json, "updated_at")};
}

ActivityHistogramResponse ActivityHistogramResponse::decode(const Json& json) {
    ActivityHistogramResponse out;
    out.workerId = json::requireString(json, "worker_id");
    out.days = requireInteger(json, "days");
    out.sampleCount = requireInteger(json, "sample_count");
    out.activeMinutesTotal = requireInteger(json, "active_minutes_total");
    for (const auto& row : requireArray(json, "histogram")) {
        if (!row.is_array()) json::wrongType("histogram", "a list of lists");
        std::vector<std::int64_t> counts;
        for (const auto& cell : row) {
            auto count = json::asInteger(cell);
            if (!count) json::wrongType("histogram", "a list of lists of integers");
            counts.push_back(*count);
        }
        out.histogram.push_back(std::move(counts));
    }
    return out;
}

AppVersion AppVersion::decode(const Json& json) {
    return {json::requireString(json, "version"), json::optionalString(json, "min_version"),
            json::requireString(json, "download_url"), json::optionalString(json, "release_notes")};
}

std::string_view rawValue(PayoutMethodType type) {
    switch (type) {
        case PayoutMethodType::usdc:
            return "usdc";
        case PayoutMethodType::paypal:
            return "paypal";
        case PayoutMethodType::ach:
            return "ach";
    }
    return "ach";
}

std::optional<PayoutMethodType> payoutMethodTypeFromRaw(std::string_view raw) {
    for (auto type : allPayoutMethodTypes) {
        if (rawValue(type) == raw) return type;
    }
    return std::nullopt;
}

std::string_view rawValue(PayoutBankAccountType type) {
    return type == PayoutBankAccountType::checking ? "checking" : "savings";
}

std::optional<PayoutBankAccountType> payoutBankAccountTypeFromRaw(std::string_view raw) {
    if (raw == "checking") return PayoutBankAccountType::checking;
    if (raw == "savings") return PayoutBankAccountType::savings;
    return std::nullopt;
}

WorkerPayoutMethod WorkerPayoutMethod::decode(const Json& json) {
    WorkerPayoutMethod out;
    const char* idKey = firstPresent(json, {"id", "payout_method_id", "method_id"});
    if (!idKey) throw DecodingError("Missing payout method id");
    out.id = decodeRequiredString(json, idKey);
    std::optional<PayoutMethodType> type;
    for (const char* key : {"method", "type", "kind"}) {
        const Json* value = json::member(json, key);
        if (value && value->is_string()) type = payoutMethodTypeFromRaw(value->get<std::string>());
        if (type) break;
    }
    if (!type) throw DecodingError("Missing payout method type");
    out.method = *type;
    out.label = json::optionalString(json, "label");
    out.detail = json::optionalString(json, "detail");
    out.walletAddress = json::optionalString(json, "wallet_address");
    out.email = json::optionalString(json, "email");
    out.routingNumber = json::optionalString(json, "routing_number");
    out.accountNumber = json::optionalString(json, "account_number");
    out.accountHolderName = json::optionalString(json, "account_holder_name");
    if (auto accountType = json::optionalString(json, "account_type")) {
        out.accountType = payoutBankAccountTypeFromRaw(*accountType);
        if (!out.accountType) json::wrongType("account_type", "\"checking\" or \"savings\"");
    }
    out.isPrimary = optionalBool(json, "is_primary").value_or(false);
    out.canDelete = optionalBool(json, "can_delete");
    out.createdAt = json::optionalString(json, "created_at");
    out.updatedAt = json::optionalString(json, "updated_at");
    out.status = json::optionalString(json, "status");
    return out;
}

Json WorkerPayoutMethod::encode() const {
    Json out{{"id", id}, {"method", rawValue(method)}};
    json::putIfPresent(out, "label", label);
    json::putIfPresent(out, "detail", detail);
    json::putIfPresent(out, "walletAddress", walletAddress);
    json::putIfPresent(out, "email", email);
    json::putIfPresent(out, "routingNumber", routingNumber);
    json::putIfPresent(out, "accountNumber", accountNumber);
    json::putIfPresent(out, "accountHolderName", accountHolderName);
    if (accountType) out["accountType"] = rawValue(*accountType);
    out["isPrimary"] = isPrimary;
    json::putIfPresent(out, "canDelete", canDelete);
    out["isPlaceholder"] = isPlaceholder;
    json::putIfPresent(out, "createdAt", createdAt);
    json::putIfPresent(out, "updatedAt", updatedAt);
    json::putIfPresent(out, "status", status);
    return out;
}

std::string WorkerPayoutMethod::displayDetail() const {
    for (const auto* text : {&detail, &walletAddress, &email}) {
        if (nonEmpty(*text)) return **text;
    }
    if (nonEmpty(label)) return *label;
    switch (method) {
        case PayoutMethodType::usdc:
            return "USDC on Base";
        case PayoutMethodType::paypal:
            return "PayPal";
        case PayoutMethodType::ach:
            return "ACH";
    }
    return "ACH";
}

WorkerPayoutMethodsResponse WorkerPayoutMethodsResponse::decode(const Json& json) {
    const char* arrayKey = firstPresent(json, {"methods", "items", "payout_methods"});
    if (!arrayKey) throw DecodingError("Missing payout methods array in coordinator response.");
    WorkerPayoutMethodsResponse out;
    out.methods = decodeArray<WorkerPayoutMethod>(requireArray(json, arrayKey));
    if (const char* idKey =
            firstPresent(json, {"primary_method_id", "primary_payout_method_id", "primary_id"})) {
        out.primaryMethodId = decodeOptionalString(json, idKey);
    }
    return out;
}

Json AddPayoutMethodRequest::encode() const {
    Json out{{"method", rawValue(method)}};
    json::putIfPresent(out, "wallet_address", walletAddress);
    json::putIfPresent(out, "email", email);
    json::putIfPresent(out, "routing_number", routingNumber);
    json::putIfPresent(out, "account_number", accountNumber);
    json::putIfPresent(out, "account_holder_name", accountHolderName);
    if (accountType) out["account_type"] = rawValue(*accountType);
    out["make_primary"] = makePrimary;
    return out;
}

Json PutPayoutPrefsRequest::encode() const {
    return {{"method", method}, {"schedule", schedule}};
}

CoordinatorAPIErrorPayload CoordinatorAPIErrorPayload::decode(std::string_view body) {
    try {
        Json json = parseJson(body);
        return {json::optionalString(json, "detail"), json::optionalString(json, "code"),
                json::optionalString(json, "field")};
    } catch (const std::exception&) {
        return {};
    }
}

CoordinatorAPIErrorBody CoordinatorAPIErrorBody::decode(std::string_view body) {
    try {
        Json json = parseJson(body);
        return {json::optionalString(json, "detail"), json::optionalString(json, "required_setup")};
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace corvane
