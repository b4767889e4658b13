// The neural-runtime boundary: shaped arrays, reused output buffers, and the scripted runtime
// that tests and demos load from model folders.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/NeuralRuntime.h"
#include "SpeechEngine/ScriptedRuntime.h"
#include "tests/speech/SpeechTestSupport.h"

namespace speech {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(RuntimeArraysTest, BadLayoutsAreRefusedAndOutputsNotWrittenReadAsAbsent) {
    // A (2, 3) view over storage laid out column by column; layouts past their data are refused.
    auto array = MultiArray::strided({2, 3}, {1, 2}, {0, 10, 1, 11, 2, 12});
    EXPECT_EQ(array.flat(4), 11.0f);  // row-major position 4 is (1, 1)
    EXPECT_THROW(array.at({2, 0}), std::out_of_range);
    EXPECT_THROW(MultiArray::strided({2, 3}, {3, 1}, std::vector<float>(5)), std::invalid_argument);
    EXPECT_THROW(MultiArray({2, -1}), std::invalid_argument);
    EXPECT_THROW(MultiArray::of({2, 2}, {1, 2, 3}), std::invalid_argument);

    // An output of an earlier run is not read as this run's, but its buffer is reused.
    int run = 0;
    testing::FunctionModel model({}, [&](const FeatureMap&, FeatureMap& out) {
        out.prepare("always", {2}).storage()[0] = 1;
        if (run++ == 0) out.prepare("firstOnly", {1});
    });
    FeatureMap outputs;
    model.predict({}, outputs);
    const float* buffer = outputs.find("always")->storage().data();
    model.predict({}, outputs);
    EXPECT_THAT(outputs.names(), ElementsAre("always"));
    EXPECT_EQ(outputs.find("always")->storage().data(), buffer);
}

class ScriptedRuntimeTest : public ::testing::Test {
  protected:
    std::shared_ptr<const NeuralModel> load(const std::string& script) {
        ScriptedRuntime::writeModelFolder(dir.path() / "Net.mlmodelc", script);
        return runtime.load(dir.path() / "Net.mlmodelc", {});
    }
    testing::TemporaryDirectory dir;
    ScriptedRuntime runtime;
};

TEST_F(ScriptedRuntimeTest, BrokenFoldersFailToLoadWithTheFolderNamed) {
    for (const std::string script :
         {"{\"network\": \"joint\"", "[]", "{\"network\": \"transformer\"}",
          "{\"network\": \"joint\", \"blankId\": \"x\"}",
          "{\"network\": \"preprocessor\", \"samplesPerFrame\": 0}"}) {
        try {
            load(script);
            ADD_FAILURE() << script << " loaded";
        } catch (const ModelLoadError& error) {
            EXPECT_THAT(error.what(), HasSubstr("Net.mlmodelc")) << script;
        }
    }
    EXPECT_THROW(runtime.load(dir.path() / "Missing.mlmodelc", {}), ModelLoadError);
}

TEST_F(ScriptedRuntimeTest, NetworksCarryFrameCodesFromAudioToTheJointsRules) {
    // Frames coded 0, 7, 7, 0 then one frame of padding; audio_length covers the first three.
    auto audio = ScriptedRuntime::frameCodedAudio({0, 7, 7, 0, 0});
    auto pre = load(R"({"network": "preprocessor"})");
    FeatureMap out;
    pre->predict(
        {{"audio_signal", MultiArray::of({1, static_cast<std::int64_t>(audio.size())}, audio)},
         {"audio_length", MultiArray::scalarInt(3 * 1280 + 1)}},
        out);
    EXPECT_EQ(out.find("mel")->shapeText(), "(1, 1, 5)");
    EXPECT_FLOAT_EQ(out.find("mel")->flat(1), 0.007f);
    EXPECT_EQ(out.find("mel_length")->flat(0), 4.0f) << "a started frame counts";

    for (const char* layout : {"hiddenMajor", "timeMajor"}) {
        auto encoder = load(std::string(R"({"network": "encoder", "hiddenSize": 8, "layout": ")") +
                            layout + "\"}");
        FeatureMap encoded;
        encoder->predict(out, encoded);
        const auto& frames = *encoded.find("encoder");
        EXPECT_FLOAT_EQ(layout[0] == 'h' ? frames.at({0, 0, 2}) : frames.at({0, 2, 0}), 0.007f)
            << layout;
        EXPECT_EQ(encoded.find("encoder_length")->flat(0), 4.0f);
    }

    // Rule for code 7: tokens 12 then 40, then blank; elsewhere blank with duration index 2.
    auto joint = load(R"({"network": "joint", "blankId": 1024, "blankDuration": 2,
        "rules": [{"code": 7, "tokens": [12, 40], "durations": [0, 3], "probabilities": [0.9, 0.8]}]})");
    auto ask = [&](float frameValue, int previous) {
        MultiArray step({1, 8, 1});
        step.storage()[0] = frameValue;
        MultiArray decoderStep({1, 640, 1});
        decoderStep.storage()[0] = static_cast<float>(previous);
        FeatureMap answer;
        joint->predict({{"encoder_step", step}, {"decoder_step", decoderStep}}, answer);
        return std::vector<float>{answer.find("token_id")->flat(0),
                                  answer.find("token_prob")->flat(0),
                                  answer.find("duration")->flat(0)};
    };
    EXPECT_THAT(ask(0.007f, 1024), ElementsAre(12, 0.9f, 0));
    EXPECT_THAT(ask(0.007f, 12), ElementsAre(40, 0.8f, 3));
    EXPECT_THAT(ask(0.007f, 40), ElementsAre(1024, 1.0f, 2));
    EXPECT_THAT(ask(0.0f, 1024), ElementsAre(1024, 1.0f, 2));

    auto decoder = load(R"({"network": "decoder"})");
    FeatureMap predicted;
    decoder->predict({{"targets", MultiArray::of({1, 1}, {12}, ElementType::int32)},
                      {"target_length", MultiArray::scalarInt(1)},
                      {"h_in", MultiArray({2, 1, 640})},
                      {"c_in", MultiArray({2, 1, 640})}},
                     predicted);
    EXPECT_EQ(predicted.find("decoder")->flat(0), 12.0f);
    EXPECT_EQ(predicted.find("h_out")->flat(0), 1.0f);
    EXPECT_THROW(decoder->predict({}, predicted), std::runtime_error);
}

}  // namespace
}  // namespace speech
