#pragma once
// The earlier command-line daemon's live report, "~/.varnix-compute/worker-runtime-state.json":
// thermal throttling, resource level, its eligibility verdict and the shard in hand. This program
// only reads it, as an optional second source of status. Every field may be missing; timestamps
// stay strings and are parsed where needed (RuntimeStateDateParser).

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

struct ThermalState {
    std::optional<std::string> thermalLevel;
    std::optional<double> userResourcePercent;
    std::optional<double> effectiveResourcePercent;
    std::optional<std::string> adjustmentReason;
    bool operator==(const ThermalState&) const = default;
};

struct ResourcePolicy {
    std::optional<std::string> preset;
    std::optional<std::int64_t> maxConcurrentJobs;
    bool operator==(const ResourcePolicy&) const = default;
};

struct EligibilityState {
    std::optional<std::string> reason;  // machine word for the state
    std::optional<std::string> headline;
    std::optional<std::string> detail;
    std::optional<bool> isClaimable;
    std::optional<bool> isBlocked;
    std::optional<std::string> lastClaimableAt;
    std::optional<std::string> lastBlockedAt;
    std::optional<std::string> lastBlockedReason;
    std::optional<std::string> jobID;
    std::optional<std::string> shardID;
    std::optional<std::string> claimedAt;
    bool operator==(const EligibilityState&) const = default;
};

struct RuntimeState {
    std::optional<std::string> workerID;
    std::optional<ThermalState> thermal;
    std::optional<ResourcePolicy> resourcePolicy;
    std::optional<EligibilityState> eligibility;
    std::optional<std::string> currentJobID;
    std::optional<std::string> currentShardID;
    std::optional<std::string> currentShardStartedAt;
    std::optional<double> currentShardExpectedSeconds;
    std::optional<std::string> claimedAt;
    std::optional<std::string> updatedAt;
    bool operator==(const RuntimeState&) const = default;

    // A missing key or a JSON null is absent; unknown keys are ignored. A value of the wrong type
    // at any level fails the whole record with DecodingError.
    static RuntimeState decode(const Json& json);
    static RuntimeState parse(
        std::string_view text);  // decode(), and DecodingError for malformed JSON
    Json encode() const;
};

// "<home>/.varnix-compute/worker-runtime-state.json".
std::filesystem::path runtimeStatePath(const std::filesystem::path& home);

// Reads and decodes the file afresh; absent when it is missing, unreadable or does not decode.
std::optional<RuntimeState> loadRuntimeState(const std::filesystem::path& path);

// thermal.effectiveResourcePercent of the file, rounded to a whole number (halves away from
// zero); absent when the file, the value or the decoding fails, or the value is not finite.
std::optional<std::int64_t> runtimeEffectivePercent(const std::filesystem::path& path);
// The same of a record already read.
std::optional<std::int64_t> runtimeEffectivePercent(const RuntimeState& state);

}  // namespace corvane
