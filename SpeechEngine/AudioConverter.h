#pragma once
// Brings audio files and buffers of any rate and channel count to the recogniser's format: mono
// 32-bit float at 16 kHz. Files are decoded by the shared FFmpeg core of the platform layer.

#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "CorvaneApp/platform/FfmpegAudioDecoder.h"

namespace spdlog {
class logger;
}

namespace speech {

// The layout of a block of float samples.
struct AudioFormat {
    int sampleRate = 16000;
    int channels = 1;
    bool interleaved = true;  // else planar: all of channel 0, then all of channel 1, ...

    bool operator==(const AudioFormat&) const = default;
};

// A block of float samples in a given layout.
struct AudioBuffer {
    AudioFormat format;
    std::vector<float> samples;
};

class AudioConverter {
  public:
    explicit AudioConverter(int sampleRate = 16000, bool debug = false);

    const AudioFormat& targetFormat() const { return targetFormat_; }

    // Decodes a whole file. Throws AudioConverterError::conversionFailed with the decoder's words.
    std::vector<float> resampleAudioFile(const std::filesystem::path& path) const;
    // Converts a buffer; one already in the target format is copied out as it is. Throws
    // AudioConverterError for a format with no rate or channels, or samples that don't fill
    // whole frames.
    std::vector<float> resampleBuffer(const AudioBuffer& buffer) const;
    std::vector<float> resample(std::span<const float> samples, const AudioFormat& from) const;

    // The channels averaged into one, at the buffer's own rate.
    static std::vector<float> extractMonoFloat32(const AudioBuffer& buffer);
    // Linear interpolation of the first channel to `targetRate`: the fall-back when no converter
    // can be made.
    static std::vector<float> linearResample(const AudioBuffer& buffer, int targetRate);

  private:
    AudioFormat targetFormat_;
    bool debug_;
    corvane::FfmpegAudioDecoder decoder_;
    std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace speech
