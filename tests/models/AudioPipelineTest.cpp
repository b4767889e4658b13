#include "CorvaneApp/models/AudioPipeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "CorvaneApp/platform/FfmpegAudioDecoder.h"
#include "tests/models/AudioFixtures.h"
#include "tests/models/TestFolder.h"

namespace corvane {
namespace {

using testing::AudioFixtures;
constexpr double rate = AudioPipeline::targetSampleRate;

// The middle of a signal, away from the resampler's ramps at both ends.
std::vector<float> middle(const std::vector<float>& samples) {
    auto edge = static_cast<long>(samples.size() / 10);
    return {samples.begin() + edge, samples.end() - edge};
}

double rms(const std::vector<float>& samples) {
    double sum = 0;
    for (float s : samples) sum += s * s;
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

// Frequency of a pure tone from its rising zero crossings.
double toneFrequency(const std::vector<float>& samples) {
    auto part = middle(samples);
    std::vector<size_t> rising;
    for (size_t i = 1; i < part.size(); ++i) {
        if (part[i - 1] < 0 && part[i] >= 0) rising.push_back(i);
    }
    return rising.size() < 2 ? 0 : static_cast<double>(rising.size() - 1) * rate / static_cast<double>(rising.back() - rising.front());
}

// Normalised correlation at zero lag: 1 for the same waveform.
double similarity(const std::vector<float>& a, const std::vector<float>& b) {
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        ab += a[i] * b[i];
        aa += a[i] * a[i];
        bb += b[i] * b[i];
    }
    return aa > 0 && bb > 0 ? ab / std::sqrt(aa * bb) : 0;
}

// Every container and codec decodes to a 440 Hz tone of the right length (one sample of slack per
// input second) and loudness: the same tone in every channel averages to itself.
TEST(AudioPipeline, EveryFormatDecodesTo440HzMonoOfTheRightLength) {
    struct Row {
        std::string name;
        std::vector<std::string> outputOptions;
        double seconds;
        int channels = 1;
    };
    const Row rows[] = {
        {"tone-8k-s16-mono.wav", {"-ar", "8000", "-c:a", "pcm_s16le"}, 2},
        {"tone-22k-u8-mono.wav", {"-ar", "22050", "-c:a", "pcm_u8"}, 2},
        {"tone-44k-s24-stereo.wav", {"-ar", "44100", "-c:a", "pcm_s24le"}, 2, 2},
        {"tone-16k-f32-mono.wav", {"-ar", "16000", "-c:a", "pcm_f32le"}, 2},
        {"tone-48k-s16-5.1.wav", {"-c:a", "pcm_s16le"}, 2, 6},
        {"tone-44k-stereo.flac", {"-ar", "44100"}, 3, 2},
        {"tone-44k-stereo.mp3", {"-ar", "44100", "-b:a", "128k"}, 3, 2},
        {"tone-48k-stereo-opus.ogg", {"-c:a", "libopus"}, 3, 2},
        {"tone-44k-stereo-aac.m4a", {"-ar", "44100", "-c:a", "aac"}, 3, 2},
        {"tone-48k-mono-opus.webm", {"-c:a", "libopus"}, 3},
    };
    for (const auto& row : rows) {
        auto samples = AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::tone(row.name, row.seconds, row.outputOptions, row.channels));
        EXPECT_NEAR(static_cast<double>(samples.size()), row.seconds * rate, row.seconds) << row.name;
        EXPECT_NEAR(toneFrequency(samples), 440.0, 1.0) << row.name;
        EXPECT_NEAR(rms(middle(samples)), 0.5 / std::sqrt(2.0), 0.02) << row.name;
    }

    // Left carries the tone, right is silent: the average is the tone at half its level.
    auto leftOnly = AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::ffmpeg(
        "tone-left-only.wav", {"-f", "lavfi", "-i", "aevalsrc=0.5*sin(2*PI*440*t)|0:s=44100:d=2", "-c:a", "pcm_s16le"}));
    EXPECT_NEAR(rms(middle(leftOnly)), 0.25 / std::sqrt(2.0), 0.01);
}

// Speech in every format matches the decoded WAV it came from: exactly for lossless codecs,
// closely for lossy ones. The content decides, not the extension.
TEST(AudioPipeline, SpeechDecodesAlikeFromEveryFormatWhateverTheExtension) {
    auto wav = AudioFixtures::speech();
    auto reference = AudioPipeline::decodeTo16kMonoPCM(wav);
    double seconds = static_cast<double>(reference.size()) / rate;
    ASSERT_GT(seconds, 1.0);
    ASSERT_GT(rms(reference), 0.01);

    struct Row {
        std::string name;
        std::vector<std::string> options;
        double minimumSimilarity;
        std::string disguise;
        double extraSamples = 0;
    };
    const Row rows[] = {
        {"speech.flac", {}, 0.9999, "flac-as.wav"},
        {"speech.mp3", {"-b:a", "96k"}, 0.95, "mp3-as.m4a"},
        {"speech-opus.ogg", {"-c:a", "libopus"}, 0.85, "ogg-without-extension"},
        // The MP4 muxer states a length a few source samples longer than its input, and the
        // decoder keeps to the stated length.
        {"speech-aac.m4a", {"-c:a", "aac"}, 0.95, "m4a-as.mp3", 8},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments{"-i", wav.string()};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        auto file = AudioFixtures::ffmpeg(row.name, arguments);
        auto samples = AudioPipeline::decodeTo16kMonoPCM(file);
        EXPECT_NEAR(static_cast<double>(samples.size()), static_cast<double>(reference.size()), std::ceil(seconds) + row.extraSamples)
            << row.name;
        EXPECT_GT(similarity(samples, reference), row.minimumSimilarity) << row.name;
        EXPECT_EQ(AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::bytes(row.disguise, testing::readFile(file))), samples) << row.disguise;
    }
}

TEST(AudioPipeline, BadFilesFailWithTheirOwnCase) {
    std::mt19937 random(7);
    std::string noise(8192, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    auto le32 = [](std::uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    // RIFF, fmt (PCM, 2 channels, 44100 Hz, 16 bits) and an empty data chunk.
    std::string headerOnly = "RIFF" + le32(36) + "WAVEfmt " + le32(16) + le32(0x00020001) + le32(44100) + le32(176400) +
                             le32(0x00100004) + "data" + le32(0);
    auto wav = testing::readFile(AudioFixtures::tone("tone-44k-s16-stereo.wav", 2, {"-ar", "44100", "-c:a", "pcm_s16le"}, 2));

    const std::pair<std::filesystem::path, std::string> rows[] = {  // the file, a prefix of its error's text
        {AudioFixtures::bytes("random.mp3", noise), "AudioDecodeError.unsupportedFormat(random.mp3): Invalid data"},
        {AudioFixtures::bytes("zero-bytes.wav", ""), "AudioDecodeError.unsupportedFormat(zero-bytes.wav): "},
        {AudioFixtures::directory() / "missing.wav", "AudioDecodeError.unsupportedFormat(missing.wav): No such file or directory"},
        {AudioFixtures::ffmpeg("video-only.mkv", {"-f", "lavfi", "-i", "testsrc=duration=1:size=32x32:rate=5", "-c:v", "mjpeg"}),
         "AudioDecodeError.unsupportedFormat(video-only.mkv): no audio stream"},
        {AudioFixtures::bytes("header-only.wav", headerOnly), "AudioDecodeError.emptyAudio(header-only.wav)"},
        {AudioFixtures::bytes("truncated.wav", wav.substr(0, wav.size() / 2)), "AudioDecodeError.readFailure(truncated.wav): End of file after "},
    };
    for (const auto& [file, text] : rows) {
        try {
            ADD_FAILURE() << file << " decoded to " << AudioPipeline::decodeTo16kMonoPCM(file).size() << " samples";
        } catch (const AudioDecodeError& error) {
            EXPECT_EQ(error.description().substr(0, text.size()), text) << error.description();
            EXPECT_EQ(error.description().find("no underlying error"), std::string::npos) << file;
        }
    }
}

// The buffer entry the speech engine uses: interleaved floats at any rate to mono 16 kHz.
TEST(FfmpegAudioDecoder, ConvertsInterleavedBuffersByAveragingChannels) {
    FfmpegAudioDecoder decoder;
    std::vector<float> same, opposite;
    for (int i = 0; i < 44100 * 2; ++i) {
        float value = 0.5f * static_cast<float>(std::sin(2 * M_PI * 440 * i / 44100));
        same.insert(same.end(), {value, value});
        opposite.insert(opposite.end(), {value, -value});
    }
    auto mono = decoder.convertInterleaved(same, 44100, 2);
    EXPECT_NEAR(static_cast<double>(mono.size()), 2 * rate, 2);
    EXPECT_NEAR(toneFrequency(mono), 440.0, 1.0);
    EXPECT_NEAR(rms(middle(mono)), 0.5 / std::sqrt(2.0), 0.01);
    EXPECT_LT(rms(middle(decoder.convertInterleaved(opposite, 44100, 2))), 1e-4);  // averages, doesn't pick
    EXPECT_TRUE(decoder.convertInterleaved({}, 44100, 2).empty());
    for (auto [badRate, badChannels] : {std::pair{0, 1}, std::pair{16000, 0}}) {
        EXPECT_THROW(decoder.convertInterleaved(same, badRate, badChannels), FfmpegAudioDecoder::Failure);
    }
}

}  // namespace
}  // namespace corvane
