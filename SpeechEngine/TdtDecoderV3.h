#pragma once
// The greedy token-and-duration transducer decoder: walks the encoder frames, asks the joint for
// a token and a jump at each step, and records every token's frame, jump and confidence.

#include <optional>
#include <stop_token>
#include <string>

#include "SpeechEngine/ASRConfig.h"
#include "SpeechEngine/MultiArray.h"
#include "SpeechEngine/NeuralModel.h"
#include "SpeechEngine/TdtDecoderState.h"
#include "SpeechEngine/TdtHypothesis.h"
#include "SpeechEngine/TokenLanguageFilter.h"

namespace speech {

class TdtDecoderV3 {
  public:
    // `languageFilter`, when given, must outlive the decoder.
    explicit TdtDecoderV3(ASRConfig config, const TokenLanguageFilter* languageFilter = nullptr);

    const ASRConfig& config() const { return config_; }

    // Decodes one window of encoder frames. `decoderState` carries the predictor across calls and
    // is updated in place. Timestamps are frame indices plus `globalFrameOffset`. Throws
    // ASRError::processingFailed for malformed network outputs and CancellationError when `stop`
    // is requested; a network's own error passes through unchanged.
    TdtHypothesis decodeWithTimings(const MultiArray& encoderOutput, int encoderSequenceLength,
                                    int actualAudioFrames, const NeuralModel& decoderModel,
                                    const NeuralModel& jointModel, TdtDecoderState& decoderState,
                                    int contextFrameAdjustment, bool isLastChunk,
                                    int globalFrameOffset,
                                    const std::optional<std::string>& language = std::nullopt,
                                    std::stop_token stop = {}) const;

    // Tokens after which the predictor restarts: sentence-final punctuation of the vocabulary.
    static bool endsSentence(int token) { return token == 7883 || token == 7952 || token == 7948; }

  private:
    ASRConfig config_;
    const TokenLanguageFilter* languageFilter_;
};

}  // namespace speech
