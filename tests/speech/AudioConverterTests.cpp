// Files and buffers of other rates and channel counts to mono 16 kHz, and the manager's file and
// buffer entries on top of it.

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
using ::testing::HasSubstr;

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

TEST(AudioConverterTest, FilesOfOtherRatesAndChannelsBecomeMono16k) {
    testing::TemporaryDirectory dir;
    AudioConverter converter;
    // One second at 44.1 kHz, stereo: left 0.6, right 0.2 -> mono 0.4 at 16 kHz.
    writeWav(dir.path() / "stereo.wav", 44100, 2, 44100,
             [](int, int c) { return c == 0 ? 0.6f : 0.2f; });
    auto samples = converter.resampleAudioFile(dir.path() / "stereo.wav");
    EXPECT_NEAR(static_cast<double>(samples.size()), 16000.0, 16.0);
    EXPECT_NEAR(meanOf(samples, 1000, 15000), 0.4f, 0.002f);

    // Unreadable input: the decoder's words, inside the converter's text.
    testing::writeText(dir.path() / "notes.wav", "these are not samples");
    for (auto path : {dir.path() / "notes.wav", dir.path() / "missing.wav"}) {
        try {
            converter.resampleAudioFile(path);
            ADD_FAILURE() << path;
        } catch (const AudioConverterError& error) {
            EXPECT_EQ(error.kind(), AudioConverterError::Kind::conversionFailed);
            EXPECT_THAT(error.what(), ::testing::StartsWith("Audio conversion failed: "));
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
    for (int f = 0; f < 48000; ++f) {
        interleaved.push_back(0.5f);
        interleaved.push_back(-0.1f);
        planar[static_cast<std::size_t>(f)] = 0.5f;
        planar[static_cast<std::size_t>(48000 + f)] = -0.1f;
    }
    auto a = converter.resampleBuffer({{48000, 2, true}, interleaved});
    auto b = converter.resample(planar, {48000, 2, false});
    EXPECT_NEAR(static_cast<double>(a.size()), 16000.0, 16.0);
    EXPECT_EQ(a, b);
    EXPECT_NEAR(meanOf(a, 1000, 15000), 0.2f, 0.002f);

    EXPECT_EQ(AudioConverter::extractMonoFloat32({{8000, 2, false}, {1, 2, 3, 5}}),
              (std::vector<float>{2, 3.5f}));
    // Linear interpolation of the first channel only: 8 kHz to 16 kHz puts midpoints between.
    EXPECT_EQ(AudioConverter::linearResample({{8000, 2, true}, {0, 9, 1, 9, 3, 9}}, 16000),
              (std::vector<float>{0, 0.5f, 1, 2, 3, 3}));

    struct Row {
        AudioBuffer buffer;
        AudioConverterError::Kind expected;
    };
    for (const auto& row :
         {Row{{{0, 1, true}, {1}}, AudioConverterError::Kind::failedToCreateSourceFormat},
          Row{{{16000, 0, true}, {1}}, AudioConverterError::Kind::failedToCreateSourceFormat},
          Row{{{16000, 2, true}, {1, 2, 3}}, AudioConverterError::Kind::conversionFailed}}) {
        try {
            converter.resampleBuffer(row.buffer);
            ADD_FAILURE();
        } catch (const AudioConverterError& error) {
            EXPECT_EQ(error.kind(), row.expected) << error.what();
        }
    }
}

TEST(AudioConverterTest, TheManagerTranscribesFilesAndBuffersAndNamesUnreadableFiles) {
    testing::TemporaryDirectory dir;
    ScriptedRuntime::installModelSet(dir.path() / "set", AsrModelVersion::v2,
                                     {{30, {4}, {1}, {0.9f}}}, 1024,
                                     {{4,
                                       "\xE2\x96\x81"
                                       "word"}});
    AsrManager manager(ASRConfig::defaultConfig(),
                       testing::loadScriptedModels(dir.path() / "set", AsrModelVersion::v2));
    // Two seconds at 32 kHz stereo; frame 10 (0.8 s to 0.88 s) carries code 30 in both channels.
    auto value = [](int f, int) { return f >= 25600 && f < 28160 ? 0.03f : 0.0f; };
    writeWav(dir.path() / "speech.wav", 32000, 2, 64000, value);
    TdtDecoderState state(2);
    EXPECT_EQ(manager.transcribe(dir.path() / "speech.wav", state).text, "word");

    AudioBuffer buffer{{32000, 2, true}, {}};
    for (int f = 0; f < 64000; ++f) {
        buffer.samples.push_back(value(f, 0));
        buffer.samples.push_back(value(f, 1));
    }
    TdtDecoderState fresh(2);  // the first call's state would carry "word" as the last token
    EXPECT_EQ(manager.transcribe(buffer, fresh).text, "word");

    try {
        manager.transcribe(dir.path() / "absent.flac", state);
        ADD_FAILURE();
    } catch (const ASRError& error) {
        EXPECT_EQ(error.kind(), ASRError::Kind::fileAccessFailed);
        EXPECT_THAT(error.what(), HasSubstr("Failed to access audio file at " +
                                            (dir.path() / "absent.flac").string() +
                                            ": Audio conversion failed: "));
    }
}

}  // namespace
}  // namespace speech
