#pragma once
// The per-poll negotiation: what the worker can do, and what the coordinator suggests back.

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

struct WorkerCapabilities {
    struct Capability {
        std::string backend;
        std::string model;
        bool cached = false;
        std::optional<std::string> quantization;
        bool operator==(const Capability&) const = default;
    };
    std::vector<Capability> capabilities;
    std::string chipTier;
    std::int64_t ramGB = 0;
    std::optional<std::string> buildIdentity;
    std::optional<std::int64_t> computeUserPercent;
    std::optional<std::int64_t> computeEffectivePercent;
    std::optional<std::int64_t> computeThreadLimit;
    std::optional<std::int64_t> computeMaxShardsInFlight;
    std::optional<std::string> computeResourceMode;
    std::optional<std::int64_t> computeCpuCountTotal;
    std::optional<std::int64_t> computeCpuCountPerf;
    std::optional<std::int64_t> computeCpuCountEfficiency;
    std::optional<std::vector<ModelIdentifier>> installedModels;
    std::optional<ModelIdentifier> activeModel;

    bool operator==(const WorkerCapabilities&) const = default;
    Json encode() const;
};

// Builds the capability record sent with each poll.
class CapabilitiesProvider {
  public:
    virtual ~CapabilitiesProvider() = default;
    virtual WorkerCapabilities snapshot() = 0;
};

struct CoordinatorStrategySuggestion {
    std::optional<std::int64_t> threadLimit;
    std::optional<double> modelFootprintGB;
    std::optional<double> perShardWorkingSetGB;
    std::optional<std::int64_t> strategyVersion;

    bool operator==(const CoordinatorStrategySuggestion&) const = default;
    // Absent when none of the four headers carries a well-formed value.
    static std::optional<CoordinatorStrategySuggestion> parse(const http::Headers& headers);
};

// A decimal integer: optional sign and digits, nothing else, within the signed 64-bit range.
std::optional<std::int64_t> parseDecimalInteger(std::string_view text);
// A floating-point number that spans the whole text.
std::optional<double> parseWholeDouble(std::string_view text);

// The last strategy suggestion, shared between the worker and whoever reads it.
class StrategySuggestionHolder {
  public:
    explicit StrategySuggestionHolder(
        std::optional<CoordinatorStrategySuggestion> initial = std::nullopt)
        : value_(std::move(initial)) {}
    std::optional<CoordinatorStrategySuggestion> current() const {
        std::lock_guard lock(mutex_);
        return value_;
    }
    void set(std::optional<CoordinatorStrategySuggestion> value) {
        std::lock_guard lock(mutex_);
        value_ = std::move(value);
    }

  private:
    mutable std::mutex mutex_;
    std::optional<CoordinatorStrategySuggestion> value_;  // guarded by mutex_
};

struct PollBatchOutcome {
    std::vector<ShardClaim> items;
    std::optional<std::int64_t> suggestedMaxShards;
    std::optional<CoordinatorStrategySuggestion> strategySuggestion;
};

}  // namespace corvane
