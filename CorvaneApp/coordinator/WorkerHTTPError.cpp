#include "CorvaneApp/coordinator/WorkerHTTPError.h"

namespace corvane {

WorkerHTTPError WorkerHTTPError::rateLimited(std::optional<std::int64_t> retryAfter) {
    WorkerHTTPError e(Kind::rateLimited, retryAfter ? "Worker poll rate-limited; retrying in " +
                                                          std::to_string(*retryAfter) + "s"
                                                    : "Worker poll rate-limited");
    e.retryAfterSeconds_ = retryAfter;
    return e;
}

WorkerHTTPError WorkerHTTPError::maintenanceMode(std::optional<std::int64_t> retryAfter) {
    WorkerHTTPError e(Kind::maintenanceMode, retryAfter
                                                 ? "Coordinator in maintenance mode; retrying in " +
                                                       std::to_string(*retryAfter) + "s"
                                                 : "Coordinator in maintenance mode");
    e.retryAfterSeconds_ = retryAfter;
    return e;
}

WorkerHTTPError WorkerHTTPError::versionTooOld(std::optional<std::string> minVersion,
                                               std::optional<std::string> downloadURL) {
    bool named = minVersion && !minVersion->empty();
    WorkerHTTPError e(Kind::versionTooOld,
                      named ? "Worker version too old; minimum required version is " + *minVersion
                            : "Worker version too old");
    e.minVersion_ = std::move(minVersion);
    e.downloadURL_ = std::move(downloadURL);
    return e;
}

WorkerHTTPError WorkerHTTPError::httpError(long statusCode, std::optional<std::string> detail) {
    bool hasDetail = detail && !detail->empty();
    WorkerHTTPError e(Kind::httpError,
                      "HTTP " + std::to_string(statusCode) + (hasDetail ? ": " + *detail : ""));
    e.statusCode_ = statusCode;
    e.detail_ = std::move(detail);
    return e;
}

WorkerHTTPError WorkerHTTPError::invalidURL(std::string path) {
    return {Kind::invalidURL, "Invalid coordinator URL path: " + path};
}

WorkerHTTPError WorkerHTTPError::encodingError(std::string underlying) {
    return {Kind::encodingError, std::move(underlying)};
}
WorkerHTTPError WorkerHTTPError::decodingError(std::string underlying) {
    return {Kind::decodingError, std::move(underlying)};
}

WorkerHTTPError WorkerHTTPError::network(std::string underlying, bool cancelled) {
    WorkerHTTPError e(Kind::network, std::move(underlying));
    e.cancelled_ = cancelled;
    return e;
}

WorkerHTTPError WorkerHTTPError::unauthorized() {
    return {Kind::unauthorized, "Worker token rejected by coordinator"};
}
WorkerHTTPError WorkerHTTPError::jobCancelled() {
    return {Kind::jobCancelled, "Job was cancelled before result submission"};
}
WorkerHTTPError WorkerHTTPError::notFoundOrNotOwned() {
    return {Kind::notFoundOrNotOwned, "Job no longer belongs to this worker"};
}

}  // namespace corvane
