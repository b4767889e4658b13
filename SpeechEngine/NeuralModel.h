#pragma once
// One loaded network: named arrays in, named arrays out. This and NeuralRuntime are all that a
// real inference backend has to implement for the engine.

#include <string>
#include <vector>

#include "SpeechEngine/FeatureMap.h"
#include "SpeechEngine/ModelConfiguration.h"

namespace speech {

// What a network declares about itself.
struct ModelDescription {
    std::vector<std::string> inputNames;
    std::vector<std::string> outputNames;
};

class NeuralModel {
  public:
    virtual ~NeuralModel() = default;

    virtual const ModelDescription& description() const = 0;
    virtual const ModelConfiguration& configuration() const = 0;

    // Runs the network. Arrays already held in `outputs` are reused as output buffers; entries
    // the network does not write this time read as absent afterwards. A loaded model is shared by
    // several managers, so this may be called from several threads at once. Throws on failure.
    void predict(const FeatureMap& inputs, FeatureMap& outputs) const {
        outputs.markAllAbsent();
        run(inputs, outputs);
    }

  private:
    // Writes every output through outputs.prepare(name, shape, type).
    virtual void run(const FeatureMap& inputs, FeatureMap& outputs) const = 0;
};

}  // namespace speech
