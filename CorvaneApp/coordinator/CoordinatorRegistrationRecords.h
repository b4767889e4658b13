#pragma once
// What a machine sends when it registers, and what the coordinator answers.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

struct WorkerRegistrationRequest {
    std::string workerID;
    std::optional<std::string> displayName;
    std::optional<std::string> chip;
    std::optional<std::int64_t> memoryGB;
    std::vector<std::string> availableHandlers;
    std::vector<std::string> availableModels;
    std::optional<std::string> buildIdentity;

    bool operator==(const WorkerRegistrationRequest&) const = default;
    Json encode() const;
};

struct WorkerRegistrationResponse {
    std::string workerID;
    std::string workerToken;
    std::string message;

    bool operator==(const WorkerRegistrationResponse&) const = default;
    // All three keys are required; throws DecodingError otherwise.
    static WorkerRegistrationResponse decode(const Json& json);
};

struct WorkerRegistrationErrorResponse {
    std::string error;
    static WorkerRegistrationErrorResponse decode(const Json& json);
};

}  // namespace corvane
