#pragma once
// How a network should be run: which processors it may use and whether lower precision is fine.
// A runtime is free to ignore both; they are carried so that a backend that can use them does.

#include <optional>
#include <string_view>

namespace speech {

enum class ComputeUnits { cpuOnly, cpuAndGPU, cpuAndNeuralEngine, all };

// "cpuOnly", "cpuAndGPU", "cpuAndNeuralEngine", "all"
const char* name(ComputeUnits units);

struct ModelConfiguration {
    ComputeUnits computeUnits = ComputeUnits::cpuAndNeuralEngine;
    bool allowLowPrecisionAccumulationOnGPU = true;

    bool operator==(const ModelConfiguration&) const = default;
};

}  // namespace speech
