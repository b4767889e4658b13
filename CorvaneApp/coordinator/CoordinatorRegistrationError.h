#pragma once
// The one error that leaves registration: each case carries the sentence the owner reads in the
// onboarding window or the enrol command.

#include <exception>
#include <optional>
#include <string>

namespace corvane {

class CoordinatorRegistrationError : public std::exception {
  public:
    enum class Kind {
        rateLimited,
        httpError,
        networkFailure,
        invalidCoordinatorURL,
        invitationRequired,
        invalidInvitation,
        existingWorkerTokenRequired,
        coordinatorUnavailable,
    };

    static CoordinatorRegistrationError rateLimited(std::optional<std::string> retryAfter);
    static CoordinatorRegistrationError httpError(std::string message);
    static CoordinatorRegistrationError networkFailure(std::string message);
    static CoordinatorRegistrationError invalidCoordinatorURL();
    static CoordinatorRegistrationError invitationRequired();
    static CoordinatorRegistrationError invalidInvitation();
    static CoordinatorRegistrationError existingWorkerTokenRequired();
    static CoordinatorRegistrationError coordinatorUnavailable();

    Kind kind() const { return kind_; }
    // The Retry-After text of rateLimited, as the coordinator sent it.
    const std::optional<std::string>& retryAfter() const { return retryAfter_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    CoordinatorRegistrationError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
    std::optional<std::string> retryAfter_;
};

}  // namespace corvane
