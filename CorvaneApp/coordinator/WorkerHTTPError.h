#pragma once
// The wire client's error: one case per way a call can fail, each with the text the user sees.

#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace corvane {

class WorkerHTTPError : public std::exception {
  public:
    enum class Kind {
        rateLimited,
        maintenanceMode,
        versionTooOld,
        httpError,
        invalidURL,
        encodingError,
        decodingError,
        network,
        unauthorized,
        jobCancelled,
        notFoundOrNotOwned
    };

    static WorkerHTTPError rateLimited(std::optional<std::int64_t> retryAfterSeconds);
    static WorkerHTTPError maintenanceMode(std::optional<std::int64_t> retryAfterSeconds);
    static WorkerHTTPError versionTooOld(std::optional<std::string> minVersion,
                                         std::optional<std::string> downloadURL);
    static WorkerHTTPError httpError(long statusCode, std::optional<std::string> detail);
    static WorkerHTTPError invalidURL(std::string path);
    // The three wrappers carry the underlying error's description; `cancelled` marks a network
    // error that was the caller's own cancellation.
    static WorkerHTTPError encodingError(std::string underlyingDescription);
    static WorkerHTTPError decodingError(std::string underlyingDescription);
    static WorkerHTTPError network(std::string underlyingDescription, bool cancelled = false);
    static WorkerHTTPError unauthorized();
    static WorkerHTTPError jobCancelled();
    static WorkerHTTPError notFoundOrNotOwned();

    Kind kind() const { return kind_; }
    std::optional<std::int64_t> retryAfterSeconds() const { return retryAfterSeconds_; }
    std::optional<std::string> minVersion() const { return minVersion_; }
    std::optional<std::string> downloadURL() const { return downloadURL_; }
    long statusCode() const { return statusCode_; }
    std::optional<std::string> detail() const { return detail_; }
    bool isCancellation() const { return cancelled_; }

    std::optional<std::string> errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    WorkerHTTPError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
    std::optional<std::int64_t> retryAfterSeconds_;
    std::optional<std::string> minVersion_;
    std::optional<std::string> downloadURL_;
    long statusCode_ = 0;
    std::optional<std::string> detail_;
    bool cancelled_ = false;
};

}  // namespace corvane
