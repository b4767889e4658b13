#include "CorvaneApp/config/PayoutPrefsSync.h"

namespace corvane {
namespace {

std::string describe(PayoutPrefsSyncError::Kind kind, const std::string& requiredSetup,
                     const std::optional<std::string>& detail) {
    switch (kind) {
        case PayoutPrefsSyncError::Kind::setupRequired:
            return "payout method needs setup: " + requiredSetup +
                   (detail ? " (" + *detail + ")" : "");
        case PayoutPrefsSyncError::Kind::payoutCycleConflict:
            return "payout cycle conflict" + (detail ? ": " + *detail : std::string());
        case PayoutPrefsSyncError::Kind::missingCredentials:
            return "missing coordinator credentials";
    }
    return "payout prefs sync error";
}

}  // namespace

PayoutPrefsSyncError::PayoutPrefsSyncError(Kind kind, std::string requiredSetup,
                                           std::optional<std::string> detail)
    : std::runtime_error(describe(kind, requiredSetup, detail)),
      kind_(kind),
      requiredSetup_(std::move(requiredSetup)),
      detail_(std::move(detail)) {}

PayoutPrefsSyncError PayoutPrefsSyncError::setupRequired(std::string requiredSetup,
                                                         std::optional<std::string> detail) {
    return {Kind::setupRequired, std::move(requiredSetup), std::move(detail)};
}

PayoutPrefsSyncError PayoutPrefsSyncError::payoutCycleConflict(std::optional<std::string> detail) {
    return {Kind::payoutCycleConflict, {}, std::move(detail)};
}

PayoutPrefsSyncError PayoutPrefsSyncError::missingCredentials() {
    return {Kind::missingCredentials, {}, {}};
}

}  // namespace corvane
