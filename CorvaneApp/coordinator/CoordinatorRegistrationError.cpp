#include "CorvaneApp/coordinator/CoordinatorRegistrationError.h"

namespace corvane {

using Error = CoordinatorRegistrationError;

Error Error::rateLimited(std::optional<std::string> retryAfter) {
    const bool hasValue = retryAfter && !retryAfter->empty();
    Error error(Kind::rateLimited, hasValue ? "Too many registration attempts. Try again in " +
                                                  *retryAfter + " seconds."
                                            : "Too many registration attempts. Try again later.");
    error.retryAfter_ = std::move(retryAfter);
    return error;
}

Error Error::httpError(std::string message) {
    return Error(Kind::httpError, std::move(message));
}

Error Error::networkFailure(std::string message) {
    return Error(Kind::networkFailure, std::move(message));
}

Error Error::invalidCoordinatorURL() {
    return Error(Kind::invalidCoordinatorURL, "Enter a valid URL.");
}

Error Error::invitationRequired() {
    // Neutral on purpose: a machine that sent no code must not learn that one would have helped.
    return Error(Kind::invitationRequired,
                 "Corvane couldn't finish registration right now. Try again in a moment.");
}

Error Error::invalidInvitation() {
    return Error(Kind::invalidInvitation,
                 "That invitation code is invalid or expired. Try again with a fresh code.");
}

Error Error::existingWorkerTokenRequired() {
    return Error(Kind::existingWorkerTokenRequired,
                 "This computer is already registered. Use the existing worker credential to "
                 "rotate it instead of "
                 "retrying public setup.");
}

Error Error::coordinatorUnavailable() {
    return Error(Kind::coordinatorUnavailable,
                 "Corvane couldn't reach the service right now. Wait a moment and try again.");
}

}  // namespace corvane
