#pragma once
// What a signed-in owner sees of the account: dashboard, earnings, top jobs, payout methods and
// preferences, the activity histogram and the published version. The decoders are tolerant where
// the coordinator's field types have changed over time (ids sent as numbers, alternative keys);
// everything else is strict, and a missing required field fails the whole record.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

// The text of a string, an integer or a floating number ("123", "1.5"); any other value throws
// DecodingError "Expected string-like value for <key>".
std::string decodeRequiredString(const Json& object, const char* key);
// As above, but absent, null or any other kind of value gives nothing.
std::optional<std::string> decodeOptionalString(const Json& object, const char* key);

struct WorkerDashboard {
    struct WorkerState {
        std::optional<std::string> status;
        std::optional<std::string> lastPollAt;
        std::optional<std::string> lastHeartbeat;
        bool operator==(const WorkerState&) const = default;
    };
    struct JobsCompleted {
        std::int64_t today = 0;
        std::int64_t thisWeek = 0;
        std::int64_t allTime = 0;
        bool operator==(const JobsCompleted&) const = default;
    };
    struct EarningsUSD {
        double held = 0;
        double available = 0;
        double total = 0;
        bool operator==(const EarningsUSD&) const = default;
    };
    struct PayoutSummary {
        double totalEarnedUSD = 0;
        double releasedUSD = 0;
        double disbursedUSD = 0;
        double pendingUSD = 0;
        std::optional<std::string> method;
        std::optional<std::string> schedule;
        std::optional<std::string> updatedAt;
        bool operator==(const PayoutSummary&) const = default;
    };
    struct HoldEntry {
        std::string holdUntil;
        double amountUSD = 0;
        std::int64_t itemCount = 0;
        bool operator==(const HoldEntry&) const = default;
    };
    struct ActivityItem {
        std::string payoutId;
        std::string jobId;
        std::optional<std::string> shardId;
        std::optional<double> durationSeconds;
        double payoutUSD = 0;
        std::string status;
        std::string createdAt;
        std::optional<std::string> holdUntil;
        std::optional<std::string> releasedAt;
        bool operator==(const ActivityItem&) const = default;
        static ActivityItem decode(const Json& json);
        Json encode() const;
    };
    struct PayoutDisbursement {
        std::optional<std::string> payoutEventId;
        std::optional<std::int64_t> amountCents;
        std::optional<double> amountUSD;
        std::optional<std::string> status;
        std::optional<std::string> method;
        std::optional<std::string> createdAt;
        std::optional<std::string> settledAt;
        bool operator==(const PayoutDisbursement&) const = default;
        static PayoutDisbursement decode(const Json& json);
        Json encode() const;
    };

    std::string workerId;
    std::optional<WorkerState> workerState;
    JobsCompleted jobsCompleted;
    EarningsUSD earningsUSD;
    PayoutSummary payoutSummary;
    std::vector<PayoutDisbursement> payoutHistory;
    std::string trustTier;
    std::optional<double> qualityScore;
    std::optional<std::string> reputationUpdatedAt;
    std::optional<HoldEntry> nextRelease;
    std::vector<HoldEntry> holdSchedule;
    std::vector<ActivityItem> activity;

    bool operator==(const WorkerDashboard&) const = default;
    static WorkerDashboard decode(const Json& json);
    Json encode() const;  // the wire form, as the coordinator sends it
};

struct EarningsSummary {
    double todayUSD = 0;
    std::int64_t todayActiveMinutes = 0;
    std::optional<std::int64_t> todayWorkMinutes;
    double todayHourlyUSD = 0;
    std::optional<double> recentHourlyUSD;
    std::optional<std::int64_t> recentWindowMinutes;
    std::optional<std::int64_t> recentCompletedShards;
    std::int64_t jobsCompletedToday = 0;
    double deltaVsYesterdayUSD = 0;
    double monthToDateUSD = 0;
    double monthProjectionUSD = 0;

    bool operator==(const EarningsSummary&) const = default;
    static EarningsSummary decode(const Json& json);
    Json encode() const;
};

struct EarningsByHour {
    std::vector<double> hours;
    bool operator==(const EarningsByHour&) const = default;
    static EarningsByHour decode(const Json& json);
};

struct DailyEarning {
    std::string date;  // "yyyy-MM-dd"
    double amountUSD = 0;
    bool operator==(const DailyEarning&) const = default;
    static DailyEarning decode(const Json& json);
};

struct JobRecord {
    std::string jobId;
    double durationSeconds = 0;
    double amountUSD = 0;
    std::optional<std::string> completedAt;
    std::optional<std::string> clientDisplayName;
    bool operator==(const JobRecord&) const = default;
    static JobRecord decode(const Json& json);
};

struct PayoutPreferences {
    std::string method;
    std::string schedule;
    std::string updatedAt;
    bool operator==(const PayoutPreferences&) const = default;
    static PayoutPreferences decode(const Json& json);
};

struct ActivityHistogramResponse {
    std::string workerId;
    std::int64_t days = 0;
    std::int64_t sampleCount = 0;
    std::int64_t activeMinutesTotal = 0;
    std::vector<std::vector<std::int64_t>> histogram;
    bool operator==(const ActivityHistogramResponse&) const = default;
    static ActivityHistogramResponse decode(const Json& json);
};

struct AppVersion {
    std::string version;
    std::optional<std::string> minVersion;
    std::string downloadURL;
    std::optional<std::string> releaseNotes;
    bool operator==(const AppVersion&) const = default;
    static AppVersion decode(const Json& json);
};

enum class PayoutMethodType { usdc, paypal, ach };
inline constexpr PayoutMethodType allPayoutMethodTypes[] = {
    PayoutMethodType::usdc, PayoutMethodType::paypal, PayoutMethodType::ach};
std::string_view rawValue(PayoutMethodType type);
std::optional<PayoutMethodType> payoutMethodTypeFromRaw(std::string_view raw);

enum class PayoutBankAccountType { checking, savings };
std::string_view rawValue(PayoutBankAccountType type);
std::optional<PayoutBankAccountType> payoutBankAccountTypeFromRaw(std::string_view raw);

struct WorkerPayoutMethod {
    std::string id;
    PayoutMethodType method = PayoutMethodType::ach;
    std::optional<std::string> label;
    std::optional<std::string> detail;
    std::optional<std::string> walletAddress;
    std::optional<std::string> email;
    std::optional<std::string> routingNumber;
    std::optional<std::string> accountNumber;
    std::optional<std::string> accountHolderName;
    std::optional<PayoutBankAccountType> accountType;
    bool isPrimary = false;
    std::optional<bool> canDelete;
    bool isPlaceholder = false;  // never on the wire; only the payout page's stand-in rows
    std::optional<std::string> createdAt;
    std::optional<std::string> updatedAt;
    std::optional<std::string> status;

    bool operator==(const WorkerPayoutMethod&) const = default;
    // Takes the id from "id", "payout_method_id" or "method_id" and the type from "method",
    // "type" or "kind", the first that has one.
    static WorkerPayoutMethod decode(const Json& json);
    // The local copy: camel-case field names.
    Json encode() const;
    // What a row shows under the method's name.
    std::string displayDetail() const;
};

struct WorkerPayoutMethodsResponse {
    std::vector<WorkerPayoutMethod> methods;
    std::optional<std::string> primaryMethodId;
    bool operator==(const WorkerPayoutMethodsResponse&) const = default;
    static WorkerPayoutMethodsResponse decode(const Json& json);
};

struct AddPayoutMethodRequest {
    PayoutMethodType method = PayoutMethodType::ach;
    std::optional<std::string> walletAddress;
    std::optional<std::string> email;
    std::optional<std::string> routingNumber;
    std::optional<std::string> accountNumber;
    std::optional<std::string> accountHolderName;
    std::optional<PayoutBankAccountType> accountType;
    bool makePrimary = false;
    Json encode() const;
};

struct PutPayoutPrefsRequest {
    std::string method;
    std::string schedule;
    Json encode() const;
};

// The two shapes of an error body.
struct CoordinatorAPIErrorPayload {
    std::optional<std::string> detail;
    std::optional<std::string> code;
    std::optional<std::string> field;
    bool operator==(const CoordinatorAPIErrorPayload&) const = default;
    // An empty body, or one that isn't such an object, gives an empty payload.
    static CoordinatorAPIErrorPayload decode(std::string_view body);
};

struct CoordinatorAPIErrorBody {
    std::optional<std::string> detail;
    std::optional<std::string> requiredSetup;
    static CoordinatorAPIErrorBody decode(std::string_view body);
};

}  // namespace corvane
