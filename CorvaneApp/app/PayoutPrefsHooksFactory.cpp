#include "CorvaneApp/app/PayoutPrefsHooksFactory.h"

namespace corvane {

PayoutPrefsHooks makePayoutPrefsHooks(
    std::function<std::shared_ptr<const CoordinatorAPIProtocol>()> client) {
    auto api = [client = std::move(client)] {
        auto api = client ? client() : nullptr;
        if (!api) throw PayoutPrefsSyncError::missingCredentials();
        return api;
    };
    PayoutPrefsHooks hooks;
    hooks.push = [api](const PayoutPrefsSyncPayload& pair, std::stop_token stop) {
        try {
            api()->putPayoutPrefs(pair.method, pair.schedule, stop);
        } catch (const CoordinatorAPIError& error) {
            if (error.kind() == CoordinatorAPIError::Kind::payoutPrefsSetupRequired)
                throw PayoutPrefsSyncError::setupRequired(error.requiredSetup(), error.detail());
            if (error.kind() == CoordinatorAPIError::Kind::payoutCycleConflict)
                throw PayoutPrefsSyncError::payoutCycleConflict(error.detail());
            throw;
        }
    };
    hooks.fetchBaseline = [api](std::stop_token stop) -> std::optional<PayoutPrefsSyncPayload> {
        const auto summary = api()->dashboard(stop).payoutSummary;
        return PayoutPrefsSyncPayload{summary.method.value_or("ach"),
                                      summary.schedule.value_or("weekly")};
    };
    return hooks;
}

}  // namespace corvane
