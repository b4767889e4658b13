#include "CorvaneApp/models/AudioPipeline.h"

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <random>
#include <variant>

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

// Every container and codec decodes to a 440 Hz tone of the right length (one sample of slack per
// input second) and loudness: the same tone in every channel averages to itself.
TEST(AudioPipeline, EveryFormatDecodesTo440HzMonoOfTheRightLength) {
    struct Row {
        std::string name;
        std::vector<std::string> outputOptions;
        double seconds;
        std::string layout = "mono";
    };
    const Row rows[] = {
        {"tone-8k-s16-mono.wav", {"-ar", "8000", "-c:a", "pcm_s16le"}, 2},
        {"tone-22k-u8-mono.wav", {"-ar", "22050", "-c:a", "pcm_u8"}, 2},
        {"tone-44k-s24-stereo.wav", {"-ar", "44100", "-c:a", "pcm_s24le"}, 2, "stereo"},
        {"tone-16k-f32-mono.wav", {"-ar", "16000", "-c:a", "pcm_f32le"}, 2},
        {"tone-48k-s16-5.1.wav", {"-c:a", "pcm_s16le"}, 2, "5.1"},
        {"tone-44k-stereo.flac", {"-ar", "44100"}, 3, "stereo"},
        {"tone-44k-stereo.mp3", {"-ar", "44100", "-b:a", "128k"}, 3, "stereo"},
        {"tone-48k-stereo-opus.ogg", {"-c:a", "libopus"}, 3, "stereo"},
        {"tone-44k-stereo-aac.m4a", {"-ar", "44100", "-c:a", "aac"}, 3, "stereo"},
        {"tone-48k-mono-opus.webm", {"-c:a", "libopus"}, 3},
    };
    for (const auto& row : rows) {
        auto samples = AudioPipeline::decodeTo16kMonoPCM(
            AudioFixtures::tone(row.name, row.seconds, row.outputOptions, row.layout));
        EXPECT_NEAR(static_cast<double>(samples.size()), row.seconds * rate, row.seconds)
            << row.name;
        auto part = middle(samples);
        EXPECT_NEAR(rms(part), 0.5 / std::sqrt(2.0), 0.02) << row.name;
        std::vector<size_t> rising;  // zero crossings, one per period
        for (size_t i = 1; i < part.size(); ++i) {
            if (part[i - 1] < 0 && part[i] >= 0) rising.push_back(i);
        }
        ASSERT_GE(rising.size(), 2u) << row.name;
        double period = static_cast<double>(rising.back() - rising.front()) /
                        static_cast<double>(rising.size() - 1);
        EXPECT_NEAR(rate / period, 440.0, 1.0) << row.name;
    }

    // Left carries the tone, right is silent: the average is the tone at half its level.
    auto leftOnly = AudioPipeline::decodeTo16kMonoPCM(AudioFixtures::ffmpeg(
        "tone-left-only.wav",
        {"-f", "lavfi", "-i", "aevalsrc=0.5*sin(2*PI*440*t)|0:s=44100:d=2", "-c:a", "pcm_s16le"}));
    EXPECT_NEAR(rms(middle(leftOnly)), 0.25 / std::sqrt(2.0), 0.01);
}

// Speech as FLAC and MP3 matches the decoded WAV it came from: exactly when lossless, closely
// when lossy. The content decides, not the extension.
TEST(AudioPipeline, SpeechDecodesAlikeFromFlacAndMp3WhateverTheExtension) {
    auto wav = AudioFixtures::speech();
    auto reference = AudioPipeline::decodeTo16kMonoPCM(wav);
    double seconds = static_cast<double>(reference.size()) / rate;

    struct Row {
        std::string name;
        double minimumSimilarity;
        std::string disguise;
    };
    for (const Row& row :
         {Row{"speech.flac", 0.9999, "flac-as.wav"}, Row{"speech.mp3", 0.95, "mp3-as.m4a"}}) {
        auto file = AudioFixtures::ffmpeg(row.name, {"-i", wav.string()});
        auto samples = AudioPipeline::decodeTo16kMonoPCM(file);
        EXPECT_NEAR(static_cast<double>(samples.size()), static_cast<double>(reference.size()),
                    std::ceil(seconds))
            << row.name;
        double ab = 0, aa = 0, bb = 0;  // correlation at zero lag: 1 for the same waveform
        for (size_t i = 0; i < std::min(samples.size(), reference.size()); ++i) {
            ab += samples[i] * reference[i];
            aa += samples[i] * samples[i];
            bb += reference[i] * reference[i];
        }
        EXPECT_GT(ab / std::sqrt(aa * bb), row.minimumSimilarity) << row.name;
        EXPECT_EQ(AudioPipeline::decodeTo16kMonoPCM(
                      AudioFixtures::bytes(row.disguise, testing::readFile(file))),
                  samples)
            << row.disguise;
    }
}

TEST(AudioPipeline, BadFilesFailWithTheirOwnCase) {
    std::mt19937 random(7);
    std::string noise(8192, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    auto wav = testing::readFile(AudioFixtures::tone(
        "tone-44k-s16-stereo.wav", 2, {"-ar", "44100", "-c:a", "pcm_s16le"}, "stereo"));

    const std::pair<std::filesystem::path, std::string> rows[] = {
        // the file, a prefix of its error's text
        {AudioFixtures::bytes("random.mp3", noise),
         "AudioDecodeError.unsupportedFormat(random.mp3): Invalid data"},
        {AudioFixtures::bytes("zero-bytes.wav", ""),
         "AudioDecodeError.unsupportedFormat(zero-bytes.wav): "},
        {AudioFixtures::directory() / "missing.wav",
         "AudioDecodeError.unsupportedFormat(missing.wav): No such file or directory"},
        {AudioFixtures::ffmpeg(
             "video-only.mkv",
             {"-f", "lavfi", "-i", "testsrc=duration=1:size=32x32:rate=5", "-c:v", "mjpeg"}),
         "AudioDecodeError.unsupportedFormat(video-only.mkv): no audio stream"},
        {AudioFixtures::ffmpeg("header-only.wav", {"-f", "lavfi", "-i", "anullsrc=cl=stereo", "-t",
                                                   "0", "-c:a", "pcm_s16le"}),
         "AudioDecodeError.emptyAudio(header-only.wav)"},
        {AudioFixtures::bytes("truncated.wav", wav.substr(0, wav.size() / 2)),
         "AudioDecodeError.readFailure(truncated.wav): End of file after "},
    };
    for (const auto& [file, text] : rows) {
        try {
            ADD_FAILURE() << file << " decoded to "
                          << AudioPipeline::decodeTo16kMonoPCM(file).size() << " samples";
        } catch (const AudioDecodeError& error) {
            EXPECT_EQ(error.description().substr(0, text.size()), text) << error.description();
            EXPECT_EQ(error.description().find("no underlying error"), std::string::npos) << file;
        }
    }
}

std::vector<std::byte> bytesOf(const std::filesystem::path& file) {
    const auto text = testing::readFile(file);
    const auto* first = reinterpret_cast<const std::byte*>(text.data());
    return {first, first + text.size()};
}

// What decoding gives: the samples, or the error's text.
template <typename Decode>
std::variant<std::vector<float>, std::string> outcome(Decode decode) {
    try {
        return decode();
    } catch (const AudioDecodeError& error) {
        return error.description();
    }
}

// The in-memory entry is the same decoding: same samples, same errors, including a WAV whose
// header promises more than it holds.
TEST(AudioPipeline, BytesInMemoryDecodeExactlyAsTheirFile) {
    auto wav = AudioFixtures::speech();
    std::string noise(4096, '\0');
    for (size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>(i * 7919 % 251);
    const std::filesystem::path files[] = {
        wav,
        AudioFixtures::ffmpeg("speech-memory.flac", {"-i", wav.string()}),
        AudioFixtures::ffmpeg("speech-memory.mp3", {"-i", wav.string()}),
        AudioFixtures::bytes("truncated-memory.wav",
                             testing::readFile(wav).substr(0, testing::readFile(wav).size() / 2)),
        AudioFixtures::bytes("noise-memory.mp3", noise),
        AudioFixtures::bytes("empty-memory.wav", ""),
    };
    for (const auto& file : files) {
        auto fromFile = outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(file); });
        auto bytes = bytesOf(file);
        auto fromMemory =
            outcome([&] { return AudioPipeline::decodeBytesTo16kMonoPCM(bytes, file); });
        EXPECT_EQ(fromMemory, fromFile) << file;
    }
    EXPECT_TRUE(std::holds_alternative<std::vector<float>>(
        outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(wav); })));
}

// 8-bit mono PCM at `rate` whose header says its data chunk holds `statedBytes`.
std::string wavClaiming(std::uint32_t statedBytes, int rate, const std::string& samples) {
    auto le = [](std::uint32_t value, int bytes) {
        std::string out;
        for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i) & 0xFF);
        return out;
    };
    const auto r = static_cast<std::uint32_t>(rate);
    return "RIFF" + le(36 + statedBytes, 4) + "WAVEfmt " + le(16, 4) + le(1, 2) + le(1, 2) +
           le(r, 4) + le(r, 4) + le(1, 2) + le(8, 2) + "data" + le(statedBytes, 4) + samples;
}

// A small file whose header promises hundreds of gigabytes of samples is a file cut short, not a
// reason to allocate them up front (which threw std::bad_alloc past the decoder's errors).
TEST(AudioPipeline, AHeaderPromisingGigabytesFailsAsTheShortFileItIs) {
    const auto text = wavClaiming(0xFFFFFFF0u, 1000, std::string(1000, '\x80'));
    auto file = AudioFixtures::bytes("promises-gigabytes.wav", text);
    auto bytes = bytesOf(file);
    for (const auto& result :
         {outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(file); }),
          outcome([&] { return AudioPipeline::decodeBytesTo16kMonoPCM(bytes, file); })}) {
        ASSERT_TRUE(std::holds_alternative<std::string>(result));
        EXPECT_EQ(std::get<std::string>(result),
                  "AudioDecodeError.readFailure(promises-gigabytes.wav): End of file after 1000 of "
                  "4294967280 frames");
    }
}

// A tag whose header claims gigabytes, in a file of a few kilobytes, costs no more than the file:
// FFmpeg allocated and zeroed the 1.8 GB an INFO tag behind the audio claimed.
TEST(AudioPipeline, ATagClaimingGigabytesIsNotAllocated) {
    auto le = [](std::uint32_t value) {
        std::string out;
        for (int i = 0; i < 4; ++i) out += static_cast<char>(value >> (8 * i) & 0xFF);
        return out;
    };
    auto samples = [](std::size_t count) {  // a 500 Hz square wave, 8-bit
        std::string out(count, '\0');
        for (std::size_t i = 0; i < count; ++i) out[i] = (i / 8) % 2 ? '\xC0' : '\x40';
        return out;
    };
    const std::string audio = samples(16000);
    // The tag comes after the audio, where a seekable file's metadata is still looked for.
    const auto text = wavClaiming(static_cast<std::uint32_t>(audio.size()), 16000, audio) + "LIST" +
                      le(0xFFFFFF00u) + "INFO" + "ISFT" + le(0x6D00000Eu) + "Lavf";
    auto file = AudioFixtures::bytes("tag-claims-gigabytes.wav", text);
    auto bytes = bytesOf(file);
    auto peakMegabytes = [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return usage.ru_maxrss / 1024;
    };
    const long before = peakMegabytes();
    const auto fromFile = outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(file); });
    const auto fromMemory =
        outcome([&] { return AudioPipeline::decodeBytesTo16kMonoPCM(bytes, file); });
    EXPECT_LT(peakMegabytes() - before, 400);
    ASSERT_TRUE(std::holds_alternative<std::vector<float>>(fromFile))
        << std::get<std::string>(fromFile);
    EXPECT_EQ(fromMemory, fromFile);
    EXPECT_EQ(std::get<std::vector<float>>(fromFile).size(), 16000u);
}

// Sample rates no audio uses are refused before the resampler is built: from 1.4 GHz it took half
// a minute and gigabytes to build its filters; from 1 Hz each byte would become 16000 samples.
TEST(AudioPipeline, SampleRatesNoAudioUsesAreRefused) {
    auto fileAt = [&](int sourceRate) {  // a tenth of a second, at most 100 000 frames
        const int frames = std::min(sourceRate / 10 + 1, 100'000);
        return AudioFixtures::bytes("rate-" + std::to_string(sourceRate) + ".wav",
                                    wavClaiming(static_cast<std::uint32_t>(frames), sourceRate,
                                                std::string(static_cast<size_t>(frames), '\x80')));
    };
    for (int sourceRate : {1398488704, 768001, 999, 1}) {
        EXPECT_EQ(outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(fileAt(sourceRate)); }),
                  (std::variant<std::vector<float>, std::string>(
                      "AudioDecodeError.conversionFailure: source sample rate " +
                      std::to_string(sourceRate) + " Hz is outside 1000 to 768000 Hz")));
    }
    for (int sourceRate : {1000, 768000}) {
        auto seconds = std::min(sourceRate / 10 + 1, 100'000) / static_cast<double>(sourceRate);
        EXPECT_NEAR(
            static_cast<double>(AudioPipeline::decodeTo16kMonoPCM(fileAt(sourceRate)).size()),
            seconds * rate, 2.0)
            << sourceRate;
    }
}

// A downloaded "audio" file that is really a list of other files (an FFmpeg concat script, an HLS
// playlist) must not make the worker read a file of the machine and send its transcript away.
TEST(AudioPipeline, AFileThatNamesOtherFilesNeverGetsThemRead) {
    // The concat list's safe mode takes bare names, relative to the working directory.
    const std::string name = "corvane-private-" + std::to_string(::getpid()) + ".wav";
    const auto secret = std::filesystem::current_path() / name;
    std::filesystem::copy_file(AudioFixtures::speech(), secret,
                               std::filesystem::copy_options::overwrite_existing);
    struct Remove {
        std::filesystem::path path;
        ~Remove() { std::filesystem::remove(path); }
    } removeSecret{secret};
    ASSERT_FALSE(AudioPipeline::decodeTo16kMonoPCM(secret).empty());

    const std::pair<const char*, std::string> lists[] = {
        {"concat.wav", "ffconcat version 1.0\nfile " + name + "\n"},
        {"playlist.mp3", "#EXTM3U\n#EXT-X-TARGETDURATION:10\n#EXTINF:1.0,\nfile:" +
                             secret.string() + "\n#EXT-X-ENDLIST\n"},
    };
    for (const auto& [file, content] : lists) {
        auto path = AudioFixtures::bytes(file, content);
        std::vector<std::byte> bytes(
            reinterpret_cast<const std::byte*>(content.data()),
            reinterpret_cast<const std::byte*>(content.data()) + content.size());
        for (const auto& result :
             {outcome([&] { return AudioPipeline::decodeTo16kMonoPCM(path); }),
              outcome([&] { return AudioPipeline::decodeBytesTo16kMonoPCM(bytes, path); })}) {
            ASSERT_TRUE(std::holds_alternative<std::string>(result)) << file << " was decoded";
            EXPECT_EQ(std::get<std::string>(result).rfind("AudioDecodeError.unsupportedFormat", 0),
                      0u)
                << std::get<std::string>(result);
        }
    }
}

}  // namespace
}  // namespace corvane
