#include "CorvaneApp/coordinator/WorkerHTTPClient.h"

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

std::optional<std::int64_t> headerInteger(const http::Response& response, const char* name) {
    auto value = response.headers.find(name);
    return value ? parseDecimalInteger(*value) : std::nullopt;
}

std::optional<std::string> decodeDetail(const std::string& body) {
    try {
        return json::optionalString(parseJson(body), "detail");
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

std::vector<ShardClaim> decodeBatchBody(const Json& body) {
    const Json* items = json::member(body, "items");
    if (!items) throw DecodingError("The data couldn't be read: key \"items\" is missing");
    if (!items->is_array()) json::wrongType("items", "a list");
    if (const Json* version = json::member(body, "api_version"); version && !version->is_string()) {
        json::wrongType("api_version", "a string");
    }
    std::vector<ShardClaim> claims;
    claims.reserve(items->size());
    for (const auto& item : *items) claims.push_back(ShardClaim::decode(item));
    return claims;
}

// The rows of the status table that every operation shares: 401, 2xx and anything else.
void throwIfNotOK(const http::Response& response, const std::string& path) {
    if (response.status == 401) {
        log::get("WorkerHTTPClient")->error("401 from {} — token rejected", path);
        throw WorkerHTTPError::unauthorized();
    }
    if (response.status >= 200 && response.status <= 299) return;
    auto detail = decodeDetail(response.body);
    log::get("WorkerHTTPClient")->error("HTTP {} from {}", response.status, path);
    throw WorkerHTTPError::httpError(response.status, std::move(detail));
}

// The statuses with a meaning of their own at poll: 409, 429 and 503.
void throwPollStatus(const http::Response& response, const std::string& path) {
    if (response.status == 409) {
        std::optional<std::string> minVersion, downloadURL;
        try {
            Json body = parseJson(response.body);
            minVersion = json::optionalString(body, "min_version");
            downloadURL = json::optionalString(body, "download_url");
            (void)json::optionalString(body, "reason");
        } catch (const std::exception&) {
            minVersion.reset();
            downloadURL.reset();
        }
        throw WorkerHTTPError::versionTooOld(std::move(minVersion), std::move(downloadURL));
    }
    if (response.status == 429)
        throw WorkerHTTPError::rateLimited(headerInteger(response, "Retry-After"));
    if (response.status == 503)
        throw WorkerHTTPError::maintenanceMode(headerInteger(response, "Retry-After"));
    throwIfNotOK(response, path);
}

}  // namespace

PollBatchOutcome WorkerHTTPClientProtocol::pollBatch(const WorkerCapabilities& capabilities,
                                                     std::int64_t, std::stop_token stop) {
    PollBatchOutcome outcome;
    if (auto claim = poll(capabilities, stop)) outcome.items.push_back(std::move(*claim));
    return outcome;
}

WorkerHTTPClient::WorkerHTTPClient(std::string baseURL, std::string token, std::string workerID,
                                   std::optional<std::string> workerVersion,
                                   std::shared_ptr<const http::Session> session)
    : baseURL_(std::move(baseURL)),
      token_(std::move(token)),
      workerID_(std::move(workerID)),
      workerVersion_(std::move(workerVersion)),
      session_(session ? std::move(session)
                       : std::make_shared<const http::Session>(http::SessionConfig{30, 120, 30})) {}

std::string WorkerHTTPClient::failPath(const std::string& jobId,
                                       const std::optional<std::string>& shardId,
                                       const std::string& suffix) {
    std::string path = "/api/v1/jobs/" + http::percentEncodePath(jobId) + suffix;
    if (shardId) path += "?shard_id=" + http::percentEncodePath(*shardId);
    return path;
}

http::Request WorkerHTTPClient::makeRequest(const std::string& path,
                                            const std::string& method) const {
    auto url = http::resolveAbsolutePath(baseURL_, path);
    if (!url) throw WorkerHTTPError::invalidURL(path);
    http::Request request;
    request.method = method;
    request.url = std::move(*url);
    request.timeoutSeconds = 60;
    request.headers.add("Authorization", "Bearer " + token_);
    request.headers.add("X-Worker-ID", workerID_);
    request.headers.add("Accept", "application/json");
    if (workerVersion_) request.headers.add("X-Worker-Version", *workerVersion_);
    return request;
}

http::Response WorkerHTTPClient::performRequest(const http::Request& request,
                                                const std::string& path,
                                                std::stop_token stop) const {
    try {
        return session_->send(request, stop);
    } catch (const http::TransportError& error) {
        log::get("WorkerHTTPClient")->error("network error {}: {}", path, error.what());
        throw WorkerHTTPError::network(error.what(),
                                       error.kind() == http::TransportError::Kind::cancelled);
    }
}

http::Response WorkerHTTPClient::sendPoll(const std::string& path,
                                          const WorkerCapabilities& capabilities,
                                          std::stop_token stop) const {
    auto request = makeRequest(path, "GET");
    try {
        request.headers.add("X-Worker-Capabilities", capabilities.encode().dump());
    } catch (const std::exception&) {
        // A record that cannot be encoded (invalid UTF-8 in a name) is left out; the poll goes on.
    }
    return performRequest(request, path, stop);
}

std::optional<ShardClaim> WorkerHTTPClient::poll(const WorkerCapabilities& capabilities,
                                                 std::stop_token stop) {
    const std::string path = "/api/v1/workers/poll";
    return readPollResponse(sendPoll(path, capabilities, stop), path);
}

PollBatchOutcome WorkerHTTPClient::pollBatch(const WorkerCapabilities& capabilities,
                                             std::int64_t maxShards, std::stop_token stop) {
    const std::string path = "/api/v1/workers/poll?max_shards=" + std::to_string(maxShards);
    return readPollBatchResponse(sendPoll(path, capabilities, stop), maxShards, path);
}

std::optional<ShardClaim> WorkerHTTPClient::readPollResponse(const http::Response& response,
                                                             const std::string& path) {
    if (response.status == 0) throw WorkerHTTPError::httpError(0, "no response");
    if (response.status == 204) return std::nullopt;
    throwPollStatus(response, path);
    try {
        return ShardClaim::decode(parseJson(response.body));
    } catch (const std::exception& error) {
        log::get("WorkerHTTPClient")->error("poll decode failed: {}", error.what());
        throw WorkerHTTPError::decodingError(error.what());
    }
}

PollBatchOutcome WorkerHTTPClient::readPollBatchResponse(const http::Response& response,
                                                         std::int64_t maxShards,
                                                         const std::string& path) {
    if (response.status == 0) throw WorkerHTTPError::httpError(0, "no response");
    PollBatchOutcome outcome;
    outcome.suggestedMaxShards = headerInteger(response, "X-Suggested-Max-Shards");
    outcome.strategySuggestion = CoordinatorStrategySuggestion::parse(response.headers);
    if (response.status == 204) return outcome;
    throwPollStatus(response, path);

    std::string lastError;
    try {
        Json body = parseJson(response.body);
        auto attempt = [&](auto decode) -> bool {
            try {
                outcome.items = decode(body);
                return true;
            } catch (const std::exception& error) {
                lastError = error.what();
                return false;
            }
        };
        auto batch = [](const Json& json) { return decodeBatchBody(json); };
        auto bare = [](const Json& json) {
            return std::vector<ShardClaim>{ShardClaim::decode(json)};
        };
        if ((maxShards > 1 && attempt(batch)) || attempt(bare) || attempt(batch)) return outcome;
    } catch (const DecodingError& error) {
        lastError = error.what();
    }
    log::get("WorkerHTTPClient")->error("pollBatch decode failed: {}", lastError);
    throw WorkerHTTPError::decodingError(lastError);
}

void WorkerHTTPClient::postJobOperation(const std::string& path, std::string body,
                                        std::stop_token stop) const {
    auto request = makeRequest(path, "POST");
    request.headers.add("Content-Type", "application/json");
    request.body = std::move(body);
    auto response = performRequest(request, path, stop);
    if (response.status == 0) return;  // not an HTTP response: counted as delivered
    if (response.status == 404) throw WorkerHTTPError::notFoundOrNotOwned();
    throwIfNotOK(response, path);
}

void WorkerHTTPClient::heartbeat(const std::string& jobId,
                                 const std::optional<std::string>& shardId, std::stop_token stop) {
    postJobOperation(failPath(jobId, shardId, "/heartbeat"), "", stop);
}

void WorkerHTTPClient::submitResult(const std::string& jobId,
                                    const std::optional<std::string>& shardId,
                                    const SubmitResultBody& body, std::stop_token stop) {
    std::string encoded;
    try {
        encoded = body.encode().dump();
    } catch (const std::exception& error) {
        throw WorkerHTTPError::encodingError(error.what());
    }
    const std::string path = failPath(jobId, shardId, "/result");
    auto request = makeRequest(path, "POST");
    request.headers.add("Content-Type", "application/json");
    request.body = std::move(encoded);
    auto response = performRequest(request, path, stop);
    if (response.status == 0) return;
    if (response.status == 404) throw WorkerHTTPError::notFoundOrNotOwned();
    if (response.status == 409) throw WorkerHTTPError::jobCancelled();
    throwIfNotOK(response, path);
}

void WorkerHTTPClient::submitFail(const std::string& jobId,
                                  const std::optional<std::string>& shardId,
                                  const FailReason& reason, std::stop_token stop) {
    std::string encoded;
    try {
        encoded = Json{{"error", reason.wireString()}}.dump();
    } catch (const std::exception& error) {
        throw WorkerHTTPError::encodingError(error.what());
    }
    postJobOperation(failPath(jobId, shardId, "/fail"), std::move(encoded), stop);
}

}  // namespace corvane
