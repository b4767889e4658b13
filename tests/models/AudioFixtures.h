#pragma once
// Test audio made at test time with the ffmpeg and espeak-ng command-line tools, kept in the build
// tree between runs so that each test process doesn't make it again.

#include <filesystem>
#include <string>
#include <vector>

namespace corvane::testing {

// Runs a program found on PATH with these arguments; true when it exits with status 0.
bool runProgram(const std::vector<std::string>& argv);

class AudioFixtures {
public:
    // The shared folder of generated audio.
    static const std::filesystem::path& directory();

    // `name` in the folder, made once by `ffmpeg -y <arguments> <path>`.
    static std::filesystem::path ffmpeg(const std::string& name, const std::vector<std::string>& arguments);

    // A tone of `seconds` at `hertz` and `amplitude` (0..1), the same in each of `channels`
    // channels (1, 2, 4 or 6), written by ffmpeg with the output options given (codec, rate).
    static std::filesystem::path tone(const std::string& name, double hertz, double seconds,
                                      const std::vector<std::string>& outputOptions, int channels = 1,
                                      double amplitude = 0.5);

    // A spoken sentence as espeak-ng writes it: 22050 Hz mono 16-bit WAV.
    static std::filesystem::path speech();

    // A copy of `source` under another name (the content decides, not the extension).
    static std::filesystem::path copyAs(const std::filesystem::path& source, const std::string& name);

    // The first `bytes` bytes of `source`.
    static std::filesystem::path truncated(const std::filesystem::path& source, const std::string& name, size_t bytes);

    // A file of these exact bytes.
    static std::filesystem::path bytes(const std::string& name, const std::string& content);
};

}  // namespace corvane::testing
