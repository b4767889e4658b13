// The manager end to end on scripted networks: audio frames carry codes, the joint turns codes
// into tokens, so the text, timings and confidence of a transcription are known in advance.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/ASRError.h"
#include "SpeechEngine/AsrManager.h"
#include "SpeechEngine/Cancellation.h"
#include "tests/speech/SpeechTestSupport.h"
#include "tests/support/FakeClock.h"
#include "tests/support/LogCapture.h"

namespace speech {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StrEq;
using ::testing::ThrowsMessage;
using Rule = ScriptedRuntime::JointRule;

const std::string mark = "\xE2\x96\x81";
const Vocabulary words{{1, mark + "alpha"}, {2, mark + "bravo"}, {3, mark + "charlie"},
                       {4, mark + "delta"}, {6, mark + "fox"},   {7, "trot"},
                       {8, mark + "golf"}};
// Codes 11..16 name the words; 15 says "fox" then "trot" at one frame.
const std::vector<Rule> rules{{11, {1}, {1}, {0.9f}},
                              {12, {2}, {1}, {0.9f}},
                              {13, {3}, {1}, {0.9f}},
                              {14, {4}, {1}, {0.9f}},
                              {15, {6, 7}, {0, 1}, {0.6f, 0.9f}},
                              {16, {8}, {1}, {0.9f}}};

// Audio of `frames` frames, silent but for the given frame codes, cut to `samples`.
std::vector<float> codedAudio(int frames, std::vector<std::pair<int, int>> codes,
                              std::size_t samples = 0) {
    std::vector<int> all(static_cast<std::size_t>(frames), 0);
    for (auto [frame, code] : codes) all[static_cast<std::size_t>(frame)] = code;
    auto audio = ScriptedRuntime::frameCodedAudio(all);
    if (samples > 0) audio.resize(samples);
    return audio;
}

class AsrManagerTest : public ::testing::Test {
  protected:
    AsrManagerTest() {
        ScriptedRuntime::installModelSet(dir.path(), AsrModelVersion::v2, rules, 1024, words);
        // Frames laid out time-major here; the other suites decode hidden-major outputs.
        ScriptedRuntime::writeModelFolder(
            dir.path() / "Encoder.mlmodelc",
            R"({"network": "encoder", "hiddenSize": 1024, "layout": "timeMajor"})");
        models = testing::loadScriptedModels(dir.path(), AsrModelVersion::v2);
    }

    // Wraps the preprocessor to note each window's audio_length and let time pass per run.
    void watchPreprocessor(std::function<void(int audioLength)> onRun = {}) {
        auto inner = models.preprocessor;
        models.preprocessor = std::make_shared<testing::FunctionModel>(
            inner->description(), [this, inner, onRun](const FeatureMap& in, FeatureMap& out) {
                int length = static_cast<int>(in.find("audio_length")->flat(0));
                {
                    std::lock_guard lock(mutex);
                    audioLengths.push_back(length);
                }
                clock.advance(0.5);
                if (onRun) onRun(length);
                inner->predict(in, out);
            });
    }

    std::vector<int> lengths() {
        std::lock_guard lock(mutex);
        auto sorted = audioLengths;
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }

    testing::ScratchFolder dir;
    AsrModels models;
    corvane::testing::FakeClock clock;
    std::mutex mutex;
    std::vector<int> audioLengths;
};

TEST_F(AsrManagerTest, OneWindowGivesTextTimingsConfidenceAndCarriesTheState) {
    watchPreprocessor();
    AsrManager manager(ASRConfig::defaultConfig(), models, clock.function());
    // "alpha" at frame 3, "fox"+"trot" at frame 20, "golf" at 40; 50 frames = 4 s of audio.
    auto audio = codedAudio(50, {{3, 11}, {20, 15}, {40, 16}});
    TdtDecoderState state(2);
    auto result = manager.transcribe(audio, state);

    EXPECT_EQ(result.text, "alpha foxtrot golf");
    EXPECT_DOUBLE_EQ(result.duration, 4.0);
    EXPECT_DOUBLE_EQ(result.processingTime, 0.5);
    EXPECT_FLOAT_EQ(result.confidence, (0.9f + 0.6f + 0.9f + 0.9f) / 4);
    ASSERT_TRUE(result.tokenTimings.has_value());
    ASSERT_EQ(result.tokenTimings->size(), 4u);
    // fox: frame 20, jump 0 -> ends where trot starts, no earlier than one frame later: 1.68 s.
    const auto& fox = (*result.tokenTimings)[1];
    EXPECT_EQ(fox.token, mark + "fox");
    EXPECT_DOUBLE_EQ(fox.startTime, 1.6);
    EXPECT_DOUBLE_EQ(fox.endTime, 1.68);
    EXPECT_DOUBLE_EQ((*result.tokenTimings)[3].startTime, 40 * 0.08);
    EXPECT_EQ(state.lastToken, 8);
    // 64000 samples are already whole frames.
    EXPECT_THAT(lengths(), ElementsAre(64000));
}

TEST_F(AsrManagerTest, LengthDecidesThePathThePaddingAndTheMinimum) {
    watchPreprocessor();
    AsrManager manager(ASRConfig::defaultConfig(), models, clock.function());
    struct Row {
        std::size_t samples;
        std::vector<int> expectedLengths;  // audio_length of every window run
    };
    // 4800 aligns up to 5120; 239999 would align past the window, so it stays; 240000 is one
    // window; 240001 takes two chunks (238080 samples, then 1280 context + 33921).
    for (const auto& row : {Row{4800, {5120}}, Row{239999, {239999}}, Row{240000, {240000}},
                            Row{240001, {35201, 238080}}}) {
        audioLengths.clear();
        TdtDecoderState state(2);
        std::vector<float> silence(row.samples, 0.0f);
        auto result = manager.transcribe(silence, state);
        EXPECT_THAT(lengths(), ::testing::ElementsAreArray(row.expectedLengths)) << row.samples;
        // Silence: empty text, no timings.
        EXPECT_EQ(result.text, "");
        EXPECT_THAT(result.tokenTimings.value_or(std::vector<TokenTiming>{{}}), IsEmpty());
        EXPECT_DOUBLE_EQ(result.duration, static_cast<double>(row.samples) / 16000);
    }
    TdtDecoderState state(2);
    EXPECT_THAT([&] { manager.transcribe(std::vector<float>(4799, 0.0f), state); },
                ThrowsMessage<ASRError>(
                    StrEq("Invalid audio data provided. Must be at least 300ms of 16kHz audio.")));
}

TEST_F(AsrManagerTest, LongAudioIsChunkedAndTheOverlapsSayTheirWordsOnce) {
    watchPreprocessor();
    AsrManager manager(ASRConfig::defaultConfig(), models, clock.function());
    corvane::testing::LogCapture logs;
    // 500000 samples (31.25 s) in three chunks: [0, 238080), [206080, 444160), [412160, 500000).
    // Decoded frames: chunk 0 global 0..185 (timestamp = frame), chunk 1 global 161..345 and
    // chunk 2 global 322..389; the later chunks read one frame of context before their start,
    // so their timestamps are the global frame + 1.
    //   chunk 0: alpha@10 bravo@100 charlie@165 delta@170 fox@175 trot@175; golf on frame 185,
    //            the chunk's last, jumps past its end and is dropped (no tail in a middle chunk)
    //   chunk 1: charlie@166 delta@171 fox@176 trot@176 golf@186 alpha@301
    //   chunk 2: bravo@386
    // Merge 0+1: leftEnd 175 x 0.08 + 0.08 = 14.08 > rightStart 13.28. Left overlap (ends after
    // 11.28) charlie..trot = 4 tokens, minimum run 2; the run charlie..trot is 4 long: keep left
    // up to and through it, then the right after it: golf@186, alpha@301.
    // Merge with 2: leftEnd 24.16 <= 30.88: joined.
    auto audio = codedAudio(
        391,
        {{10, 11}, {100, 12}, {165, 13}, {170, 14}, {175, 15}, {185, 16}, {300, 11}, {385, 12}},
        500000);
    auto progress = manager.transcriptionProgressStream();
    TdtDecoderState unused(2);
    auto result = manager.transcribe(audio, unused);

    EXPECT_EQ(result.text, "alpha bravo charlie delta foxtrot golf alpha bravo");
    ASSERT_TRUE(result.tokenTimings.has_value());
    std::vector<int> frames;
    for (const auto& t : *result.tokenTimings)
        frames.push_back(static_cast<int>(std::lround(t.startTime / 0.08)));
    EXPECT_THAT(frames, ElementsAre(10, 100, 165, 170, 175, 175, 186, 301, 386));
    EXPECT_FLOAT_EQ(result.confidence, (8 * 0.9f + 0.6f) / 9);
    EXPECT_DOUBLE_EQ(result.duration, 31.25);
    EXPECT_DOUBLE_EQ(result.processingTime, 1.5)
        << "three window runs of 0.5 s each on the fake clock";
    EXPECT_THAT(lengths(), ElementsAre(89120, 238080, 239360));
    EXPECT_TRUE(logs.contains("ChunkProcessor info: ChunkProcessor using worker pool of size 4"));
    EXPECT_FALSE(unused.lastToken.has_value())
        << "the chunked path leaves the caller's state alone";

    // Progress: start, the share scheduled after each chunk but the last, then the end.
    std::vector<TranscriptionProgress> events;
    while (auto event = progress->tryNext()) events.push_back(*event);
    EXPECT_THAT(events, ElementsAre(TranscriptionProgress{0, false, false},
                                    TranscriptionProgress{238080.0 / 500000, false, false},
                                    TranscriptionProgress{444160.0 / 500000, false, false},
                                    TranscriptionProgress{1, true, false}));
}

TEST_F(AsrManagerTest, AFailingChunkFailsTheWholeTranscription) {
    // The middle chunk (1280 + 238080 samples) fails inside its network.
    watchPreprocessor([](int length) {
        if (length == 239360) throw std::runtime_error("encoder ran out of memory");
    });
    ASRConfig config(16000, TdtConfig{}, 1024, 2);
    AsrManager manager(config, models, clock.function());
    auto progress = manager.transcriptionProgressStream();
    auto audio = codedAudio(391, {{10, 11}}, 500000);
    TdtDecoderState state(2);
    EXPECT_THAT([&] { manager.transcribe(audio, state); },
                ThrowsMessage<std::runtime_error>(StrEq("encoder ran out of memory")));
    std::optional<TranscriptionProgress> last;
    while (auto event = progress->tryNext()) last = event;
    ASSERT_TRUE(last.has_value());
    EXPECT_TRUE(last->finished && last->failed);

    // The manager still works for the next call.
    EXPECT_EQ(manager.transcribe(codedAudio(20, {{2, 12}}), state).text, "bravo");
}

TEST_F(AsrManagerTest, CancellationStopsBothPaths) {
    std::stop_source stop;
    watchPreprocessor([&](int length) {
        if (length == 238080) stop.request_stop();
    });
    AsrManager manager(ASRConfig(16000, TdtConfig{}, 1024, 1), models, clock.function());
    TdtDecoderState state(2);
    for (std::size_t samples : {500000, 16000}) {
        EXPECT_THROW(manager.transcribe(std::vector<float>(samples, 0.0f), state, std::nullopt,
                                        stop.get_token()),
                     CancellationError);
    }
}

TEST_F(AsrManagerTest, LoadingCleanupAndALanguageHintThatCannotBeUsed) {
    AsrManager empty;
    TdtDecoderState state(2);
    std::vector<float> audio(16000, 0.0f);
    EXPECT_THAT(
        [&] { empty.transcribe(audio, state); },
        ThrowsMessage<ASRError>(StrEq("AsrManager not initialized. Call initialize() first.")));
    empty.loadModels(models);
    // Only the v3 joint filters by language: v2 drops the hint with a note.
    corvane::testing::LogCapture logs;
    EXPECT_EQ(empty.transcribe(codedAudio(20, {{2, 12}}), state, "en").text, "bravo");
    EXPECT_TRUE(
        logs.contains("Ignoring `language` hint: script filtering requires the v3 joint "
                      "decoder; loaded model is v2"));
    auto split = models;
    split.encoder = nullptr;
    EXPECT_FALSE(AsrManager(ASRConfig::defaultConfig(), split).isAvailable())
        << "v2 needs its encoder";
    empty.cleanup();
    EXPECT_FALSE(empty.isAvailable());
}

TEST_F(AsrManagerTest, BrokenFrontEndsFailWithTheirOwnTexts) {
    struct Row {
        std::vector<std::string> inputs;
        std::function<void(FeatureMap&)> write;
        std::string expected;
    };
    for (const auto& row : std::vector<Row>{
             {{"mel", "mel_spec"},
              [](FeatureMap&) {},
              "Missing required encoder input: mel_spec. Available inputs: mel, mel_length"},
             {{"mel"},
              [](FeatureMap& out) { out.set("encoder_length", MultiArray::scalarInt(3)); },
              "Invalid encoder output"},
             {{"mel"},
              [](FeatureMap& out) {
                  out.set("encoder", MultiArray({1, 1024, 3}));
                  out.set("encoder_length", MultiArray::of({1}, {NAN}));
              },
              "Invalid encoder output length"}}) {
        auto broken = models;
        broken.encoder = std::make_shared<testing::FunctionModel>(
            ModelDescription{row.inputs, {}},
            [&](const FeatureMap&, FeatureMap& out) { row.write(out); });
        TdtDecoderState state(2);
        EXPECT_THAT(
            [&] {
                AsrManager(ASRConfig::defaultConfig(), broken)
                    .transcribe(codedAudio(20, {}), state);
            },
            ThrowsMessage<ASRError>(StrEq("ASR processing failed: " + row.expected)));
    }
}

}  // namespace
}  // namespace speech
