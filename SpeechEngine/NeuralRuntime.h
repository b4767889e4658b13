#pragma once
// Loads compiled-model folders ("Encoder.mlmodelc") into runnable networks.

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "SpeechEngine/ModelConfiguration.h"
#include "SpeechEngine/NeuralModel.h"

namespace speech {

// A folder that a runtime cannot turn into a network (unreadable, truncated, wrong format).
class ModelLoadError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

class NeuralRuntime {
  public:
    virtual ~NeuralRuntime() = default;
    // Loads the network in `modelFolder`. Throws ModelLoadError. Safe to call from any thread.
    virtual std::shared_ptr<const NeuralModel> load(
        const std::filesystem::path& modelFolder,
        const ModelConfiguration& configuration) const = 0;
};

}  // namespace speech
