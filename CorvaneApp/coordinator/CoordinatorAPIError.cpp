#include "CorvaneApp/coordinator/CoordinatorAPIError.h"

namespace corvane {

using Error = CoordinatorAPIError;

Error Error::httpError(long statusCode, std::optional<std::string> detail,
                       std::optional<std::string> code, std::optional<std::string> field) {
    std::string text = "HTTP " + std::to_string(statusCode);
    if (detail && !detail->empty()) text += ": " + *detail;
    Error error(Kind::httpError, std::move(text));
    error.statusCode_ = statusCode;
    error.detail_ = std::move(detail);
    error.code_ = std::move(code);
    error.field_ = std::move(field);
    return error;
}

Error Error::payoutPrefsSetupRequired(std::string requiredSetup,
                                      std::optional<std::string> detail) {
    Error error(Kind::payoutPrefsSetupRequired,
                detail && !detail->empty() ? *detail
                                           : "Payout destination setup required: " + requiredSetup);
    error.requiredSetup_ = std::move(requiredSetup);
    error.detail_ = std::move(detail);
    return error;
}

Error Error::payoutCycleConflict(std::optional<std::string> detail) {
    Error error(Kind::payoutCycleConflict, detail && !detail->empty()
                                               ? *detail
                                               : "A payout is already queued for this cycle.");
    error.detail_ = std::move(detail);
    return error;
}

Error Error::encodingError(std::string underlyingDescription) {
    return Error(Kind::encodingError, std::move(underlyingDescription));
}

Error Error::decodingError(std::string underlyingDescription) {
    return Error(Kind::decodingError, std::move(underlyingDescription));
}

Error Error::networkError(std::string underlyingDescription) {
    return Error(Kind::networkError, std::move(underlyingDescription));
}

Error Error::unauthorized() {
    return Error(Kind::unauthorized, "Worker token rejected by coordinator");
}

}  // namespace corvane
