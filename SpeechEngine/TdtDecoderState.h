#pragma once
// What the predictor carries from one decoder call to the next: its LSTM state, the last token,
// its last output and how far the last call overshot its window.

#include <optional>

#include "SpeechEngine/FeatureMap.h"
#include "SpeechEngine/MultiArray.h"

namespace speech {

struct TdtDecoderState {
    static constexpr int hiddenSize = 640;

    MultiArray hiddenState;  // h, shape (layers, 1, 640)
    MultiArray cellState;    // c, same shape
    std::optional<int> lastToken;
    std::optional<MultiArray> predictorOutput;
    std::optional<int> timeJump;

    // Zeroed state for a predictor of `decoderLayers` layers. Throws std::bad_alloc (or
    // std::invalid_argument for a negative count) when it cannot be made.
    explicit TdtDecoderState(int decoderLayers = 2);

    int layers() const {
        return static_cast<int>(hiddenState.shape().empty() ? 0 : hiddenState.shape()[0]);
    }

    // Zeroes both arrays and forgets the last token, output and jump.
    void reset();
    // Takes "h_out" and "c_out" from a decoder result, keeping the present array for a missing
    // name.
    void update(const FeatureMap& decoderOutput);
};

}  // namespace speech
