#pragma once
// The payouts page as words and numbers: the balances and what each means, the payout methods
// with the primary one, the ways of being paid, the owner's payout preferences and their
// refusals, and the payout history with its export.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/PayoutMethodsStore.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/coordinator/AccountRecords.h"

namespace corvane {

// Every row, with `isPrimary` set on exactly one: `primaryMethodId` when given, else the first
// row flagged primary, else the first of the `fallbackPrimary` method, else the first row.
std::vector<WorkerPayoutMethod> resolvedMethods(std::vector<WorkerPayoutMethod> methods,
                                                const std::optional<std::string>& primaryMethodId,
                                                std::optional<PayoutMethodType> fallbackPrimary);

// The banner for a payout method the coordinator says isn't set up yet ("paypal_email", ...).
std::string payoutSetupBannerText(std::string_view requiredSetup);

// The words of a failed make-primary or removal.
std::string methodActionErrorText(const PayoutMethodsStore::ActionFailure& failure);

struct RemovalConfirmation {
    std::string title;
    std::string text;
    std::string confirm;
    std::string cancel;
    friend bool operator==(const RemovalConfirmation&, const RemovalConfirmation&) = default;
};
RemovalConfirmation removalConfirmation(const WorkerPayoutMethod& method);

struct BalanceCard {
    std::string title;
    std::string value;
    std::optional<std::string> headline;  // the available balance's distance to the minimum
    std::string caption;
    friend bool operator==(const BalanceCard&, const BalanceCard&) = default;
};

struct PayoutMethodRow {
    WorkerPayoutMethod method;  // what make-primary and remove act on
    std::string title;          // "USDC on Base"
    std::string detail;         // the wallet, e-mail or account
    std::string terms;          // "Instant · fee-free · $1 minimum"
    bool isPrimary = false;
    std::string primaryBadge;  // "Primary", on the primary row only
    bool canMakePrimary = false;
    bool canRemove = false;
    std::string makePrimaryTitle;
    std::string removeTitle;
    std::string removeHint;  // why removal is refused, else what it does
    friend bool operator==(const PayoutMethodRow&, const PayoutMethodRow&) = default;
};

struct PayoutOptionRow {
    std::string label;
    std::string note;
    std::string minimum;  // "$1 minimum"
    friend bool operator==(const PayoutOptionRow&, const PayoutOptionRow&) = default;
};

struct PayoutChoice {
    std::string value;  // as config.yaml and the coordinator carry it
    std::string title;
    friend bool operator==(const PayoutChoice&, const PayoutChoice&) = default;
};

struct PayoutPreferencesState {
    std::string heading;
    std::string caption;
    std::string methodLabel;
    std::vector<PayoutChoice> methods;
    std::size_t selectedMethod = 0;
    std::string scheduleLabel;
    std::vector<PayoutChoice> schedules;
    std::size_t selectedSchedule = 0;
    friend bool operator==(const PayoutPreferencesState&, const PayoutPreferencesState&) = default;
};

struct PayoutHistoryRow {
    std::string date;
    std::string settled;
    std::string method;
    std::string reference;
    std::string amount;
    std::string status;
    friend bool operator==(const PayoutHistoryRow&, const PayoutHistoryRow&) = default;
};

struct PayoutsPageState {
    std::string intro;
    std::string scheduleBanner;              // when payouts arrive
    std::optional<std::string> setupBanner;  // a method the coordinator says isn't set up
    std::optional<std::string> syncBanner;   // a refused preference change
    BalanceCard available;
    BalanceCard held;
    BalanceCard estimated;

    std::string methodsHeading;
    std::vector<PayoutMethodRow> methods;
    std::optional<std::string> emptyTitle;  // no methods: what to do
    std::optional<std::string> emptyBody;
    std::optional<std::string> methodsStatus;  // refreshing, or why the list didn't load
    std::optional<std::string> methodActionError;
    std::string refreshTitle;
    bool refreshEnabled = true;
    std::string addTitle;
    bool addEnabled = true;
    std::string optionsHeading;
    std::vector<PayoutOptionRow> options;

    PayoutPreferencesState preferences;

    std::string historyHeading;
    std::vector<std::string> historyColumns;
    std::vector<PayoutHistoryRow> history;
    std::optional<std::string> historyEmpty;
    std::string exportTitle;
    std::string exportDialogTitle;
    bool exportEnabled = false;
    friend bool operator==(const PayoutsPageState&, const PayoutsPageState&) = default;
};

// What the page says after an export: where it went, or why it failed (nothing was replaced).
std::string exportSavedText(const std::string& path);
std::string exportFailedText(std::string_view reason);

PayoutsPageState payoutsPageState(const AppModel& model, const PayoutMethodsStore::State& methods,
                                  const WorkerConfigStore& settings);

}  // namespace corvane
