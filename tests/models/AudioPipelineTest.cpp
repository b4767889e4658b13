#include "CorvaneApp/models/AudioPipeline.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numeric>
#include <random>

#include "CorvaneApp/platform/FfmpegAudioDecoder.h"
#include "tests/models/AudioFixtures.h"

namespace corvane {
namespace {

using testing::AudioFixtures;

constexpr double rate = AudioPipeline::targetSampleRate;

// The middle of a signal, away from the resampler's ramps at both ends.
std::vector<float> middle(const std::vector<float>& samples) {
    size_t edge = samples.size() / 10;
    return {samples.begin() + static_cast<long>(edge), samples.end() - static_cast<long>(edge)};
}

double rms(const std::vector<float>& samples) {
    double sum = std::accumulate(samples.begin(), samples.end(), 0.0, [](double acc, float s) { return acc + s * s; });
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<double>(samples.size()));
}

// Frequency of a pure tone from its rising zero crossings.
double toneFrequency(const std::vector<float>& samples) {
    auto part = middle(samples);
    int rising = 0;
    size_t first = 0, last = 0;
    for (size_t i = 1; i < part.size(); ++i) {
        if (part[i - 1] < 0 && part[i] >= 0) {
            if (rising++ == 0) first = i;
            last = i;
        }
    }
    if (rising < 2) return 0;
    return (rising - 1) * rate / static_cast<double>(last - first);
}

// Normalised correlation at zero lag: 1 for the same waveform.
double similarity(const std::vector<float>& a, const std::vector<float>& b) {
    size_t n = std::min(a.size(), b.size());
    double ab = 0, aa = 0, bb = 0;
    for (size_t i = 0; i < n; ++i) {
        ab += a[i] * b[i];
        aa += a[i] * a[i];
        bb += b[i] * b[i];
    }
    return aa > 0 && bb > 0 ? ab / std::sqrt(aa * bb) : 0;
}

std::string wavHeader(std::uint32_t dataBytes, std::uint32_t sampleRate, std::uint16_t channels) {
    auto le32 = [](std::uint32_t v) { return std::string{char(v), char(v >> 8), char(v >> 16), char(v >> 24)}; };
    auto le16 = [](std::uint16_t v) { return std::string{char(v), char(v >> 8)}; };
    std::uint16_t blockAlign = channels * 2;
    return "RIFF" + le32(36 + dataBytes) + "WAVE" + "fmt " + le32(16) + le16(1) + le16(channels) + le32(sampleRate) +
           le32(sampleRate * blockAlign) + le16(blockAlign) + le16(16) + "data" + le32(dataBytes);
}

AudioDecodeError decodeError(const std::filesystem::path& path) {
    try {
        auto samples = AudioPipeline::decodeTo16kMonoPCM(path);
        ADD_FAILURE() << path << " decoded to " << samples.size() << " samples";
    } catch (const AudioDecodeError& error) {
        return error;
    }
    return AudioDecodeError(AudioDecodeError::ConversionFailure{"unreached"});
}

struct ToneCase {
    std::string name;
    std::vector<std::string> outputOptions;
    double seconds;
    int channels = 1;
};

class ToneFormats : public ::testing::TestWithParam<ToneCase> {};

// Every container and codec decodes to a 440 Hz tone of the right length (one sample of slack per
// input second) and loudness: the same tone in every channel averages to itself.
TEST_P(ToneFormats, DecodeTo440HzMonoOfTheRightLength) {
    const ToneCase& row = GetParam();
    auto path = AudioFixtures::tone(row.name, 440, row.seconds, row.outputOptions, row.channels);
    auto samples = AudioPipeline::decodeTo16kMonoPCM(path);

    EXPECT_NEAR(static_cast<double>(samples.size()), row.seconds * rate, row.seconds) << row.name;
    EXPECT_NEAR(toneFrequency(samples), 440.0, 1.0) << row.name;
    EXPECT_NEAR(rms(middle(samples)), 0.5 / std::sqrt(2.0), 0.02) << row.name;
}

INSTANTIATE_TEST_SUITE_P(
    AudioPipeline, ToneFormats,
    ::testing::Values(
        ToneCase{"tone-8k-s16-mono.wav", {"-ar", "8000", "-c:a", "pcm_s16le"}, 2},
        ToneCase{"tone-22k-u8-mono.wav", {"-ar", "22050", "-c:a", "pcm_u8"}, 2},
        ToneCase{"tone-44k-s24-stereo.wav", {"-ar", "44100", "-c:a", "pcm_s24le"}, 2, 2},
        ToneCase{"tone-16k-f32-mono.wav", {"-ar", "16000", "-c:a", "pcm_f32le"}, 2},
        ToneCase{"tone-48k-s16-5.1.wav", {"-c:a", "pcm_s16le"}, 2, 6},
        ToneCase{"tone-44k-stereo.flac", {"-ar", "44100"}, 3, 2},
        ToneCase{"tone-44k-stereo.mp3", {"-ar", "44100", "-b:a", "128k"}, 3, 2},
        ToneCase{"tone-48k-stereo-opus.ogg", {"-c:a", "libopus"}, 3, 2},
        ToneCase{"tone-44k-stereo-aac.m4a", {"-ar", "44100", "-c:a", "aac"}, 3, 2},
        ToneCase{"tone-48k-mono-opus.webm", {"-c:a", "libopus"}, 3}),
    [](const auto& info) {
        std::string name = info.param.name;
        std::replace_if(name.begin(), name.end(), [](char c) { return !std::isalnum(static_cast<unsigned char>(c)); }, '_');
        return name;
    });

TEST(AudioPipeline, MixesChannelsDownInsteadOfPickingOne) {
    // Left carries the tone, right is silent: the average is the tone at half its level.
    auto path = AudioFixtures::ffmpeg(
        "tone-left-only.wav",
        {"-f", "lavfi", "-i", "aevalsrc=0.5*sin(2*PI*440*t)|0:s=44100:d=2", "-c:a", "pcm_s16le"});
    auto samples = AudioPipeline::decodeTo16kMonoPCM(path);
    EXPECT_NEAR(toneFrequency(samples), 440.0, 1.0);
    EXPECT_NEAR(rms(middle(samples)), 0.25 / std::sqrt(2.0), 0.01);
}

// Speech in every format matches the decoded WAV it came from: exactly for lossless codecs,
// closely for lossy ones.
TEST(AudioPipeline, SpeechDecodesAlikeFromEveryFormat) {
    auto wav = AudioFixtures::speech();
    auto reference = AudioPipeline::decodeTo16kMonoPCM(wav);
    double seconds = static_cast<double>(reference.size()) / rate;
    ASSERT_GT(seconds, 1.0);
    EXPECT_GT(rms(reference), 0.01);

    struct Row {
        std::string name;
        std::vector<std::string> options;
        double minimumSimilarity;
        double extraSamples = 0;
    };
    std::vector<Row> rows{
        {"speech.flac", {}, 0.9999},
        {"speech.mp3", {"-b:a", "96k"}, 0.95},
        {"speech-opus.ogg", {"-c:a", "libopus"}, 0.85},
        // The MP4 muxer states a length a few source samples longer than its input, and the
        // decoder keeps to the stated length.
        {"speech-aac.m4a", {"-c:a", "aac"}, 0.95, 8},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments{"-i", wav.string()};
        arguments.insert(arguments.end(), row.options.begin(), row.options.end());
        auto samples = AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::ffmpeg(row.name, arguments));
        EXPECT_NEAR(static_cast<double>(samples.size()), static_cast<double>(reference.size()),
                    std::ceil(seconds) + row.extraSamples)
            << row.name;
        EXPECT_GT(similarity(samples, reference), row.minimumSimilarity) << row.name;
    }
}

TEST(AudioPipeline, DecodesByContentWhateverTheExtension) {
    struct Row {
        std::filesystem::path source;
        std::string disguise;
    };
    std::vector<Row> rows{
        {AudioFixtures::tone("tone-44k-stereo.flac", 440, 3, {"-ar", "44100"}, 2), "flac-as.wav"},
        {AudioFixtures::tone("tone-44k-stereo.mp3", 440, 3, {"-ar", "44100", "-b:a", "128k"}, 2), "mp3-as.m4a"},
        {AudioFixtures::tone("tone-8k-s16-mono.wav", 440, 2, {"-ar", "8000", "-c:a", "pcm_s16le"}), "wav-as.mp3"},
        {AudioFixtures::tone("tone-48k-stereo-opus.ogg", 440, 3, {"-c:a", "libopus"}, 2), "ogg-without-extension"},
    };
    for (const auto& row : rows) {
        auto expected = AudioPipeline::decodeTo16kMonoPCM(row.source);
        auto disguised = AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::copyAs(row.source, row.disguise));
        EXPECT_EQ(disguised, expected) << row.disguise;
    }
}

TEST(AudioPipeline, BadFilesFailWithTheirOwnCase) {
    std::mt19937 random(7);
    std::string noise(8192, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    auto wav = AudioFixtures::tone("tone-44k-s16-stereo.wav", 440, 2, {"-ar", "44100", "-c:a", "pcm_s16le"}, 2);
    auto mp3 = AudioFixtures::tone("tone-44k-stereo.mp3", 440, 3, {"-ar", "44100", "-b:a", "128k"}, 2);

    struct Row {
        std::filesystem::path file;
        size_t expectedCase;  // index into AudioDecodeError::Case
        std::string expectedText;  // a prefix of the description
    };
    std::vector<Row> rows{
        {AudioFixtures::bytes("random.mp3", noise), 0, "AudioDecodeError.unsupportedFormat(random.mp3): Invalid data"},
        {AudioFixtures::bytes("zero-bytes.wav", ""), 0, "AudioDecodeError.unsupportedFormat(zero-bytes.wav): "},
        {AudioFixtures::directory() / "missing.wav", 0,
         "AudioDecodeError.unsupportedFormat(missing.wav): No such file or directory"},
        {AudioFixtures::ffmpeg("video-only.mkv", {"-f", "lavfi", "-i", "testsrc=duration=1:size=32x32:rate=5", "-c:v", "mjpeg"}),
         0, "AudioDecodeError.unsupportedFormat(video-only.mkv): no audio stream"},
        {AudioFixtures::bytes("header-only.wav", wavHeader(0, 44100, 2)), 3, "AudioDecodeError.emptyAudio(header-only.wav)"},
        {AudioFixtures::bytes("header-promises-data.wav", wavHeader(176400, 44100, 2)), 1,
         "AudioDecodeError.readFailure(header-promises-data.wav): End of file after 0 of 44100 frames"},
        {AudioFixtures::truncated(wav, "truncated.wav", std::filesystem::file_size(wav) / 2), 1,
         "AudioDecodeError.readFailure(truncated.wav): End of file after "},
        {AudioFixtures::truncated(mp3, "truncated.mp3", std::filesystem::file_size(mp3) / 2), 1,
         "AudioDecodeError.readFailure(truncated.mp3): End of file after "},
    };
    for (const auto& row : rows) {
        AudioDecodeError error = decodeError(row.file);
        EXPECT_EQ(error.value().index(), row.expectedCase) << row.file << ": " << error.description();
        EXPECT_EQ(error.description().substr(0, row.expectedText.size()), row.expectedText) << row.file;
        EXPECT_EQ(error.description().find("no underlying error"), std::string::npos) << row.file;
    }
}

TEST(AudioPipeline, ErrorTextsWithoutAnUnderlyingError) {
    EXPECT_EQ(AudioDecodeError(AudioDecodeError::UnsupportedFormat{"/a/b.mp3", std::nullopt}).description(),
              "AudioDecodeError.unsupportedFormat(b.mp3): no underlying error");
    EXPECT_EQ(AudioDecodeError(AudioDecodeError::ConversionFailure{std::nullopt}).description(),
              "AudioDecodeError.conversionFailure: no underlying error");
}

// The buffer entry the speech engine uses: interleaved floats at any rate to mono 16 kHz.
TEST(FfmpegAudioDecoder, ConvertsInterleavedBuffersByAveragingChannels) {
    FfmpegAudioDecoder decoder;
    const int sourceRate = 44100;
    std::vector<float> same, opposite;
    for (int i = 0; i < sourceRate * 2; ++i) {
        float value = 0.5f * static_cast<float>(std::sin(2 * M_PI * 440 * i / sourceRate));
        same.insert(same.end(), {value, value});
        opposite.insert(opposite.end(), {value, -value});
    }
    auto mono = decoder.convertInterleaved(same, sourceRate, 2);
    EXPECT_NEAR(static_cast<double>(mono.size()), 2 * rate, 2);
    EXPECT_NEAR(toneFrequency(mono), 440.0, 1.0);
    EXPECT_NEAR(rms(middle(mono)), 0.5 / std::sqrt(2.0), 0.01);

    // Opposite channels cancel: the converter averages, it doesn't pick a channel.
    EXPECT_LT(rms(middle(decoder.convertInterleaved(opposite, sourceRate, 2))), 1e-4);

    EXPECT_TRUE(decoder.convertInterleaved({}, sourceRate, 2).empty());
    std::vector<float> at16k(16000, 0.25f);
    EXPECT_EQ(decoder.convertInterleaved(at16k, 16000, 1).size(), at16k.size());
    for (auto [badRate, badChannels] : {std::pair{0, 1}, std::pair{16000, 0}}) {
        try {
            decoder.convertInterleaved(same, badRate, badChannels);
            ADD_FAILURE() << badRate << " Hz x " << badChannels;
        } catch (const FfmpegAudioDecoder::Failure& failure) {
            EXPECT_EQ(failure.stage(), FfmpegAudioDecoder::Failure::Stage::conversion);
        }
    }
}

}  // namespace
}  // namespace corvane
