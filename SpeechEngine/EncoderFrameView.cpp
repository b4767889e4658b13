#include "SpeechEngine/EncoderFrameView.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "SpeechEngine/ASRError.h"

namespace speech {

EncoderFrameView::EncoderFrameView(const MultiArray& encoderOutput, int validLength,
                                   int expectedHiddenSize)
    : data_(encoderOutput.storage().data()), hiddenSize_(expectedHiddenSize) {
    const auto& shape = encoderOutput.shape();
    if (shape.size() != 3)
        throw ASRError::processingFailed("Invalid encoder output shape: " +
                                         encoderOutput.shapeText());
    if (shape[0] != 1)
        throw ASRError::processingFailed("Unsupported batch dimension: " +
                                         std::to_string(shape[0]));
    int hiddenAxis = 0;
    if (shape[1] == expectedHiddenSize) {
        hiddenAxis = 1;
    } else if (shape[2] == expectedHiddenSize) {
        hiddenAxis = 2;
    } else {
        throw ASRError::processingFailed(
            "Encoder hidden size mismatch: " + std::to_string(shape[1]) + ", expected " +
            std::to_string(expectedHiddenSize));
    }
    int timeAxis = hiddenAxis == 1 ? 2 : 1;
    if (shape[static_cast<std::size_t>(timeAxis)] == 0)
        throw ASRError::processingFailed("Encoder output has no frames");
    hiddenStride_ = encoderOutput.strides()[static_cast<std::size_t>(hiddenAxis)];
    timeStride_ = encoderOutput.strides()[static_cast<std::size_t>(timeAxis)];
    frameCount_ = static_cast<int>(std::min<std::int64_t>(
        std::max(validLength, 0), shape[static_cast<std::size_t>(timeAxis)]));
}

void EncoderFrameView::copyFrame(int index, std::span<float> destination) const {
    const float* frame = data_ + static_cast<std::int64_t>(index) * timeStride_;
    if (hiddenStride_ == 1) {
        std::memcpy(destination.data(), frame,
                    static_cast<std::size_t>(hiddenSize_) * sizeof(float));
        return;
    }
    for (int h = 0; h < hiddenSize_; ++h)
        destination[static_cast<std::size_t>(h)] = frame[h * hiddenStride_];
}

}  // namespace speech
