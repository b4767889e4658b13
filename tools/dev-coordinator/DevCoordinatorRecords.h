#pragma once
// The value types of the local coordinator: what it hands out, how a test scripts its answers,
// and what it remembers of the worker's requests and reports.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "CorvaneApp/coordinator/ModelIdentifier.h"

namespace corvane::dev {

// One shard waiting to be claimed. `audioFile` is a file name inside the audio folder, served at
// "/audio/<name>".
struct ShardSpec {
    std::string jobID{};
    std::optional<std::string> shardID{};
    std::string audioFile{};
    std::optional<double> startSeconds{}, endSeconds{};
    std::optional<ModelIdentifier> modelIdentifier{};
    std::string jobType = "transcription";

    bool operator==(const ShardSpec&) const = default;
};

// A canned answer that replaces the normal handling of one request.
struct ScriptedReply {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers{};
    std::string body{};
    std::string contentType = "application/json";
    double delaySeconds = 0;   // answer late
    bool dropMidBody = false;  // announce Content-Length, send half of the body, close
    bool closeWithoutReply = false;
    // Handle the request as usual (its effect happens), then close without sending the answer:
    // the client can't tell whether it went through.
    bool dropAfterHandling = false;
};

// Faults of the audio files. They stay until replaced.
struct AudioFaults {
    bool ignoreRange = false;                  // answer 200 with the whole file
    std::optional<size_t> dropAfterBytes{};    // close after this many bytes of the body
    std::optional<std::string> replaceBody{};  // served instead of the file's bytes, file or not
};

struct RecordedRequest {
    std::string method{};
    std::string path{};                            // as sent, still percent-encoded
    std::string query{};                           // raw, without '?'
    std::map<std::string, std::string> headers{};  // lower-cased names
    std::string body{};
};

struct ResultRecord {
    std::string jobID{};
    std::optional<std::string> shardID{};
    nlohmann::json body{};
};

struct FailureRecord {
    std::string jobID{};
    std::optional<std::string> shardID{};
    std::string error{};  // the "error" string
};

// One accepted registration: the machine's request body as sent.
struct RegistrationRecord {
    std::string workerID{};
    bool sentEnrollmentToken = false;
    nlohmann::json body{};
};

struct HeartbeatRecord {
    std::string jobID{};
    std::optional<std::string> shardID{};
};

}  // namespace corvane::dev
