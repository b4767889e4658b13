#include "CorvaneApp/worker/ShardPerformance.h"

#include <algorithm>

namespace corvane {

void ShardStageAccumulator::add(WorkerControllerEvent::Stage stage, double seconds) {
    // A clock set back mid-stage gives a negative span; it counts as 0 rather than eating others.
    const double span = seconds > 0 ? seconds : 0;
    auto addTo = [span](std::optional<double>& field) { field = field.value_or(0) + span; };
    switch (stage) {
        case WorkerControllerEvent::Stage::download:
            addTo(download);
            break;
        case WorkerControllerEvent::Stage::decode:
            addTo(decode);
            break;
        case WorkerControllerEvent::Stage::inference:
            addTo(inference);
            break;
        default:
            break;
    }
}

SubmitPerformanceBody buildPerformanceBody(const PerformanceInputs& in) {
    SubmitPerformanceBody body;
    const auto& meta = in.meta;
    static_cast<WorkerPerformanceMetadata&>(body) = meta;
    // Spans measured across a clock set back are held at 0, never reported negative.
    const double wall = std::max(0.0, in.wallSeconds);
    body.wallClockSeconds = wall;
    body.sampleCount = in.aggregate.sampleCount;
    if (in.aggregate.sampleCount >= 1) {
        body.cpuAvgPercent = in.aggregate.avgCpuPercent;
        body.ramPeakGB =
            static_cast<double>(in.aggregate.peakRamBytes) / (1024.0 * 1024.0 * 1024.0);
        body.cpuPerfAvgPct = in.aggregate.avgCpuPerfPct;
        body.cpuEffAvgPct = in.aggregate.avgCpuEffPct;
    }
    if (in.startSeconds && in.endSeconds)
        body.audioSeconds = std::max(0.0, *in.endSeconds - *in.startSeconds);
    if (in.strategy) {
        const auto& suggested = in.strategy->threadLimit;
        if (!meta.threadLimit) {
            body.threadLimit = suggested;
        } else if (suggested) {
            body.threadLimit = std::max<std::int64_t>(1, std::min(*meta.threadLimit, *suggested));
        }
    }
    // Stage times are the worker's own measurements of this shard, never the provider's.
    body.downloadSeconds = in.stages ? in.stages->download : std::nullopt;
    body.decodeSeconds = in.stages ? in.stages->decode : std::nullopt;
    body.inferenceSeconds = in.stages ? in.stages->inference : std::nullopt;
    if (in.rtt && in.rtt->pollCount > 0)
        body.pollRttMs = in.rtt->pollSumMs / static_cast<double>(in.rtt->pollCount);
    if (in.lastSubmitRttMs) body.submitRttMs = std::max(0.0, *in.lastSubmitRttMs);
    if (body.audioSeconds && wall > 0) body.audioRealtimeFactor = *body.audioSeconds / wall;
    if (in.stages && in.stages->inference && *in.stages->inference > 0) {
        body.segmentsPerSecond = static_cast<double>(in.segmentCount) / *in.stages->inference;
    }
    if (in.cache) {
        body.cacheHit = in.cache->hit;
        body.cacheLoadSeconds = in.cache->loadSeconds;
    }
    if (in.strategy) body.strategyVersion = in.strategy->strategyVersion;
    return body;
}

}  // namespace corvane
