#pragma once
// The account client's error: one case per way a call can fail. Callers act on the kind (retry a
// 5xx, sign out on `unauthorized`, show a payout refusal); the text is for logs and banners.

#include <exception>
#include <optional>
#include <string>

namespace corvane {

class CoordinatorAPIError : public std::exception {
  public:
    enum class Kind {
        httpError,
        payoutPrefsSetupRequired,
        payoutCycleConflict,
        encodingError,
        decodingError,
        networkError,
        unauthorized
    };

    static CoordinatorAPIError httpError(long statusCode, std::optional<std::string> detail = {},
                                         std::optional<std::string> code = {},
                                         std::optional<std::string> field = {});
    static CoordinatorAPIError payoutPrefsSetupRequired(std::string requiredSetup,
                                                        std::optional<std::string> detail = {});
    static CoordinatorAPIError payoutCycleConflict(std::optional<std::string> detail = {});
    // The three wrappers carry the underlying error's description.
    static CoordinatorAPIError encodingError(std::string underlyingDescription);
    static CoordinatorAPIError decodingError(std::string underlyingDescription);
    static CoordinatorAPIError networkError(std::string underlyingDescription);
    static CoordinatorAPIError unauthorized();

    Kind kind() const { return kind_; }
    long statusCode() const { return statusCode_; }  // httpError only
    const std::optional<std::string>& detail() const { return detail_; }
    const std::optional<std::string>& code() const { return code_; }
    const std::optional<std::string>& field() const { return field_; }
    const std::string& requiredSetup() const {
        return requiredSetup_;
    }  // payoutPrefsSetupRequired only
    // A 5xx: worth asking again shortly.
    bool isServerError() const { return kind_ == Kind::httpError && statusCode_ >= 500; }

    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    CoordinatorAPIError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
    long statusCode_ = 0;
    std::optional<std::string> detail_;
    std::optional<std::string> code_;
    std::optional<std::string> field_;
    std::string requiredSetup_;
};

}  // namespace corvane
