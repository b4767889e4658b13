#pragma once
// Why audio could not be brought to the recogniser's format.

#include <exception>
#include <optional>
#include <string>

namespace speech {

class AudioConverterError : public std::exception {
  public:
    enum class Kind {
        conversionFailed,
        sampleBufferCopyFailed,
        failedToCreateConverter,
        failedToCreateBuffer,
        sampleBufferFormatMissing,
        failedToCreateSourceFormat
    };

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

    Kind kind() const { return kind_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    AudioConverterError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
};

}  // namespace speech
