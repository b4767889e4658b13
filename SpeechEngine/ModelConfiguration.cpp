#include "SpeechEngine/ModelConfiguration.h"

namespace speech {

const char* name(ComputeUnits units) {
    switch (units) {
        case ComputeUnits::cpuOnly:
            return "cpuOnly";
        case ComputeUnits::cpuAndGPU:
            return "cpuAndGPU";
        case ComputeUnits::cpuAndNeuralEngine:
            return "cpuAndNeuralEngine";
        case ComputeUnits::all:
            return "all";
    }
    return "all";
}

}  // namespace speech
