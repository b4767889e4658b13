#pragma once
// The decoder both handlers call with a claim's audio file: mono 32-bit float samples at 16 kHz.

#include <cstddef>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "CorvaneApp/models/AudioDecodeError.h"

namespace corvane {

class AudioPipeline {
  public:
    static constexpr double targetSampleRate = 16000.0;

    // Decodes the whole file on the calling thread (handlers call it from their task, never from
    // the main sequence). Any container and codec FFmpeg reads, found by content; channels are
    // averaged. Throws AudioDecodeError.
    static std::vector<float> decodeTo16kMonoPCM(const std::filesystem::path& fileURL);
    // The same for a file's bytes already in memory; `fileURL` only names it in errors and logs.
    static std::vector<float> decodeBytesTo16kMonoPCM(std::span<const std::byte> bytes,
                                                      const std::filesystem::path& fileURL);

    AudioPipeline() = delete;
};

}  // namespace corvane
