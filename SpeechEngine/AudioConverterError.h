#pragma once
// Why audio could not be brought to the recogniser's format.

#include <optional>
#include <string>

#include "SpeechEngine/TypedError.h"

namespace speech {

enum class AudioConverterErrorKind {
    conversionFailed,
    sampleBufferCopyFailed,
    failedToCreateConverter,
    failedToCreateBuffer,
    sampleBufferFormatMissing,
    failedToCreateSourceFormat
};

class AudioConverterError : public TypedError<AudioConverterErrorKind> {
  public:
    static AudioConverterError conversionFailed(const std::optional<std::string>& error) {
        return {Kind::conversionFailed, "Audio conversion failed: " + error.value_or("")};
    }
    static AudioConverterError sampleBufferCopyFailed(int status) {
        return {
            Kind::sampleBufferCopyFailed,
            "Failed to copy samples from CMSampleBuffer (status " + std::to_string(status) + ")"};
    }
    static AudioConverterError failedToCreateConverter() {
        return {Kind::failedToCreateConverter, "The audio converter could not be created."};
    }
    static AudioConverterError failedToCreateBuffer() {
        return {Kind::failedToCreateBuffer, "Failed to create conversion buffer"};
    }
    static AudioConverterError sampleBufferFormatMissing() {
        return {Kind::sampleBufferFormatMissing, "Sample buffer has no audio format description"};
    }
    static AudioConverterError failedToCreateSourceFormat() {
        return {Kind::failedToCreateSourceFormat, "Failed to create the source audio format"};
    }

  private:
    using TypedError::TypedError;
};

}  // namespace speech
