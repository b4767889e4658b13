#pragma once
// The result and failure reports on the wire, and the static half of the performance block.

#include <cstdint>
#include <optional>
#include <string>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

// The machine and settings a shard ran under, and its stage times: carried in the performance
// body of its result.
struct WorkerPerformanceMetadata {
    std::optional<std::string> chip;
    std::optional<std::int64_t> memoryGB;
    std::optional<std::string> quantization;
    std::optional<std::int64_t> resourcePresetPercent;
    std::optional<std::int64_t> userPercent;
    std::optional<std::int64_t> effectivePercent;
    std::optional<std::int64_t> threadLimit;
    std::optional<std::int64_t> maxShardsInFlight;
    std::optional<std::string> resourceMode;
    std::optional<std::int64_t> cpuCountTotal;
    std::optional<std::int64_t> cpuCountPerf;
    std::optional<std::int64_t> cpuCountEfficiency;
    std::optional<double> downloadSeconds;
    std::optional<double> decodeSeconds;
    std::optional<double> inferenceSeconds;

    bool operator==(const WorkerPerformanceMetadata&) const = default;
};

struct SubmitPerformanceBody : WorkerPerformanceMetadata {
    std::optional<double> wallClockSeconds;
    std::int64_t sampleCount = 0;
    std::optional<double> cpuAvgPercent;
    std::optional<double> ramPeakGB;
    std::optional<double> audioSeconds;
    std::optional<double> cpuPerfAvgPct;
    std::optional<double> cpuEffAvgPct;
    std::optional<double> pollRttMs;
    std::optional<double> submitRttMs;
    std::optional<double> audioRealtimeFactor;
    std::optional<double> segmentsPerSecond;
    std::optional<bool> cacheHit;
    std::optional<double> cacheLoadSeconds;
    std::optional<std::int64_t> strategyVersion;

    bool operator==(const SubmitPerformanceBody&) const = default;
    Json encode() const;
};

struct SubmitResultBody {
    std::string transcript;
    std::string language;
    std::string model;
    std::string backend;
    std::optional<double> durationSeconds;
    std::optional<std::int64_t> wordCount;
    std::optional<SubmitPerformanceBody> performance;

    bool operator==(const SubmitResultBody&) const = default;
    Json encode() const;
};

// Why a shard failed. It travels as one string, the value of "error" in the failure report.
struct FailReason {
    std::string code;
    std::string message;
    bool isRetryable = true;

    bool operator==(const FailReason&) const = default;
    std::string wireString() const {
        return "code=" + code + "; retryable=" + (isRetryable ? "true" : "false") +
               "; message=" + message;
    }
};

}  // namespace corvane
