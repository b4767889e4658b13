#include "CorvaneApp/coordinator/CoordinatorAPI.h"

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

bool isSuccess(long status) {
    return status >= 200 && status <= 299;
}

bool isValidUTF8(std::string_view text) {
    for (size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const size_t length = lead < 0x80           ? 1
                              : (lead >> 5) == 0x6  ? 2
                              : (lead >> 4) == 0xE  ? 3
                              : (lead >> 3) == 0x1E ? 4
                                                    : 0;
        if (length == 0 || i + length > text.size()) return false;
        for (size_t k = 1; k < length; ++k) {
            if ((static_cast<unsigned char>(text[i + k]) >> 6) != 0x2) return false;
        }
        i += length;
    }
    return true;
}

// The characters a query may carry as they stand; "America/New_York" keeps its slash.
std::optional<std::string> percentEncodeQueryAllowed(std::string_view text) {
    if (!isValidUTF8(text)) return std::nullopt;
    return http::percentEncode(text, "!$&'()*+,-./:;=?@_~");
}

std::string firstLine(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::string line;
    std::getline(file, line);
    while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back()))) line.pop_back();
    return line;
}

template <typename Decode>
auto decodeBody(std::string_view what, const std::string& body, Decode decode) {
    try {
        return decode(parseJson(body));
    } catch (const std::exception& error) {
        log::get("CoordinatorAPI")->error("Decode error for {}: {}", what, error.what());
        throw CoordinatorAPIError::decodingError(error.what());
    }
}

template <typename Record>
std::vector<Record> decodeList(const Json& json) {
    if (!json.is_array()) throw DecodingError("The data couldn't be read: expected a list");
    std::vector<Record> out;
    out.reserve(json.size());
    for (const auto& item : json) out.push_back(Record::decode(item));
    return out;
}

}  // namespace

std::string currentTimeZoneIdentifier() {
    if (const char* tz = std::getenv("TZ"); tz && *tz) {
        std::string_view zone(tz);
        if (zone.front() == ':') zone.remove_prefix(1);
        if (!zone.empty() && zone.front() != '/') return std::string(zone);
    }
    if (auto zone = firstLine("/etc/timezone"); !zone.empty()) return zone;
    std::error_code error;
    const auto target = std::filesystem::read_symlink("/etc/localtime", error).string();
    if (const auto at = target.find("zoneinfo/"); !error && at != std::string::npos)
        return target.substr(at + 9);
    return "UTC";
}

CoordinatorAPI::CoordinatorAPI(std::string baseURL, std::string token, std::string workerID,
                               Options options)
    : baseURL_(std::move(baseURL)),
      token_(std::move(token)),
      workerID_(std::move(workerID)),
      session_(options.session
                   ? std::move(options.session)
                   : std::make_shared<const http::Session>(http::SessionConfig{
                         requestTimeoutSeconds, resourceTimeoutSeconds, requestTimeoutSeconds})),
      timeZoneIdentifier_(options.timeZoneIdentifier ? std::move(options.timeZoneIdentifier)
                                                     : currentTimeZoneIdentifier) {}

std::string CoordinatorAPI::encodedTimeZone() const {
    return percentEncodeQueryAllowed(timeZoneIdentifier_()).value_or("UTC");
}

std::string CoordinatorAPI::earningsPath(std::string_view base, std::optional<int> days,
                                         bool allTime) const {
    std::string path(base);
    path += "?";
    if (days) path += "days=" + std::to_string(*days) + "&";
    if (allTime) path += "all_time=true&";
    path += "tz=" + encodedTimeZone();
    return path;
}

http::Request CoordinatorAPI::makeRequest(const std::string& url, std::string_view method,
                                          bool authenticated) const {
    http::Request request;
    request.method = std::string(method);
    request.url = url;
    request.timeoutSeconds = session_->config().requestTimeoutSeconds;
    if (authenticated) {
        request.headers.add("Authorization", "Bearer " + token_);
        request.headers.add("X-Worker-ID", workerID_);
    }
    request.headers.add("Accept", "application/json");
    return request;
}

std::string CoordinatorAPI::request(std::string_view path, std::string_view method,
                                    const std::optional<std::string>& body, bool authenticated,
                                    std::stop_token stop) const {
    const auto url = http::resolveAbsolutePath(baseURL_, path);
    if (!url) throw CoordinatorAPIError::networkError("Invalid URL path: " + std::string(path));
    http::Request wire = makeRequest(*url, method, authenticated);
    if (body) {
        wire.headers.add("Content-Type", "application/json");
        wire.body = *body;
    }
    http::Response response;
    try {
        response = session_->send(wire, stop);
    } catch (const std::exception& error) {
        log::get("CoordinatorAPI")->error("Network error fetching {}: {}", path, error.what());
        throw CoordinatorAPIError::networkError(error.what());
    }
    if (response.status == 401) {
        log::get("CoordinatorAPI")->error("401 from {} — token rejected", path);
        throw CoordinatorAPIError::unauthorized();
    }
    if (!isSuccess(response.status)) {
        auto payload = CoordinatorAPIErrorPayload::decode(response.body);
        if (payload.detail) {
            log::get("CoordinatorAPI")
                ->error("HTTP {} from {}: {}", response.status, path, *payload.detail);
        } else {
            log::get("CoordinatorAPI")->error("HTTP {} from {}", response.status, path);
        }
        throw CoordinatorAPIError::httpError(response.status, payload.detail, payload.code,
                                             payload.field);
    }
    return std::move(response.body);
}

template <typename Record>
Record CoordinatorAPI::get(std::string_view path, std::stop_token stop) const {
    const std::string body = request(path, "GET", std::nullopt, true, stop);
    return decodeBody(path, body, [](const Json& json) {
        if constexpr (requires { Record::decode(json); }) {
            return Record::decode(json);
        } else {
            return decodeList<typename Record::value_type>(json);
        }
    });
}

WorkerDashboard CoordinatorAPI::dashboard(std::stop_token stop) const {
    return get<WorkerDashboard>("/api/v1/workers/me/dashboard", stop);
}

EarningsSummary CoordinatorAPI::earningsSummary(std::stop_token stop) const {
    return get<EarningsSummary>("/api/v1/workers/me/earnings/summary?tz=" + encodedTimeZone(),
                                stop);
}

std::vector<DailyEarning> CoordinatorAPI::dailyEarnings(std::optional<int> days, bool allTime,
                                                        std::stop_token stop) const {
    return get<std::vector<DailyEarning>>(
        earningsPath("/api/v1/workers/me/earnings/daily", days, allTime), stop);
}

EarningsByHour CoordinatorAPI::hourlyEarnings(std::optional<int> days, bool allTime,
                                              std::stop_token stop) const {
    return get<EarningsByHour>(earningsPath("/api/v1/workers/me/earnings/by-hour", days, allTime),
                               stop);
}

std::vector<JobRecord> CoordinatorAPI::topJobs(std::stop_token stop) const {
    return get<std::vector<JobRecord>>("/api/v1/workers/me/jobs/top?week=true", stop);
}

WorkerPayoutMethodsResponse CoordinatorAPI::payoutMethods(std::stop_token stop) const {
    return get<WorkerPayoutMethodsResponse>("/api/v1/workers/me/payout-methods", stop);
}

void CoordinatorAPI::addPayoutMethod(const AddPayoutMethodRequest& body,
                                     std::stop_token stop) const {
    request("/api/v1/workers/me/payout-methods", "POST", body.encode().dump(), true, stop);
}

void CoordinatorAPI::setPrimaryPayoutMethod(const std::string& id, std::stop_token stop) const {
    request("/api/v1/workers/me/payout-methods/" + http::percentEncodePath(id) + "/primary", "PUT",
            std::nullopt, true, stop);
}

void CoordinatorAPI::removePayoutMethod(const std::string& id, std::stop_token stop) const {
    request("/api/v1/workers/me/payout-methods/" + http::percentEncodePath(id), "DELETE",
            std::nullopt, true, stop);
}

ActivityHistogramResponse CoordinatorAPI::activityHistogram(const std::string& workerID, int days,
                                                            std::stop_token stop) const {
    return get<ActivityHistogramResponse>("/api/v1/workers/" + http::percentEncodePath(workerID) +
                                              "/activity-histogram?days=" + std::to_string(days),
                                          stop);
}

PayoutPreferences CoordinatorAPI::putPayoutPrefs(const std::string& method,
                                                 const std::string& schedule,
                                                 std::stop_token stop) const {
    static constexpr std::string_view path = "/api/v1/workers/me/payout-prefs";
    std::string body;
    try {
        body = PutPayoutPrefsRequest{method, schedule}.encode().dump();
    } catch (const std::exception& error) {  // text that isn't UTF-8
        log::get("CoordinatorAPI")->error("Encode error for {}: {}", path, error.what());
        throw CoordinatorAPIError::encodingError(error.what());
    }
    const auto url = http::resolveAbsolutePath(baseURL_, path);
    if (!url) throw CoordinatorAPIError::networkError("Invalid URL path: " + std::string(path));
    http::Request wire = makeRequest(*url, "PUT", true);
    wire.headers.add("Content-Type", "application/json");
    wire.body = std::move(body);
    http::Response response;
    try {
        response = session_->send(wire, stop);
    } catch (const std::exception& error) {
        log::get("CoordinatorAPI")->error("Network error syncing payout prefs: {}", error.what());
        throw CoordinatorAPIError::networkError(error.what());
    }
    if (response.status == 401) {
        log::get("CoordinatorAPI")->error("401 from payout-prefs — token rejected");
        throw CoordinatorAPIError::unauthorized();
    }
    if (!isSuccess(response.status)) {
        const auto refusal = CoordinatorAPIErrorBody::decode(response.body);
        if (response.status == 400 && refusal.requiredSetup) {
            log::get("CoordinatorAPI")
                ->error("Payout prefs setup required: {}", *refusal.requiredSetup);
            throw CoordinatorAPIError::payoutPrefsSetupRequired(*refusal.requiredSetup,
                                                                refusal.detail);
        }
        if (response.status == 409 && refusal.detail &&
            asciiLowercased(*refusal.detail).find("already queued for this cycle") !=
                std::string::npos) {
            log::get("CoordinatorAPI")->error("Payout prefs cycle conflict: {}", *refusal.detail);
            throw CoordinatorAPIError::payoutCycleConflict(refusal.detail);
        }
        const auto payload = CoordinatorAPIErrorPayload::decode(response.body);
        if (payload.detail) {
            log::get("CoordinatorAPI")
                ->error("HTTP {} from payout-prefs: {}", response.status, *payload.detail);
        } else {
            log::get("CoordinatorAPI")->error("HTTP {} from payout-prefs", response.status);
        }
        throw CoordinatorAPIError::httpError(response.status, payload.detail, payload.code,
                                             payload.field);
    }
    return decodeBody("payout-prefs", response.body, PayoutPreferences::decode);
}

AppVersion CoordinatorAPI::fetchAppVersion(std::string_view baseURL,
                                           std::shared_ptr<const http::Session> session,
                                           std::stop_token stop) {
    const auto url = http::resolveAbsolutePath(baseURL, "/api/v1/app/latest-version");
    if (!url) throw CoordinatorAPIError::networkError("Invalid base URL for app-version check");
    if (!session) {
        session = std::make_shared<const http::Session>(http::SessionConfig{
            appVersionTimeoutSeconds, appVersionTimeoutSeconds, appVersionTimeoutSeconds});
    }
    http::Request wire;
    wire.url = *url;
    wire.timeoutSeconds = appVersionTimeoutSeconds;
    wire.headers.add("Accept", "application/json");
    http::Response response;
    try {
        response = session->send(wire, stop);
    } catch (const std::exception& error) {
        throw CoordinatorAPIError::networkError(error.what());
    }
    if (!isSuccess(response.status)) {
        const auto payload = CoordinatorAPIErrorPayload::decode(response.body);
        throw CoordinatorAPIError::httpError(response.status, payload.detail, payload.code,
                                             payload.field);
    }
    return decodeBody("/api/v1/app/latest-version", response.body, AppVersion::decode);
}

}  // namespace corvane
