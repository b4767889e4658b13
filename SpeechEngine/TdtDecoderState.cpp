#include "SpeechEngine/TdtDecoderState.h"

#include <stdexcept>

namespace speech {

TdtDecoderState::TdtDecoderState(int decoderLayers)
    : hiddenState({decoderLayers, 1, hiddenSize}), cellState({decoderLayers, 1, hiddenSize}) {}

void TdtDecoderState::reset() {
    hiddenState.fill(0.0f);
    cellState.fill(0.0f);
    lastToken.reset();
    predictorOutput.reset();
    timeJump.reset();
}

void TdtDecoderState::update(const FeatureMap& decoderOutput) {
    if (const auto* h = decoderOutput.find("h_out")) hiddenState = *h;
    if (const auto* c = decoderOutput.find("c_out")) cellState = *c;
}

}  // namespace speech
