#pragma once
// Decodes any audio file that FFmpeg reads, recognised by its content, to mono float samples at
// one target rate; also converts interleaved float buffers to that form.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane {

class FfmpegAudioDecoder {
  public:
    // Why a decode stopped; the text is FFmpeg's own words for the cause where it has any.
    class Failure : public std::runtime_error {
      public:
        enum class Stage {
            open,           // not a file FFmpeg can read as media
            noAudioStream,  // media, but nothing to decode as audio
            read,           // the data ends early or cannot be read
            conversion,     // the resampler refused the format
        };
        Failure(Stage stage, const std::string& text) : std::runtime_error(text), stage_(stage) {}
        Stage stage() const { return stage_; }

      private:
        Stage stage_;
    };

    struct Result {
        std::vector<float> samples;  // mono, at the target rate
        int sourceSampleRate = 0;
        int sourceChannels = 0;
        std::int64_t decodedFrames = 0;              // frames at the source rate
        std::optional<std::int64_t> declaredFrames;  // what the container promises, when it says
        // The source's length in frames: what the container promises, else what was decoded.
        std::int64_t lengthFrames() const { return declaredFrames.value_or(decodedFrames); }
    };

    explicit FfmpegAudioDecoder(int targetSampleRate = 16000);

    int targetSampleRate() const { return targetSampleRate_; }

    // Decodes the best audio stream of the file. The format is found from the bytes alone, so a
    // file with the wrong extension still decodes. The file is read as it is decoded, never held
    // whole. A media file that names other files or URLs (playlists, references) never gets them
    // opened: it is decoded from its own bytes or not at all. Throws Failure.
    Result decodeFile(const std::filesystem::path& path) const;
    // The same for a file's bytes already in memory.
    Result decodeBytes(std::span<const std::byte> bytes) const;

    // Converts interleaved float samples at `sampleRate` with `channels` channels to mono at the
    // target rate. Throws Failure (conversion) for a rate or channel count below 1.
    std::vector<float> convertInterleaved(std::span<const float> samples, int sampleRate,
                                          int channels) const;

  private:
    int targetSampleRate_;
};

}  // namespace corvane
