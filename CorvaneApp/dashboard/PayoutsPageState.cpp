#include "CorvaneApp/dashboard/PayoutsPageState.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/dashboard/Formatting.h"
#include "CorvaneApp/dashboard/PayoutMethodMeta.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                   "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr std::string_view kDash = "—";

// "Jun 11, 2026" in local time; a date that doesn't parse is shown as it came.
std::string payoutDate(const std::optional<std::string>& text) {
    if (!text || text->empty()) return std::string(kDash);
    auto date = AppModelDateParser::parseCoordinatorTimestamp(*text);
    if (!date) {
        log::get("PayoutsPage")->error("Failed to parse payout date: {}", *text);
        return *text;
    }
    const std::tm parts = localParts(*date);
    return std::string(kMonths[parts.tm_mon]) + " " + std::to_string(parts.tm_mday) + ", " +
           std::to_string(parts.tm_year + 1900);
}

std::string capitalized(std::string text) {
    if (!text.empty() && text[0] >= 'a' && text[0] <= 'z') text[0] = char(text[0] - 'a' + 'A');
    return text;
}

std::string methodName(const std::string& raw) {
    if (auto type = payoutMethodTypeFromRaw(raw)) return std::string(methodMeta(*type).label);
    return raw;
}

BalanceCard availableCard(std::optional<double> available, PayoutMethodType primary) {
    BalanceCard card{"Available", formatUSD(available), std::nullopt, ""};
    if (!available) {
        card.caption = "Available balance will show up here after released earnings are loaded.";
        return card;
    }
    const double minimum = methodMeta(primary).min;
    const int wholeMinimum = static_cast<int>(minimum);
    if (*available >= minimum) {
        card.headline = "$" + std::to_string(wholeMinimum) + " minimum — ready for the next sweep";
        card.caption =
            "Available can sweep on the next payout run. Held and recent estimated unpaid work "
            "are shown separately.";
    } else {
        card.headline = formatUSD(minimum - *available) + " until $" +
                        std::to_string(wholeMinimum) + " minimum";
        card.caption =
            "Available is released but still below the payout minimum. Held and recent estimated "
            "unpaid work are shown separately.";
    }
    return card;
}

std::optional<std::string> loadFailureText(PayoutMethodsStore::LoadFailure failure) {
    using F = PayoutMethodsStore::LoadFailure;
    switch (failure) {
        case F::noClient:
            return "No coordinator API client is available.";
        case F::unavailable:
            return "Live payout method management is unavailable until the coordinator endpoints "
                   "are ready.";
        case F::failed:
            return "Unable to load payout methods. Retry to try again.";
    }
    return std::nullopt;
}

PayoutPreferencesState preferencesState(const WorkerConfigStore& settings) {
    PayoutPreferencesState prefs;
    prefs.heading = "Payout preferences";
    prefs.caption =
        "How released earnings are paid and how often. The coordinator confirms each change; one "
        "it refuses goes back to the last accepted choice.";
    prefs.methodLabel = "Method";
    for (const auto type : allPayoutMethodTypes)
        prefs.methods.push_back({std::string(rawValue(type)), std::string(methodMeta(type).label)});
    prefs.scheduleLabel = "Schedule";
    prefs.schedules = {{"weekly", "Weekly"}, {"monthly", "Monthly"}};
    // A value this version doesn't know (set elsewhere) is still shown, as it stands.
    auto select = [](std::vector<PayoutChoice>& choices, const std::string& value) {
        auto it = std::find_if(choices.begin(), choices.end(),
                               [&](const auto& choice) { return choice.value == value; });
        if (it != choices.end()) return std::size_t(it - choices.begin());
        choices.push_back({value, value});
        return choices.size() - 1;
    };
    prefs.selectedMethod = select(prefs.methods, settings.payoutMethod());
    prefs.selectedSchedule = select(prefs.schedules, settings.payoutSchedule());
    return prefs;
}

PayoutHistoryRow historyRow(const WorkerDashboard::PayoutDisbursement& payout) {
    PayoutHistoryRow row;
    row.date = payoutDate(payout.createdAt);
    row.settled = payoutDate(payout.settledAt);
    row.method = payout.method ? methodName(*payout.method) : std::string(kDash);
    row.reference = payout.payoutEventId.value_or(std::string(kDash));
    if (payout.amountUSD) {
        row.amount = formatUSD(*payout.amountUSD);
    } else if (payout.amountCents) {
        row.amount = formatUSD(double(*payout.amountCents) / 100.0);
    } else {
        row.amount = std::string(kDash);
    }
    row.status = payout.status ? capitalized(*payout.status) : std::string(kDash);
    return row;
}

}  // namespace

std::vector<WorkerPayoutMethod> resolvedMethods(std::vector<WorkerPayoutMethod> methods,
                                                const std::optional<std::string>& primaryMethodId,
                                                std::optional<PayoutMethodType> fallbackPrimary) {
    if (methods.empty()) return methods;
    std::string primary;
    if (primaryMethodId) {
        primary = *primaryMethodId;
    } else if (auto flagged = std::find_if(methods.begin(), methods.end(),
                                           [](const auto& m) { return m.isPrimary; });
               flagged != methods.end()) {
        primary = flagged->id;
    } else if (auto same = std::find_if(
                   methods.begin(), methods.end(),
                   [&](const auto& m) { return fallbackPrimary && m.method == *fallbackPrimary; });
               same != methods.end()) {
        primary = same->id;
    } else {
        primary = methods.front().id;
    }
    for (auto& method : methods) method.isPrimary = method.id == primary;
    return methods;
}

std::string payoutSetupBannerText(std::string_view requiredSetup) {
    if (requiredSetup == "usdc_wallet_address")
        return "Add a USDC wallet address before making USDC your payout method.";
    if (requiredSetup == "paypal_email")
        return "Add a PayPal email before making PayPal your payout method.";
    return "Complete payout destination setup (" + std::string(requiredSetup) +
           ") before using this method.";
}

std::string methodActionErrorText(const PayoutMethodsStore::ActionFailure& failure) {
    using K = PayoutMethodsStore::ActionFailure::Kind;
    const std::string title = methodTitle(failure.method);
    const std::string detail = failure.detail ? " " + *failure.detail : "";
    switch (failure.kind) {
        case K::makePrimary:
            return "Couldn't make " + title + " primary right now." + detail;
        case K::remove:
            return "Couldn't remove " + title + "." + detail;
        case K::cannotRemove:
            break;
    }
    return "This payout method cannot be removed.";
}

RemovalConfirmation removalConfirmation(const WorkerPayoutMethod& method) {
    const std::string title = methodTitle(method);
    const std::string detail = method.displayDetail();
    const std::string named = detail == title ? title : title + " (" + detail + ")";
    return {"Remove payout method?",
            "Remove " + named + "? Released earnings will no longer be paid to it.", "Remove",
            "Cancel"};
}

std::string exportSavedText(const std::string& path) {
    return "Payout history saved to " + path + ".";
}

std::string exportFailedText(std::string_view reason) {
    return "Couldn't save the payout history: " + std::string(reason);
}

PayoutsPageState payoutsPageState(const AppModel& model, const PayoutMethodsStore::State& methods,
                                  const WorkerConfigStore& settings) {
    PayoutsPageState state;
    state.intro =
        "Each method has its own minimum. Add, remove, or switch the primary payout destination "
        "here.";
    state.scheduleBanner = "Payouts arrive Fridays at 5pm PT";
    if (const auto& setup = settings.payoutPrefsRequiredSetup())
        state.setupBanner = payoutSetupBannerText(*setup);
    state.syncBanner = settings.payoutPrefsSyncBannerText();

    const auto preferred = payoutMethodTypeFromRaw(settings.payoutMethod());
    const auto rows = resolvedMethods(methods.methods, methods.primaryMethodId, preferred);
    auto primary = std::find_if(rows.begin(), rows.end(), [](auto& m) { return m.isPrimary; });
    const PayoutMethodType primaryType =
        primary != rows.end() ? primary->method : preferred.value_or(PayoutMethodType::ach);

    const AccountState& account = model.account();
    state.available = availableCard(account.availableBalance(), primaryType);
    state.held = {"Held", formatUSD(account.heldBalance()), std::nullopt,
                  "Completed work already recorded by the coordinator and waiting for hold "
                  "release."};
    const auto estimate = model.estimatedRecentUnpaidCompletedWork();
    state.estimated = {
        "Estimated recent unpaid", formatUSD(estimate), std::nullopt,
        estimate ? model.estimatedRecentUnpaidSummary() + ". Not yet included in available or held."
                 : "Waiting for recent estimated unpaid work."};

    state.methodsHeading = "Payout methods";
    for (const auto& method : rows) {
        PayoutMethodRow row;
        row.method = method;
        row.title = methodTitle(method);
        row.detail = method.displayDetail();
        const auto& meta = methodMeta(method.method);
        row.terms = std::string(meta.note) + " · " + minimumText(method.method);
        row.isPrimary = method.isPrimary;
        if (row.isPrimary) row.primaryBadge = "Primary";
        const bool actionable = !method.isPlaceholder && !methods.isActing;
        row.canMakePrimary = actionable && !method.isPrimary;
        row.canRemove = actionable && method.canDelete != false;
        row.makePrimaryTitle = "Make primary";
        row.removeTitle = "Remove";
        row.removeHint = method.canDelete == false ? "This payout method cannot be removed."
                                                   : "Stop paying out to " + row.title + ".";
        state.methods.push_back(std::move(row));
    }
    if (methods.hasLoaded && rows.empty()) {
        state.emptyTitle = "No payout methods added yet.";
        state.emptyBody = "Add your first payout destination to receive released earnings.";
    }
    if (methods.isRefreshing) {
        state.methodsStatus = "Refreshing payout methods…";
    } else if (methods.loadFailure) {
        state.methodsStatus = loadFailureText(*methods.loadFailure);
    }
    if (methods.methodActionError)
        state.methodActionError = methodActionErrorText(*methods.methodActionError);
    state.refreshTitle = "Refresh";
    state.refreshEnabled = !methods.isRefreshing;
    state.addTitle = "Add payout method";
    state.optionsHeading = "Ways to get paid";
    for (const auto type : allPayoutMethodTypes) {
        const auto& meta = methodMeta(type);
        state.options.push_back(
            {std::string(meta.label), std::string(meta.note), minimumText(type)});
    }

    state.preferences = preferencesState(settings);

    state.historyHeading = "Payout history";
    state.historyColumns = {"Date", "Settled", "Method", "Reference", "Amount", "Status"};
    for (const auto& payout : account.payoutHistory()) state.history.push_back(historyRow(payout));
    if (state.history.empty()) state.historyEmpty = "No payout history yet.";
    state.exportTitle = "Export payout history as CSV";
    state.exportDialogTitle = "Export payout history";
    state.exportEnabled = !state.history.empty();
    return state;
}

}  // namespace corvane
