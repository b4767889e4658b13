#pragma once
// The static half of a result's performance block: how this machine is configured, rebuilt for
// every shard from the runtime-state file, the owner's settings and the machine's facts.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/coordinator/SubmitRecords.h"

namespace corvane {

// Where each value comes from. The settings readers must do their own hop to the settings'
// sequence: the provider is called from a shard's task.
struct PerformanceMetadataSources {
    // thermal.effective_resource_percent of the runtime-state file; absent on any failure.
    std::function<std::optional<double>()> runtimeEffectivePercent;
    // The percentage the settings imply when the runtime-state file says nothing.
    std::function<int()> fallbackPercent;
    std::function<double()> awayCpuCeiling;
    // handlers.transcribe.quantization of the configuration text.
    std::function<std::optional<std::string>()> quantization;
    std::function<int()> activeProcessorCount;
    std::function<std::optional<std::string>()> chip;
    std::function<std::optional<std::uint64_t>()> physicalMemoryBytes;
};

WorkerPerformanceMetadata defaultPerformanceMetadata(const PerformanceMetadataSources& sources);

// The provider the worker calls once per shard.
std::function<WorkerPerformanceMetadata()> makePerformanceMetadataProvider(
    PerformanceMetadataSources sources);

// Reads thermal.effective_resource_percent from a runtime-state file. Absent when the file is
// missing, unreadable, not JSON, or lacks a numeric value there.
std::optional<double> readRuntimeEffectiveResourcePercent(const std::filesystem::path& file);

}  // namespace corvane
