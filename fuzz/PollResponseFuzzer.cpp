// Feeds the coordinator's answer to a poll (status, headers, body) to the worker client's reading
// of it. The input is written like the answer itself:
//
//     200 4                          status, then the max_shards the poll asked for
//     X-Suggested-Max-Shards: 2      headers, one a line, up to an empty line
//
//     {"items": [...]}               the body, the rest
//
// Holds: only WorkerHTTPError comes out; its case is the one the status calls for; a claim read
// survives its own wire form; a bare claim reads alike through poll and a one-shard pollBatch.

#include <cstdint>
#include <string>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "fuzz/FuzzCheck.h"

namespace corvane {
namespace {

struct Answer {
    http::Response response;
    std::int64_t maxShards = 1;
};

std::string_view takeLine(std::string_view& text) {
    auto end = text.find('\n');
    auto line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

Answer readAnswer(std::string_view text) {
    Answer answer;
    answer.response.status = 200;
    auto first = takeLine(text);
    auto space = first.find(' ');
    if (auto status = parseDecimalInteger(first.substr(0, space)); status && *status >= 0) {
        answer.response.status = static_cast<long>(*status % 1000);
    }
    if (space != std::string_view::npos) {
        if (auto shards = parseDecimalInteger(first.substr(space + 1))) answer.maxShards = *shards;
    }
    while (!text.empty()) {
        auto line = takeLine(text);
        if (line.empty()) break;
        auto colon = line.find(':');
        if (colon == std::string_view::npos) continue;
        auto value = line.substr(colon + 1);
        if (!value.empty() && value.front() == ' ') value.remove_prefix(1);
        answer.response.headers.add(std::string(line.substr(0, colon)), std::string(value));
    }
    answer.response.body = std::string(text);
    return answer;
}

// The case each status calls for at poll; 2xx bodies that don't read are decoding errors.
void requireCaseOfStatus(const WorkerHTTPError& error, long status) {
    using Kind = WorkerHTTPError::Kind;
    const Kind expected = status == 401                                     ? Kind::unauthorized
                          : status == 409                                   ? Kind::versionTooOld
                          : status == 429                                   ? Kind::rateLimited
                          : status == 503                                   ? Kind::maintenanceMode
                          : status >= 200 && status <= 299 && status != 204 ? Kind::decodingError
                                                                            : Kind::httpError;
    fuzz::require(error.kind() == expected, "a poll's error is the case its status calls for",
                  "status " + std::to_string(status) + ": " + error.what());
    if (expected == Kind::httpError) {
        fuzz::require(error.statusCode() == status, "an HTTP error carries the status");
    }
    fuzz::require(error.errorDescription() && !error.errorDescription()->empty(),
                  "every error has a text");
}

void requireRoundTrip(const ShardClaim& claim) {
    auto again = fuzz::attempt<DecodingError>("a claim's wire form decodes", [&] {
        return ShardClaim::decode(parseJson(claim.encode().dump()));
    });
    fuzz::require(again && *again == claim, "a claim survives its own wire form",
                  claim.encode().dump());
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const auto answer = readAnswer(fuzz::textOf(data, size));
    const long status = answer.response.status;
    const std::string path = "/api/v1/workers/poll";

    std::optional<PollBatchOutcome> batch;
    try {
        batch = WorkerHTTPClient::readPollBatchResponse(answer.response, answer.maxShards, path);
    } catch (const WorkerHTTPError& error) {
        requireCaseOfStatus(error, status);
    } catch (const std::exception& error) {
        fuzz::broken("pollBatch throws only WorkerHTTPError", error.what());
    }
    if (batch) {
        fuzz::require(status >= 200 && status <= 299, "only a 2xx answer gives an outcome");
        fuzz::require(status != 204 || batch->items.empty(), "a 204 has no claims");
        for (const auto& claim : batch->items) requireRoundTrip(claim);
    }

    std::optional<std::optional<ShardClaim>> single;
    try {
        single = WorkerHTTPClient::readPollResponse(answer.response, path);
    } catch (const WorkerHTTPError& error) {
        requireCaseOfStatus(error, status);
    } catch (const std::exception& error) {
        fuzz::broken("poll throws only WorkerHTTPError", error.what());
    }
    if (single && *single) {
        requireRoundTrip(**single);
        // A bare claim is what a one-shard batch reads first.
        auto one = fuzz::attempt<WorkerHTTPError>("pollBatch throws only WorkerHTTPError", [&] {
            return WorkerHTTPClient::readPollBatchResponse(answer.response, 1, path);
        });
        fuzz::require(one && one->items.size() == 1 && one->items.front() == **single,
                      "a bare claim reads alike through poll and pollBatch");
    }
    return 0;
}
