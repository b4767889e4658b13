#pragma once
// The result of one decoder call: tokens with their frames, jumps and confidences.

#include <optional>
#include <vector>

#include "SpeechEngine/TdtDecoderState.h"

namespace speech {

struct TdtHypothesis {
    float score = 0.0f;
    std::vector<int> ySequence;
    std::optional<TdtDecoderState> decState;
    std::vector<int> timestamps;      // frame of each token, in the whole recording
    std::vector<int> tokenDurations;  // frames jumped after each token
    std::vector<float> tokenConfidences;
    std::optional<int> lastToken;

    bool isEmpty() const { return ySequence.empty(); }
};

}  // namespace speech
