// The greedy TDT loop, step by step. Encoder frame t carries t, the predictor's output carries
// the token it was fed, and each joint is scripted so that the frames the loop asks for, and the
// tokens, frames, jumps and confidences it emits, are worked out by hand in the comments.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "SpeechEngine/ASRError.h"
#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/TdtDecoderV3.h"
#include "tests/speech/SpeechTestSupport.h"

namespace speech {
namespace {

using ::testing::ElementsAre;
using testing::FunctionModel;
using ::testing::IsEmpty;
using testing::JointStep;
using testing::RecordingDecoder;
using testing::ScriptedJoint;

constexpr int B = 8192;    // blank of the v3 vocabulary
constexpr int hidden = 4;  // a narrow encoder keeps the frames readable

ASRConfig narrowConfig(TdtConfig tdt = {}) {
    ASRConfig config;
    config.encoderHiddenSize = hidden;
    config.tdtConfig = std::move(tdt);
    return config;
}

class TdtDecoderTest : public ::testing::Test {
  protected:
    TdtHypothesis decode(ScriptedJoint& joint, int frames, TdtDecoderState& state, bool isLastChunk,
                         TdtConfig tdt = {}, int context = 0, int offset = 0) {
        TdtDecoderV3 decoder(narrowConfig(std::move(tdt)));
        auto encoder = testing::indexedFrames(frames, hidden);
        auto decoderModel = recorder.model();
        auto jointModel = joint.model();
        auto hypothesis =
            decoder.decodeWithTimings(encoder, frames, frames, *decoderModel, *jointModel, state,
                                      context, isLastChunk, offset);
        EXPECT_THAT(joint.mismatches(), IsEmpty());
        EXPECT_TRUE(joint.finished()) << "the loop stopped before the script's end";
        return hypothesis;
    }

    RecordingDecoder recorder;
};

TEST_F(TdtDecoderTest, WalksBlanksJumpsAndRepeatedEmissionsAndDropsATokenThatLeavesTheWindow) {
    // Six frames, not the last chunk. Bins are 0,1,2,3,4.
    //  f0 blank, bin 0 -> a blank below 2 jumps 1 -> f1 (inner blank skip, same prediction)
    //  f1 blank, bin 0 -> f2
    //  f2 token 7, bin 2 -> jump 2: emitted at 2 with duration 2, time 4; first emission at 2
    //  f4 token 9, bin 0 -> new frame, duration stays 0: emitted at 4, time stays 4
    //  f4 token 11, bin 0 -> second emission at frame 4: step 8 makes it 1; emitted at 4, time 5
    //  f5 token 13, bin 1 -> time 6 reaches the end: dropped, loop ends
    ScriptedJoint joint({{0, B, 0.5f, 0, B},
                         {1, B, 0.5f, 0, B},
                         {2, 7, 0.9f, 2, B},
                         {4, 9, 0.8f, 0, 7},
                         {4, 11, 0.7f, 0, 9},
                         {5, 13, 0.6f, 1, 11}},
                        B);
    TdtDecoderState state(2);
    auto hypothesis = decode(joint, 6, state, false);

    EXPECT_THAT(hypothesis.ySequence, ElementsAre(7, 9, 11));
    EXPECT_THAT(hypothesis.timestamps, ElementsAre(2, 4, 4));
    EXPECT_THAT(hypothesis.tokenDurations, ElementsAre(2, 0, 1));
    EXPECT_THAT(hypothesis.tokenConfidences, ElementsAre(0.9f, 0.8f, 0.7f));
    EXPECT_FLOAT_EQ(hypothesis.score, 2.4f);
    // One predictor run to start, then one per emitted token; blanks never run it.
    EXPECT_THAT(recorder.tokens(), ElementsAre(B, 7, 9, 11));
    // Carry-over: the window overshot by 6 - 6 = 0, the predictor output of token 11 is kept.
    EXPECT_EQ(state.timeJump, 0);
    EXPECT_EQ(state.lastToken, 11);
    ASSERT_TRUE(state.predictorOutput.has_value());
    EXPECT_EQ(state.predictorOutput->flat(0), 11.0f);
    EXPECT_EQ(state.hiddenState.flat(0), 4.0f) << "four predictor runs advance h four times";
    ASSERT_TRUE(hypothesis.decState.has_value());
    EXPECT_EQ(hypothesis.decState->lastToken, 11);

    // The next window of the same stream starts with that prediction: no predictor run first.
    // timeJump 0 with no context frames means frame 25 of the new window.
    ScriptedJoint next({{25, 21, 0.9f, 1, 11}, {26, B, 0.5f, 4, 21}}, B);
    RecordingDecoder secondRecorder;
    TdtDecoderV3 decoder(narrowConfig());
    auto encoder = testing::indexedFrames(30, hidden);
    auto decoderModel = secondRecorder.model();
    auto jointModel = next.model();
    // f25 token 21, bin 1: emitted at 25 + offset 100; f26 blank bin 4 jumps to 30, the end.
    auto second = decoder.decodeWithTimings(encoder, 30, 30, *decoderModel, *jointModel, state, 0,
                                            false, 100);
    EXPECT_THAT(next.mismatches(), IsEmpty());
    EXPECT_THAT(second.ySequence, ElementsAre(21));
    EXPECT_THAT(second.timestamps, ElementsAre(125));
    EXPECT_THAT(secondRecorder.tokens(), ElementsAre(21));
}

TEST_F(TdtDecoderTest, OneSymbolPerStepForcesAnAdvanceAfterEveryEmission) {
    // maxSymbolsPerStep 1: after each emission time moves one past where the jump left it, and
    // the last-emission frame returns to -1, so a duration of 0 is never turned into 1.
    //  f0 token 5, bin 0 -> jump 0, emitted at 0; forced to 1
    //  f1 token 6, bin 0 -> jump 0 (no last emission), emitted at 1; forced to 2
    //  f2 token 7, bin 2 -> jump 2 to 4, emitted at 2; forced to 5
    //  f5 blank -> 6, the end
    TdtConfig tdt;
    tdt.maxSymbolsPerStep = 1;
    ScriptedJoint joint({{0, 5, 1.0f, 0}, {1, 6, 1.0f, 0}, {2, 7, 1.0f, 2}, {5, B, 1.0f, 0}}, B);
    TdtDecoderState state(2);
    auto hypothesis = decode(joint, 6, state, false, tdt);
    EXPECT_THAT(hypothesis.ySequence, ElementsAre(5, 6, 7));
    EXPECT_THAT(hypothesis.timestamps, ElementsAre(0, 1, 2));
    EXPECT_THAT(hypothesis.tokenDurations, ElementsAre(0, 0, 2));
}

TEST_F(TdtDecoderTest, TheSymbolLimitOfAFrameForcesProgressAndLongBlankJumpsSkipFrames) {
    // maxSymbolsPerStep 2, eight frames.
    //  f0 token 5, bin 0 -> emitted at 0, stays; emissions at frame 0 = 1
    //  f0 token 6, bin 0 -> made 1 by step 8: emitted at 0, time 1; emissions = 2, not below 2,
    //     so progress is forced: time 2
    //  f2 blank bin 0 -> 3; f3 blank bin 4 -> jump 4 to 7; f7 blank -> 8, the end
    TdtConfig tdt;
    tdt.maxSymbolsPerStep = 2;
    ScriptedJoint joint(
        {{0, 5, 1.0f, 0}, {0, 6, 1.0f, 0, 5}, {2, B, 1.0f, 0}, {3, B, 1.0f, 4}, {7, B, 1.0f, 0}},
        B);
    TdtDecoderState state(2);
    auto hypothesis = decode(joint, 8, state, false, tdt);
    EXPECT_THAT(hypothesis.ySequence, ElementsAre(5, 6));
    EXPECT_THAT(hypothesis.timestamps, ElementsAre(0, 0));
    EXPECT_THAT(hypothesis.tokenDurations, ElementsAre(0, 1));
}

TEST_F(TdtDecoderTest, TheTailOfTheLastChunkRecoversATokenTheMainLoopDropped) {
    // Four frames. The only token sits on the last frame (3) with a jump of 1, which reaches the
    // end: the main loop drops it (f0 blank, f1, f2 blank, f3 token 42 -> time 4).
    // Tail (last chunk only): tailIndex 4, floor max(4-2, 0) = 2, last frame 3.
    //  step 0: frame min(3, 4) = 3 -> 42, emitted at min(3, 4) = 3 with duration 1; tail 4
    //  step 1: frame lastTimestep 3 -> blank (1); step 2: frame floor 2 -> blank (2)
    //  step 3: frame 3 -> blank (3); step 4: frame 3 -> blank (4); step 5: frame 2 -> blank (5):
    //  five blanks in a row end it.
    auto script = [] {
        return std::vector<JointStep>{
            {0, B, 1.0f, 0}, {1, B, 1.0f, 0}, {2, B, 1.0f, 0}, {3, 42, 0.9f, 1}};
    };
    {
        ScriptedJoint joint(script(), B);
        TdtDecoderState state(2);
        auto hypothesis = decode(joint, 4, state, false);
        EXPECT_THAT(hypothesis.ySequence, IsEmpty()) << "a middle chunk has no tail";
        EXPECT_EQ(state.timeJump, 0);
    }
    auto steps = script();
    for (JointStep tail :
         {JointStep{3, 42, 0.9f, 1, B}, JointStep{3, B, 1.0f, 1, 42}, JointStep{2, B, 1.0f, 1, 42},
          JointStep{3, B, 1.0f, 1}, JointStep{3, B, 1.0f, 1}, JointStep{2, B, 1.0f, 1}}) {
        steps.push_back(tail);
    }
    ScriptedJoint joint(steps, B);
    TdtDecoderState state(2);
    auto hypothesis = decode(joint, 4, state, true);
    EXPECT_THAT(hypothesis.ySequence, ElementsAre(42));
    EXPECT_THAT(hypothesis.timestamps, ElementsAre(3));
    EXPECT_THAT(hypothesis.tokenDurations, ElementsAre(1));
    EXPECT_FALSE(state.predictorOutput.has_value()) << "a recording's end leaves no context";
    EXPECT_FALSE(state.timeJump.has_value());
    EXPECT_EQ(state.lastToken, 42);
}

TEST_F(TdtDecoderTest, The151stTokenIsNotEmittedButTheTailStillRuns) {
    // 200 frames; frames below 180 give token 100 + frame % 50 with bin 1, later frames blank.
    // Frames 0..149 emit one token each; at frame 150 the 151st token ends the loop unemitted,
    // with time already at 151. Tail (last frame 199, floor 198), ten steps at most:
    //  step 0 frame 151 -> 101 at 151; steps 1, 2 frames 199, 198 blank; tail index 154
    //  step 3 frame 154 -> 104 at 154; steps 4, 5 blank; step 6 frame 157 -> 107 at 157;
    //  steps 7, 8 blank; step 9 frame 160 -> 110 at 160. Ten steps: done.
    auto joint = testing::functionJoint([](int frame, int) {
        return frame < 180 ? JointStep{frame, 100 + frame % 50, 0.5f, 1}
                           : JointStep{frame, B, 1.0f, 1};
    });
    TdtDecoderV3 decoder(narrowConfig());
    TdtDecoderState state(2);
    auto encoder = testing::indexedFrames(200, hidden);
    auto decoderModel = recorder.model();
    auto hypothesis =
        decoder.decodeWithTimings(encoder, 200, 200, *decoderModel, *joint, state, 0, true, 0);
    ASSERT_EQ(hypothesis.ySequence.size(), 154u);
    EXPECT_EQ(hypothesis.timestamps[149], 149);
    std::vector<int> tailTokens(hypothesis.ySequence.begin() + 150, hypothesis.ySequence.end());
    std::vector<int> tailFrames(hypothesis.timestamps.begin() + 150, hypothesis.timestamps.end());
    EXPECT_THAT(tailTokens, ElementsAre(101, 104, 107, 110));
    EXPECT_THAT(tailFrames, ElementsAre(151, 154, 157, 160));
}

TEST_F(TdtDecoderTest, StartFrameFollowsTheCarriedJumpAndTheContextFrames) {
    struct Row {
        std::optional<int> timeJump;
        int context;
        int expectedStart;
    };
    for (auto row : {Row{std::nullopt, 0, 0}, Row{std::nullopt, 1, 1}, Row{3, 1, 4}, Row{-7, 1, 0},
                     Row{0, 0, 25}, Row{0, 1, 1}, Row{2, 0, 2}}) {
        std::vector<int> asked;
        auto joint = testing::functionJoint([&asked](int frame, int) {
            asked.push_back(frame);
            return JointStep{frame, B, 1.0f, 4};
        });
        TdtDecoderState state(2);
        state.timeJump = row.timeJump;
        TdtDecoderV3 decoder(narrowConfig());
        auto encoder = testing::indexedFrames(30, hidden);
        auto decoderModel = recorder.model();
        decoder.decodeWithTimings(encoder, 30, 30, *decoderModel, *joint, state, row.context, false,
                                  0);
        ASSERT_FALSE(asked.empty());
        EXPECT_EQ(asked.front(), row.expectedStart)
            << "timeJump " << row.timeJump.value_or(-99) << ", context " << row.context;
    }
}

TEST_F(TdtDecoderTest, ShortOrExhaustedWindowsReturnEmptyAndLeaveTheStateAlone) {
    auto joint = testing::functionJoint([](int frame, int) {
        return JointStep{frame, 5, 1.0f, 1};
    });
    auto decoderModel = recorder.model();
    TdtDecoderV3 decoder(narrowConfig());
    TdtDecoderState state(2);
    state.lastToken = 77;

    auto one = decoder.decodeWithTimings(testing::indexedFrames(1, hidden), 1, 1, *decoderModel,
                                         *joint, state, 0, true, 0);
    EXPECT_TRUE(one.isEmpty());
    ASSERT_TRUE(one.decState.has_value());
    EXPECT_EQ(one.decState->lastToken, 77);
    // A start past the audio frames (30 carried + 0) gives nothing either.
    state.timeJump = 30;
    auto past = decoder.decodeWithTimings(testing::indexedFrames(10, hidden), 10, 10, *decoderModel,
                                          *joint, state, 0, true, 0);
    EXPECT_TRUE(past.isEmpty());
    EXPECT_EQ(joint->calls(), 0);
    EXPECT_THAT(recorder.tokens(), IsEmpty());
    EXPECT_EQ(state.timeJump, 30);
}

TEST_F(TdtDecoderTest, SentenceFinalPunctuationRestartsThePredictor) {
    for (int token : {7883, 7952, 7948, 5}) {
        // f0 blank; f1 the token with bin 1; f2 blank -> 3, the end.
        ScriptedJoint joint({{0, B, 1.0f, 0}, {1, token, 1.0f, 1}, {2, B, 1.0f, 0}}, B);
        TdtDecoderState state(2);
        decode(joint, 3, state, false);
        EXPECT_EQ(state.lastToken, token);
        EXPECT_EQ(state.predictorOutput.has_value(), token == 5) << token;
    }
}

TEST_F(TdtDecoderTest, ScoresAreClampedToZeroToOne) {
    // Probabilities 1.7, NaN and -0.5 are recorded as 1, 0 and 0.
    auto joint = testing::functionJoint([](int frame, int) {
        float probability[] = {1.7f, std::nanf(""), -0.5f};
        return frame < 3 ? JointStep{frame, 10 + frame, probability[frame], 1}
                         : JointStep{frame, B, 1.0f, 1};
    });
    TdtDecoderV3 decoder(narrowConfig());
    TdtDecoderState state(2);
    auto decoderModel = recorder.model();
    auto hypothesis = decoder.decodeWithTimings(testing::indexedFrames(5, hidden), 5, 5,
                                                *decoderModel, *joint, state, 0, false, 0);
    EXPECT_THAT(hypothesis.tokenConfidences, ElementsAre(1.0f, 0.0f, 0.0f));
}

TEST_F(TdtDecoderTest, MalformedNetworkOutputsFailWithTheirOwnText) {
    using Mutation = std::function<void(FeatureMap&)>;
    struct Row {
        const char* what;
        Mutation joint;    // applied to a blank answer
        Mutation decoder;  // applied to the predictor's output
        MultiArray encoder;
        std::string expected;
    };
    auto frames = testing::indexedFrames(4, hidden);
    auto none = [](FeatureMap&) {};
    auto without = [](const char* name) {
        return [name](FeatureMap& out) {
            FeatureMap kept;
            for (const auto& n : out.names()) {
                if (n != name) kept.set(n, *out.find(n));
            }
            out = kept;
        };
    };
    auto replace = [](const char* name, MultiArray array) {
        return [=](FeatureMap& out) { out.set(name, array); };
    };
    std::vector<Row> rows{
        {"no token", without("token_id"), none, frames, "Joint decision output missing token_id"},
        {"no probability", without("token_prob"), none, frames,
         "Joint decision output missing token_prob"},
        {"no duration", without("duration"), none, frames,
         "Joint decision output missing duration"},
        {"two tokens", replace("token_id", MultiArray({2}, ElementType::int32)), none, frames,
         "Joint decision returned unexpected tensor shapes"},
        {"half a top-K pair", replace("top_k_ids", MultiArray({3})), none, frames,
         "Joint decision top-K outputs must be present as a pair (top_k_ids + top_k_logits)"},
        {"top-K lengths",
         [](FeatureMap& out) {
             out.set("top_k_ids", MultiArray({3}));
             out.set("top_k_logits", MultiArray({2}));
         },
         none, frames, "Joint decision top-K length mismatch: 3 vs 2"},
        {"duration bin 5 of 5", replace("duration", MultiArray::scalarInt(5)), none, frames,
         "Duration bin index out of range: 5"},
        {"infinite token", replace("token_id", MultiArray::of({1}, {INFINITY})), none, frames,
         "Joint decision output token_id is not an integer: inf"},
        {"no predictor output", none, without("decoder"), frames, "Invalid decoder output"},
        {"predictor rank 4", none, replace("decoder", MultiArray({1, 640, 1, 1})), frames,
         "Invalid decoder projection rank: 4"},
        {"predictor batch 2", none, replace("decoder", MultiArray({2, 640})), frames,
         "Unsupported decoder batch dimension: 2"},
        {"predictor ints", none, replace("decoder", MultiArray({1, 640, 1}, ElementType::int32)),
         frames, "Unsupported decoder projection type: int32"},
        {"predictor width", none, replace("decoder", MultiArray({1, 320, 1})), frames,
         "Decoder projection hidden size mismatch: 320"},
        {"predictor time 2", none, replace("decoder", MultiArray({1, 640, 2})), frames,
         "Decoder projection time axis must be 1: 2"},
        {"encoder rank 2", none, none, MultiArray({hidden, 4}),
         "Invalid encoder output shape: (4, 4)"},
        {"encoder batch 2", none, none, MultiArray({2, hidden, 4}),
         "Unsupported batch dimension: 2"},
        {"encoder width", none, none, MultiArray({1, 8, 5}),
         "Encoder hidden size mismatch: 8, expected 4"},
        {"no frames", none, none, MultiArray({1, hidden, 0}), "Encoder output has no frames"},
    };
    for (const auto& row : rows) {
        FunctionModel joint({}, [&](const FeatureMap&, FeatureMap& out) {
            testing::writeJointOutputs(out, B, 1.0f, 1);
            row.joint(out);
        });
        auto base = recorder.model();
        FunctionModel decoderModel({}, [&](const FeatureMap& in, FeatureMap& out) {
            base->predict(in, out);
            row.decoder(out);
        });
        TdtDecoderV3 decoder(narrowConfig());
        TdtDecoderState state(2);
        try {
            decoder.decodeWithTimings(row.encoder, 4, 4, decoderModel, joint, state, 0, false, 0);
            ADD_FAILURE() << row.what << ": no error";
        } catch (const ASRError& error) {
            EXPECT_EQ(error.kind(), ASRError::Kind::processingFailed) << row.what;
            EXPECT_EQ(error.errorDescription(), "ASR processing failed: " + row.expected)
                << row.what;
        }
    }
}

TEST_F(TdtDecoderTest, PredictorOutputsOfOtherLayoutsAndStridesAreNormalised) {
    // (1, 1, 640) and a strided (1, 640) with every value two apart in storage both carry the
    // token in their first hidden element.
    std::vector<MultiArray> layouts;
    layouts.push_back(MultiArray({1, 1, 640}));
    layouts.push_back(MultiArray::strided({1, 640}, {1280, 2}, std::vector<float>(1280, 0.0f)));
    for (auto layout : layouts) {
        FunctionModel decoderModel({}, [&](const FeatureMap& in, FeatureMap& out) {
            auto projection = layout;
            projection.storage()[0] = in.find("targets")->flat(0);
            out.set("decoder", projection);
        });
        ScriptedJoint joint({{0, 9, 1.0f, 1, B}, {1, B, 1.0f, 1, 9}}, B);
        TdtDecoderState state(2);
        TdtDecoderV3 decoder(narrowConfig());
        auto jointModel = joint.model();
        auto hypothesis = decoder.decodeWithTimings(testing::indexedFrames(2, hidden), 2, 2,
                                                    decoderModel, *jointModel, state, 0, false, 0);
        EXPECT_THAT(joint.mismatches(), IsEmpty()) << layout.shapeText();
        EXPECT_THAT(hypothesis.ySequence, ElementsAre(9));
    }
}

class PreferAlternative final : public TokenLanguageFilter {
  public:
    std::optional<FilteredToken> filter(int, float, std::span<const float> ids,
                                        std::span<const float> logits,
                                        const std::string& language) const override {
        if (language != "ru") return std::nullopt;
        return FilteredToken{static_cast<int>(ids[1]), logits[1]};
    }
};

TEST_F(TdtDecoderTest, TheLanguageHookSeesTopKOnlyWhenALanguageIsGiven) {
    auto joint = std::make_shared<FunctionModel>(
        ModelDescription{}, [](const FeatureMap& in, FeatureMap& out) {
            int frame = static_cast<int>(in.find("encoder_step")->flat(0));
            testing::writeJointOutputs(out, frame == 0 ? 5 : B, 0.9f, 1);
            out.set("top_k_ids", MultiArray::of({2}, {5, 6}, ElementType::int32));
            out.set("top_k_logits", MultiArray::of({2}, {0.9f, 0.4f}));
        });
    PreferAlternative filter;
    TdtDecoderV3 decoder(narrowConfig(), &filter);
    auto decoderModel = recorder.model();
    for (auto [language, expected] :
         {std::pair<std::optional<std::string>, int>{std::nullopt, 5}, {"ru", 6}, {"en", 5}}) {
        TdtDecoderState state(2);
        auto hypothesis =
            decoder.decodeWithTimings(testing::indexedFrames(3, hidden), 3, 3, *decoderModel,
                                      *joint, state, 0, false, 0, language);
        EXPECT_THAT(hypothesis.ySequence, ElementsAre(expected)) << language.value_or("none");
    }
}

TEST_F(TdtDecoderTest, AStopRequestEndsTheLoopWithCancellation) {
    std::stop_source stop;
    int calls = 0;
    auto joint = testing::functionJoint([&](int frame, int) {
        if (++calls == 3) stop.request_stop();
        return JointStep{frame, B, 1.0f, 1};
    });
    TdtDecoderV3 decoder(narrowConfig());
    TdtDecoderState state(2);
    auto decoderModel = recorder.model();
    EXPECT_THROW(
        decoder.decodeWithTimings(testing::indexedFrames(50, hidden), 50, 50, *decoderModel, *joint,
                                  state, 0, true, 0, std::nullopt, stop.get_token()),
        CancellationError);
    EXPECT_EQ(calls, 3);
    EXPECT_THROW(
        TdtDecoderV3(ASRConfig(16000, TdtConfig{true, 10, {0, -1}, B, 20, 150, 5}, hidden, 1)),
        std::invalid_argument);
}

}  // namespace
}  // namespace speech
