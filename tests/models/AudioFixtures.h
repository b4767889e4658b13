#pragma once
// Test audio made with the ffmpeg and espeak-ng command-line tools, kept in the build tree so that
// each test process doesn't make it again.

#include <filesystem>
#include <string>
#include <vector>

namespace corvane::testing {

struct AudioFixtures {
    static const std::filesystem::path& directory();
    // `name` in the folder, made once by `ffmpeg -y <arguments> <path>`; the extension picks the
    // muxer.
    static std::filesystem::path ffmpeg(const std::string& name,
                                        const std::vector<std::string>& arguments);
    // `seconds` of a 440 Hz tone at amplitude 0.5 in every channel of `layout` (an FFmpeg layout
    // name).
    static std::filesystem::path tone(const std::string& name, double seconds,
                                      const std::vector<std::string>& outputOptions,
                                      const std::string& layout = "mono");
    // A spoken sentence as espeak-ng writes it: 22050 Hz mono 16-bit WAV.
    static std::filesystem::path speech();
    static std::filesystem::path bytes(const std::string& name, const std::string& content);
};

}  // namespace corvane::testing
