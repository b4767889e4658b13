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
using ::testing::StrEq;
using ::testing::ThrowsMessage;

constexpr int B = 8192;    // blank of the v3 vocabulary
constexpr int hidden = 4;  // a narrow encoder keeps the frames readable

// (1, hidden, frames) where frame t's first element is t.
MultiArray indexedFrames(int frames) {
    MultiArray array({1, hidden, frames});
    for (int t = 0; t < frames; ++t) array.at({0, 0, t}) = static_cast<float>(t);
    return array;
}

void writeJoint(FeatureMap& out, int token, float probability, int durationIndex) {
    out.prepare("token_id", {1}, ElementType::int32).storage()[0] = static_cast<float>(token);
    out.prepare("token_prob", {1}).storage()[0] = probability;
    out.prepare("duration", {1}, ElementType::int32).storage()[0] =
        static_cast<float>(durationIndex);
}

int valueOf(const FeatureMap& in, const char* name) {
    return static_cast<int>(std::lround(in.find(name)->flat(0)));
}

// Each emission as "token@frame+duration".
std::vector<std::string> emitted(const TdtHypothesis& h, std::size_t from = 0) {
    std::vector<std::string> out;
    for (std::size_t i = from; i < h.ySequence.size(); ++i) {
        out.push_back(std::to_string(h.ySequence[i]) + "@" + std::to_string(h.timestamps[i]) + "+" +
                      std::to_string(h.tokenDurations[i]));
    }
    return out;
}

// One answer of a joint, with what the loop must have asked.
struct JointStep {
    int expectedFrame;
    int token;
    float probability;
    int durationIndex;
    std::optional<int> expectedPrevious = std::nullopt;  // the token the decoder step must carry
};

// A joint computed from the frame alone.
FunctionModel answering(std::function<JointStep(int frame)> answer) {
    return FunctionModel({}, [answer](const FeatureMap& in, FeatureMap& out) {
        auto step = answer(valueOf(in, "encoder_step"));
        writeJoint(out, step.token, step.probability, step.durationIndex);
    });
}

// A joint that answers its steps in order. A call past the script or with unexpected inputs is
// a problem (answered with blank), and so is stopping before the script's end.
class ScriptedJoint {
  public:
    explicit ScriptedJoint(std::vector<JointStep> steps) : steps_(std::move(steps)) {}
    const NeuralModel& model() const { return model_; }
    std::vector<std::string> problems() const {
        auto problems = problems_;
        if (next_ < steps_.size()) problems.push_back("stopped at step " + std::to_string(next_));
        return problems;
    }

  private:
    void answer(const FeatureMap& in, FeatureMap& out) {
        int frame = valueOf(in, "encoder_step"), previous = valueOf(in, "decoder_step");
        std::string at = "step " + std::to_string(next_) + ": ";
        if (next_ >= steps_.size()) {
            problems_.push_back("call past the script at frame " + std::to_string(frame));
            return writeJoint(out, B, 1.0f, 1);
        }
        const auto& step = steps_[next_++];
        if (step.expectedFrame != frame)
            problems_.push_back(at + "asked frame " + std::to_string(frame));
        if (step.expectedPrevious && *step.expectedPrevious != previous)
            problems_.push_back(at + "previous token " + std::to_string(previous));
        writeJoint(out, step.token, step.probability, step.durationIndex);
    }

    std::vector<JointStep> steps_;
    std::size_t next_ = 0;
    std::vector<std::string> problems_;
    FunctionModel model_{{}, [this](const FeatureMap& in, FeatureMap& out) { answer(in, out); }};
};

ASRConfig narrowConfig(TdtConfig tdt = {}) {
    ASRConfig config;
    config.encoderHiddenSize = hidden;
    config.tdtConfig = std::move(tdt);
    return config;
}

class TdtDecoderTest : public ::testing::Test {
  protected:
    struct Window {
        bool last = false;
        TdtConfig tdt = {};
        int context = 0;
        int offset = 0;
        std::optional<std::string> language = std::nullopt;
        std::stop_token stop = {};
    };

    // Decodes `frames` indexed frames with the recording predictor.
    TdtHypothesis run(const NeuralModel& joint, int frames, TdtDecoderState& state, Window w) {
        TdtDecoderV3 decoder(narrowConfig(std::move(w.tdt)), filter);
        return decoder.decodeWithTimings(indexedFrames(frames), frames, frames, *predictor, joint,
                                         state, w.context, w.last, w.offset, w.language, w.stop);
    }
    // As run(), with a joint whose script must be followed exactly to its end.
    TdtHypothesis follow(ScriptedJoint& joint, int frames, TdtDecoderState& state, Window w) {
        auto hypothesis = run(joint.model(), frames, state, std::move(w));
        EXPECT_THAT(joint.problems(), IsEmpty());
        return hypothesis;
    }

    std::vector<int> fed;  // every token the predictor ran with
    // Its output carries the token it was fed; h counts its runs.
    std::shared_ptr<FunctionModel> predictor = std::make_shared<FunctionModel>(
        ModelDescription{}, [this](const FeatureMap& in, FeatureMap& out) {
            fed.push_back(valueOf(in, "targets"));
            out.prepare("decoder", {1, TdtDecoderState::hiddenSize, 1}).storage()[0] =
                static_cast<float>(fed.back());
            auto h = *in.find("h_in");
            h.storage()[0] += 1;
            out.set("h_out", h);
            out.set("c_out", *in.find("c_in"));
        });
    const TokenLanguageFilter* filter = nullptr;
};

TEST_F(TdtDecoderTest, WalksBlanksJumpsAndRepeatedEmissionsAndDropsATokenThatLeavesTheWindow) {
    // Six frames, not the last chunk. Bins are 0,1,2,3,4.
    //  f0 blank, bin 0 -> a blank below 2 jumps 1 -> f1 (inner blank skip, same prediction)
    //  f1 blank, bin 0 -> f2
    //  f2 token 7, bin 2 -> jump 2: emitted at 2 with duration 2, time 4; first emission at 2
    //  f4 token 9, bin 0 -> new frame, duration stays 0: emitted at 4, time stays 4
    //  f4 token 11, bin 0 -> a repeat at the last emission frame: made 1; emitted at 4, time 5
    //  f5 token 13, bin 1 -> time 6 reaches the end: dropped, loop ends
    // Scores 1.7 and NaN are recorded as 1 and 0.
    ScriptedJoint joint({{0, B, 0.5f, 0, B},
                         {1, B, 0.5f, 0, B},
                         {2, 7, 1.7f, 2, B},
                         {4, 9, std::nanf(""), 0, 7},
                         {4, 11, 0.7f, 0, 9},
                         {5, 13, 0.6f, 1, 11}});
    TdtDecoderState state(2);
    auto hypothesis = follow(joint, 6, state, {});

    EXPECT_THAT(emitted(hypothesis), ElementsAre("7@2+2", "9@4+0", "11@4+1"));
    EXPECT_THAT(hypothesis.tokenConfidences, ElementsAre(1.0f, 0.0f, 0.7f));
    EXPECT_FLOAT_EQ(hypothesis.score, 1.7f);
    // One predictor run to start, then one per emitted token; blanks never run it.
    EXPECT_THAT(fed, ElementsAre(B, 7, 9, 11));
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
    // f25 token 21, bin 1: emitted at 25 + offset 100; f26 blank bin 4 jumps to 30, the end.
    ScriptedJoint next({{25, 21, 0.9f, 1, 11}, {26, B, 0.5f, 4, 21}});
    auto second = follow(next, 30, state, {.offset = 100});
    EXPECT_THAT(emitted(second), ElementsAre("21@125+1"));
    EXPECT_THAT(fed, ElementsAre(B, 7, 9, 11, 21));
}

TEST_F(TdtDecoderTest, TheSymbolLimitOfAFrameForcesProgress) {
    // maxSymbolsPerStep 1: after each emission time moves one past where the jump left it, and
    // the last-emission frame returns to -1, so a duration of 0 is never turned into 1.
    //  f0 token 5, bin 0 -> jump 0, emitted at 0; forced to 1
    //  f1 token 6, bin 0 -> jump 0 (no last emission), emitted at 1; forced to 2
    //  f2 token 7, bin 2 -> jump 2 to 4, emitted at 2; forced to 5
    //  f5 blank -> 6, the end
    ScriptedJoint one({{0, 5, 1.0f, 0}, {1, 6, 1.0f, 0}, {2, 7, 1.0f, 2}, {5, B, 1.0f, 0}});
    TdtDecoderState state(2);
    EXPECT_THAT(emitted(follow(one, 6, state, {.tdt = {.maxSymbolsPerStep = 1}})),
                ElementsAre("5@0+0", "6@1+0", "7@2+2"));
    // maxSymbolsPerStep 2, eight frames.
    //  f0 token 5, bin 0 -> emitted at 0, stays; emissions at frame 0 = 1
    //  f0 token 6, bin 0 -> a repeat at frame 0, made 1: emitted at 0, time 1; emissions = 2,
    //     not below 2, so progress is forced: time 2
    //  f2 blank bin 0 -> 3; f3 blank bin 4 -> jump 4 to 7; f7 blank -> 8, the end
    ScriptedJoint two(
        {{0, 5, 1.0f, 0}, {0, 6, 1.0f, 0, 5}, {2, B, 1.0f, 0}, {3, B, 1.0f, 4}, {7, B, 1.0f, 0}});
    TdtDecoderState other(2);
    EXPECT_THAT(emitted(follow(two, 8, other, {.tdt = {.maxSymbolsPerStep = 2}})),
                ElementsAre("5@0+0", "6@0+1"));
}

TEST_F(TdtDecoderTest, TheTailOfTheLastChunkRecoversATokenTheMainLoopDropped) {
    // Four frames. The only token sits on the last frame (3) with a jump of 1, which reaches the
    // end: the main loop drops it (f0 blank, f1, f2 blank, f3 token 42 -> time 4), and a middle
    // chunk has no tail. Tail (last chunk only): tailIndex 4, floor max(4-2, 0) = 2, last frame 3.
    //  step 0: frame min(3, 4) = 3 -> 42, emitted at min(3, 4) = 3 with duration 1; tail 4
    //  step 1: frame lastTimestep 3 -> blank (1); step 2: frame floor 2 -> blank (2)
    //  step 3: frame 3 -> blank (3); step 4: frame 3 -> blank (4); step 5: frame 2 -> blank (5):
    //  five blanks in a row end it.
    std::vector<JointStep> steps{
        {0, B, 1.0f, 0}, {1, B, 1.0f, 0}, {2, B, 1.0f, 0}, {3, 42, 0.9f, 1}};
    ScriptedJoint middle(steps);
    TdtDecoderState state(2);
    EXPECT_THAT(follow(middle, 4, state, {}).ySequence, IsEmpty());
    EXPECT_EQ(state.timeJump, 0);

    steps.insert(steps.end(), {{3, 42, 0.9f, 1, B},
                               {3, B, 1.0f, 1, 42},
                               {2, B, 1.0f, 1, 42},
                               {3, B, 1.0f, 1},
                               {3, B, 1.0f, 1},
                               {2, B, 1.0f, 1}});
    ScriptedJoint last(steps);
    TdtDecoderState fresh(2);
    auto hypothesis = follow(last, 4, fresh, {.last = true});
    EXPECT_THAT(emitted(hypothesis), ElementsAre("42@3+1"));
    EXPECT_FALSE(fresh.predictorOutput.has_value()) << "a recording's end leaves no context";
    EXPECT_FALSE(fresh.timeJump.has_value());
    EXPECT_EQ(fresh.lastToken, 42);
}

TEST_F(TdtDecoderTest, The151stTokenIsNotEmittedButTheTailStillRuns) {
    // 200 frames; frames below 180 give token 100 + frame % 50 with bin 1, later frames blank.
    // Frames 0..149 emit one token each; at frame 150 the 151st token ends the loop unemitted,
    // with time already at 151. Tail (last frame 199, floor 198), ten steps at most:
    //  step 0 frame 151 -> 101 at 151; steps 1, 2 frames 199, 198 blank; tail index 154
    //  step 3 frame 154 -> 104 at 154; steps 4, 5 blank; step 6 frame 157 -> 107 at 157;
    //  steps 7, 8 blank; step 9 frame 160 -> 110 at 160. Ten steps: done.
    auto joint = answering([](int frame) {
        return frame < 180 ? JointStep{frame, 100 + frame % 50, 0.5f, 1}
                           : JointStep{frame, B, 1.0f, 1};
    });
    TdtDecoderState state(2);
    auto hypothesis = run(joint, 200, state, {.last = true});
    ASSERT_EQ(hypothesis.ySequence.size(), 154u);
    EXPECT_EQ(emitted(hypothesis, 149)[0], "149@149+1");
    EXPECT_THAT(emitted(hypothesis, 150),
                ElementsAre("101@151+1", "104@154+1", "107@157+1", "110@160+1"));
}

TEST_F(TdtDecoderTest, StartFrameFollowsTheCarriedJumpAndTheContextFramesOrThereIsNothingToDo) {
    std::vector<int> asked;
    auto joint = answering([&asked](int frame) {
        asked.push_back(frame);
        return JointStep{frame, B, 1.0f, 4};
    });
    // Carried jump -> first frame, past one context frame (no context and 0 give 25, above).
    for (auto [jump, start] : std::vector<std::pair<std::optional<int>, int>>{
             {std::nullopt, 1}, {3, 4}, {-7, 0}, {0, 1}}) {
        asked.clear();
        TdtDecoderState state(2);
        state.timeJump = jump;
        run(joint, 30, state, {.context = 1});
        ASSERT_FALSE(asked.empty());
        EXPECT_EQ(asked.front(), start) << jump.value_or(-99);
    }
    // One frame, or a start past the audio (30 carried + 0), gives nothing and changes nothing.
    asked.clear();
    TdtDecoderState state(2);
    state.lastToken = 77;
    auto one = run(joint, 1, state, {.last = true});
    EXPECT_TRUE(one.isEmpty());
    ASSERT_TRUE(one.decState.has_value());
    EXPECT_EQ(one.decState->lastToken, 77);
    state.timeJump = 30;
    EXPECT_TRUE(run(joint, 10, state, {.last = true}).isEmpty());
    EXPECT_THAT(asked, IsEmpty());
    EXPECT_THAT(fed, ElementsAre(B, B, B, B)) << "only the four rows ran it";
    EXPECT_EQ(state.timeJump, 30);
}

TEST_F(TdtDecoderTest, SentenceFinalPunctuationRestartsThePredictor) {
    for (int token : {7883, 7952, 7948, 5}) {
        // f0 blank; f1 the token with bin 1; f2 blank -> 3, the end.
        ScriptedJoint joint({{0, B, 1.0f, 0}, {1, token, 1.0f, 1}, {2, B, 1.0f, 0}});
        TdtDecoderState state(2);
        follow(joint, 3, state, {});
        EXPECT_EQ(state.lastToken, token);
        EXPECT_EQ(state.predictorOutput.has_value(), token == 5) << token;
    }
}

TEST_F(TdtDecoderTest, MalformedNetworkOutputsFailWithTheirOwnText) {
    using Change = std::function<void(FeatureMap&)>;
    // Decodes with the joint's blank answer and the predictor's output changed as given.
    auto fails = [&](const MultiArray& encoder, Change joint, Change decoder, std::string text) {
        FunctionModel jointModel({}, [&](const FeatureMap&, FeatureMap& out) {
            writeJoint(out, B, 1.0f, 1);
            joint(out);
        });
        FunctionModel decoderModel({}, [&](const FeatureMap& in, FeatureMap& out) {
            predictor->predict(in, out);
            decoder(out);
        });
        TdtDecoderState state(2);
        EXPECT_THAT(
            [&] {
                TdtDecoderV3(narrowConfig())
                    .decodeWithTimings(encoder, 4, 4, decoderModel, jointModel, state, 0, false, 0);
            },
            ThrowsMessage<ASRError>(StrEq("ASR processing failed: " + text)));
    };
    auto none = [](FeatureMap&) {};
    auto clear = [](FeatureMap& out) { out = {}; };
    auto set = [](const char* name, MultiArray array) {
        return [=](FeatureMap& out) { out.set(name, array); };
    };
    auto frames = indexedFrames(4);
    fails(frames, clear, none, "Joint decision output missing token_id");
    fails(frames, set("token_id", MultiArray({2}, ElementType::int32)), none,
          "Joint decision returned unexpected tensor shapes");
    fails(frames, set("token_id", MultiArray::of({1}, {INFINITY})), none,
          "Joint decision output token_id is not an integer: inf");
    fails(frames, set("duration", MultiArray::scalarInt(5)), none,
          "Duration bin index out of range: 5");
    fails(frames, set("top_k_ids", MultiArray({3})), none,
          "Joint decision top-K outputs must be present as a pair (top_k_ids + top_k_logits)");
    fails(
        frames,
        [](FeatureMap& out) {
            out.set("top_k_ids", MultiArray({3}));
            out.set("top_k_logits", MultiArray({2}));
        },
        none, "Joint decision top-K length mismatch: 3 vs 2");
    fails(frames, none, clear, "Invalid decoder output");
    for (const auto& [projection, text] : std::vector<std::pair<MultiArray, std::string>>{
             {MultiArray({1, 640, 1, 1}), "Invalid decoder projection rank: 4"},
             {MultiArray({2, 640}), "Unsupported decoder batch dimension: 2"},
             {MultiArray({1, 640, 1}, ElementType::int32),
              "Unsupported decoder projection type: int32"},
             {MultiArray({1, 320, 1}), "Decoder projection hidden size mismatch: 320"},
             {MultiArray({1, 640, 2}), "Decoder projection time axis must be 1: 2"}}) {
        fails(frames, none, set("decoder", projection), text);
    }
    for (const auto& [encoder, text] : std::vector<std::pair<MultiArray, std::string>>{
             {MultiArray({hidden, 4}), "Invalid encoder output shape: (4, 4)"},
             {MultiArray({2, hidden, 4}), "Unsupported batch dimension: 2"},
             {MultiArray({1, 8, 5}), "Encoder hidden size mismatch: 8, expected 4"},
             {MultiArray({1, hidden, 0}), "Encoder output has no frames"}}) {
        fails(encoder, none, none, text);
    }
}

TEST_F(TdtDecoderTest, PredictorOutputsOfOtherLayoutsAndStridesAreNormalised) {
    // (1, 1, 640) and a strided (1, 640) with every value two apart in storage both carry the
    // token in their first hidden element, which the joint must see as the previous token.
    for (auto layout : {MultiArray({1, 1, 640}),
                        MultiArray::strided({1, 640}, {1280, 2}, std::vector<float>(1280))}) {
        predictor = std::make_shared<FunctionModel>(
            ModelDescription{}, [layout](const FeatureMap& in, FeatureMap& out) {
                auto projection = layout;
                projection.storage()[0] = in.find("targets")->flat(0);
                out.set("decoder", projection);
            });
        ScriptedJoint joint({{0, 9, 1.0f, 1, B}, {1, B, 1.0f, 1, 9}});
        TdtDecoderState state(2);
        EXPECT_THAT(follow(joint, 2, state, {}).ySequence, ElementsAre(9)) << layout.shapeText();
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
    FunctionModel joint({}, [](const FeatureMap& in, FeatureMap& out) {
        int frame = static_cast<int>(in.find("encoder_step")->flat(0));
        writeJoint(out, frame == 0 ? 5 : B, 0.9f, 1);
        out.set("top_k_ids", MultiArray::of({2}, {5, 6}, ElementType::int32));
        out.set("top_k_logits", MultiArray::of({2}, {0.9f, 0.4f}));
    });
    PreferAlternative preferAlternative;
    filter = &preferAlternative;
    for (auto [language, expected] :
         {std::pair<std::optional<std::string>, int>{std::nullopt, 5}, {"ru", 6}, {"en", 5}}) {
        TdtDecoderState state(2);
        // Named rather than a designated temporary: GCC 12 at -O2 takes the temporary's
        // default-initialized TdtConfig for uninitialized (-Wmaybe-uninitialized).
        Window window;
        window.language = language;
        EXPECT_THAT(run(joint, 3, state, window).ySequence, ElementsAre(expected))
            << language.value_or("none");
    }
}

TEST_F(TdtDecoderTest, AStopRequestEndsTheLoopWithCancellation) {
    std::stop_source stop;
    int calls = 0;
    auto joint = answering([&](int frame) {
        if (++calls == 3) stop.request_stop();
        return JointStep{frame, B, 1.0f, 1};
    });
    TdtDecoderState state(2);
    EXPECT_THROW(run(joint, 50, state, {.last = true, .stop = stop.get_token()}),
                 CancellationError);
    EXPECT_EQ(calls, 3);
    EXPECT_THROW(TdtDecoderV3(narrowConfig({.durationBins = {0, -1}})), std::invalid_argument);
}

}  // namespace
}  // namespace speech
