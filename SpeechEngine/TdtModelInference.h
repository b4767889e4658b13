#pragma once
// Runs the predictor and the joint for one decoder call, through buffers made once per call:
// the joint's two inputs are rewritten in place for every step, and outputs land in reused
// arrays, so the decoding loop allocates nothing per frame.

#include <span>

#include "SpeechEngine/EncoderFrameView.h"
#include "SpeechEngine/FeatureMap.h"
#include "SpeechEngine/NeuralModel.h"
#include "SpeechEngine/TdtDecoderState.h"

namespace speech {

// What the joint proposed at one step.
struct JointDecision {
    int token = 0;
    float probability = 0.0f;
    int durationIndex = 0;
    std::span<const float> topKIds;     // empty unless the joint gives top-K
    std::span<const float> topKLogits;  // same length as topKIds
};

class TdtModelInference {
  public:
    TdtModelInference(const NeuralModel& decoder, const NeuralModel& joint, int encoderHiddenSize);

    // Runs the predictor on `token` from `state`, takes its new h and c into `state`, and returns
    // its "decoder" output (valid until the next call). Throws "Invalid decoder output".
    const MultiArray& runDecoder(int token, TdtDecoderState& state);

    // Copies the predictor's output into the joint's decoder-step input.
    void prepareDecoderStep(const MultiArray& predictorOutput);
    // Copies encoder frame `index` into the joint's encoder-step input.
    void prepareEncoderStep(const EncoderFrameView& frames, int index);
    // Runs the joint on the prepared inputs and checks its outputs.
    JointDecision runJointPrepared();

  private:
    const NeuralModel& decoder_;
    const NeuralModel& joint_;
    FeatureMap decoderInputs_;
    FeatureMap decoderOutputs_;
    FeatureMap jointInputs_;
    FeatureMap jointOutputs_;
    MultiArray* targets_;
    MultiArray* hiddenIn_;
    MultiArray* cellIn_;
    MultiArray* encoderStep_;
    MultiArray* decoderStep_;
};

// Copies a predictor output of shape (1, 640), (1, 640, 1) or (1, 1, 640), with any strides,
// into `destination` of shape (1, 640, 1). Throws ASRError::processingFailed naming the mismatch.
void normalizeDecoderProjection(const MultiArray& source, MultiArray& destination);

}  // namespace speech
