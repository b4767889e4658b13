#pragma once
// One unit of work from the coordinator, decoded from a poll response.

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "CorvaneApp/coordinator/AnyJSONValue.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"

namespace corvane {

struct ShardClaim {
    std::string jobID;
    std::string jobType;
    std::string audioURL;
    std::map<std::string, AnyJSONValue> inputConfig;
    std::int64_t timeoutSeconds = 3600;
    std::optional<std::string> shardID;
    std::optional<double> startSeconds;
    std::optional<double> endSeconds;
    std::optional<std::string> apiVersion;
    std::optional<ModelIdentifier> modelIdentifier;

    bool operator==(const ShardClaim&) const = default;

    // The key of the claim in every runtime map: its shard id, else its job id.
    const std::string& key() const { return shardID ? *shardID : jobID; }
    ModelIdentifier modelOrDefault() const {
        return modelIdentifier.value_or(defaultModelIdentifier());
    }

    // Lenient where the contract is lenient (time-out, configuration, model block fall back to
    // defaults), strict elsewhere. Throws DecodingError.
    static ShardClaim decode(const Json& json);
    // The wire form, as the coordinator sends it (used by the local coordinator and tests).
    Json encode() const;
};

}  // namespace corvane
