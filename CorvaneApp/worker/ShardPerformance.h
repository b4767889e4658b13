#pragma once
// The per-shard numbers behind a result's performance block, and the block itself.

#include <cstdint>
#include <optional>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/coordinator/SubmitRecords.h"
#include "CorvaneApp/eligibility/ResourceAggregate.h"
#include "CorvaneApp/worker/WorkerControllerEvent.h"

namespace corvane {

struct ShardStageAccumulator {
    std::optional<double> download;
    std::optional<double> decode;
    std::optional<double> inference;

    // Download, decode and inference add up (a handler may decode in parts); other stages are
    // ignored.
    void add(WorkerControllerEvent::Stage stage, double seconds);
};

struct ShardRTTAccumulator {
    std::int64_t pollCount = 0;
    double pollSumMs = 0;
    // A clock set back during the poll gives a negative span; it counts as 0.
    void add(double ms) {
        ++pollCount;
        pollSumMs += ms > 0 ? ms : 0;
    }
};

struct ShardCacheObservation {
    bool hit = false;
    double loadSeconds = 0;
};

struct WorkerSubmitRTTState {
    std::optional<double> lastSubmitRttMs;
};

// Everything the block is made of, gathered at the moment of submission.
struct PerformanceInputs {
    double wallSeconds = 0;
    ResourceAggregate aggregate;
    std::optional<double> startSeconds;
    std::optional<double> endSeconds;
    WorkerPerformanceMetadata meta;
    std::optional<ShardStageAccumulator> stages;
    std::optional<ShardRTTAccumulator> rtt;
    std::optional<ShardCacheObservation> cache;
    std::optional<double> lastSubmitRttMs;
    std::optional<CoordinatorStrategySuggestion> strategy;
    std::size_t segmentCount = 0;
};

SubmitPerformanceBody buildPerformanceBody(const PerformanceInputs& inputs);

}  // namespace corvane
