#pragma once
// Read access to the frames of an encoder output, shaped (1, hidden, frames) or
// (1, frames, hidden), copied out one frame at a time with the array's own strides.

#include <cstdint>
#include <span>

#include "SpeechEngine/MultiArray.h"

namespace speech {

class EncoderFrameView {
  public:
    // Throws ASRError::processingFailed for a shape that is not (1, hidden, n) or (1, n, hidden),
    // or that has no frames. `validLength` caps the frame count.
    EncoderFrameView(const MultiArray& encoderOutput, int validLength, int expectedHiddenSize);

    int frameCount() const { return frameCount_; }
    int hiddenSize() const { return hiddenSize_; }
    // Copies frame `index` (0 ≤ index < frameCount) into `destination` (hiddenSize elements).
    void copyFrame(int index, std::span<float> destination) const;

  private:
    const float* data_;
    std::int64_t hiddenStride_;
    std::int64_t timeStride_;
    int hiddenSize_;
    int frameCount_;
};

}  // namespace speech
