// Files and buffers of other rates and channel counts to mono 16 kHz, and the manager's file
// entry on top of it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "SpeechEngine/ASRError.h"
#include "SpeechEngine/AsrManager.h"
#include "SpeechEngine/AudioConverter.h"
#include "SpeechEngine/AudioConverterError.h"
#include "tests/speech/SpeechTestSupport.h"

namespace speech {
namespace {

namespace fs = std::filesystem;
using ::testing::StartsWith;

// A 16-bit PCM WAV file whose channel c holds value(frame, c).
void writeWav(const fs::path& path, int rate, int channels, int frames,
              const std::function<float(int, int)>& value) {
    std::ofstream out(path, std::ios::binary);
    auto put32 = [&](std::uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    auto put16 = [&](std::uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    std::uint32_t bytes = static_cast<std::uint32_t>(frames * channels * 2);
    out.write("RIFF", 4);
    put32(36 + bytes);
    out.write("WAVEfmt ", 8);
    put32(16);
    put16(1);
    put16(static_cast<std::uint16_t>(channels));
    put32(static_cast<std::uint32_t>(rate));
    put32(static_cast<std::uint32_t>(rate * channels * 2));
    put16(static_cast<std::uint16_t>(channels * 2));
    put16(16);
    out.write("data", 4);
    put32(bytes);
    for (int f = 0; f < frames; ++f) {
        for (int c = 0; c < channels; ++c)
            put16(static_cast<std::uint16_t>(
                static_cast<std::int16_t>(std::lround(value(f, c) * 32767))));
    }
}

float meanOf(const std::vector<float>& samples, std::size_t from, std::size_t to) {
    double sum = 0;
    for (std::size_t i = from; i < to; ++i) sum += samples[i];
    return static_cast<float>(sum / static_cast<double>(to - from));
}

TEST(AudioConverterTest, FilesOfOtherRatesAndChannelsBecomeMono16kThatTheManagerTranscribes) {
    testing::ScratchFolder dir;
    // Two seconds at 44.1 kHz stereo, silent but for 0.8 s to 1.2 s where left 0.04 and right
    // 0.02 average to 0.03: code 30 on frames 10 to 14, which the joint reads as "word" once.
    writeWav(dir.path() / "speech.wav", 44100, 2, 88200, [](int f, int c) {
        return f >= 35280 && f < 52920 ? (c == 0 ? 0.04f : 0.02f) : 0.0f;
    });
    AudioConverter converter;
    auto samples = converter.resampleAudioFile(dir.path() / "speech.wav");
    EXPECT_NEAR(static_cast<double>(samples.size()), 32000.0, 32.0);
    EXPECT_NEAR(meanOf(samples, 13200, 18800), 0.03f, 0.0005f);
    EXPECT_NEAR(meanOf(samples, 0, 12000), 0.0f, 0.0005f);

    ScriptedRuntime::installModelSet(dir.path() / "set", AsrModelVersion::v2,
                                     {{30, {4}, {1}, {0.9f}}}, 1024, {{4, "\xE2\x96\x81word"}});
    AsrManager manager(ASRConfig::defaultConfig(),
                       testing::loadScriptedModels(dir.path() / "set", AsrModelVersion::v2));
    TdtDecoderState state(2);
    EXPECT_EQ(manager.transcribe(dir.path() / "speech.wav", state).text, "word");

    // Unreadable input: the decoder's words inside the converter's text, inside the manager's.
    testing::writeText(dir.path() / "notes.wav", "these are not samples");
    for (auto path : {dir.path() / "notes.wav", dir.path() / "missing.flac"}) {
        try {
            converter.resampleAudioFile(path);
            ADD_FAILURE() << path;
        } catch (const AudioConverterError& error) {
            EXPECT_EQ(error.kind(), AudioConverterError::Kind::conversionFailed);
            EXPECT_THAT(error.what(), StartsWith("Audio conversion failed: "));
        }
        try {
            manager.transcribe(path, state);
            ADD_FAILURE() << path;
        } catch (const ASRError& error) {
            EXPECT_EQ(error.kind(), ASRError::Kind::fileAccessFailed);
            EXPECT_THAT(error.what(), StartsWith("Failed to access audio file at " + path.string() +
                                                 ": Audio conversion failed: "));
        }
    }
}

TEST(AudioConverterTest, BuffersAreCopiedConvertedOrRefused) {
    AudioConverter converter;
    // Already mono 16 kHz: out as it is.
    std::vector<float> mono{0.1f, -0.2f, 0.3f};
    EXPECT_EQ(converter.resampleBuffer({{16000, 1, true}, mono}), mono);
    // Planar and interleaved stereo at 48 kHz give the same mono third-length signal.
    std::vector<float> interleaved, planar(96000);
    for (std::size_t f = 0; f < 48000; ++f) {
        interleaved.insert(interleaved.end(), {0.5f, -0.1f});
        planar[f] = 0.5f;
        planar[48000 + f] = -0.1f;
    }
    auto a = converter.resampleBuffer({{48000, 2, true}, interleaved});
    EXPECT_NEAR(static_cast<double>(a.size()), 16000.0, 16.0);
    EXPECT_EQ(a, converter.resample(planar, {48000, 2, false}));
    EXPECT_NEAR(meanOf(a, 1000, 15000), 0.2f, 0.002f);

    EXPECT_EQ(AudioConverter::extractMonoFloat32({{8000, 2, false}, {1, 2, 3, 5}}),
              (std::vector<float>{2, 3.5f}));
    // Linear interpolation of the first channel only: 8 kHz to 16 kHz puts midpoints between.
    EXPECT_EQ(AudioConverter::linearResample({{8000, 2, true}, {0, 9, 1, 9, 3, 9}}, 16000),
              (std::vector<float>{0, 0.5f, 1, 2, 3, 3}));

    auto kindOf = [&](const AudioBuffer& buffer) {
        try {
            converter.resampleBuffer(buffer);
        } catch (const AudioConverterError& error) {
            return std::optional(error.kind());
        }
        return std::optional<AudioConverterError::Kind>();
    };
    EXPECT_EQ(kindOf({{0, 1, true}, {1}}), AudioConverterError::Kind::failedToCreateSourceFormat);
    EXPECT_EQ(kindOf({{16000, 2, true}, {1, 2, 3}}), AudioConverterError::Kind::conversionFailed);
}

}  // namespace
}  // namespace speech
