#include "tests/speech/SpeechTestSupport.h"

#include <cmath>
#include <fstream>
#include <random>

namespace speech::testing {

MultiArray indexedFrames(int frames, int hidden) {
    MultiArray array({1, hidden, frames});
    for (int t = 0; t < frames; ++t) array.at({0, 0, t}) = static_cast<float>(t);
    return array;
}

std::shared_ptr<FunctionModel> RecordingDecoder::model() {
    return std::make_shared<FunctionModel>(
        ModelDescription{{"targets", "target_length", "h_in", "c_in"},
                         {"decoder", "h_out", "c_out"}},
        [this](const FeatureMap& inputs, FeatureMap& outputs) {
            int token = static_cast<int>(inputs.find("targets")->flat(0));
            {
                std::lock_guard lock(mutex_);
                tokens_.push_back(token);
            }
            outputs.prepare("decoder", {1, TdtDecoderState::hiddenSize, 1}).storage()[0] =
                static_cast<float>(token);
            auto h = *inputs.find("h_in");
            h.storage()[0] += 1;
            outputs.set("h_out", h);
            outputs.set("c_out", *inputs.find("c_in"));
        });
}

std::vector<int> RecordingDecoder::tokens() const {
    std::lock_guard lock(mutex_);
    return tokens_;
}

void writeJointOutputs(FeatureMap& outputs, int token, float probability, int durationIndex) {
    outputs.prepare("token_id", {1}, ElementType::int32).storage()[0] = static_cast<float>(token);
    outputs.prepare("token_prob", {1}).storage()[0] = probability;
    outputs.prepare("duration", {1}, ElementType::int32).storage()[0] =
        static_cast<float>(durationIndex);
}

namespace {
int frameOf(const FeatureMap& inputs) {
    return static_cast<int>(std::lround(inputs.find("encoder_step")->flat(0)));
}
int previousOf(const FeatureMap& inputs) {
    return static_cast<int>(std::lround(inputs.find("decoder_step")->flat(0)));
}
const ModelDescription jointDescription{{"encoder_step", "decoder_step"},
                                        {"token_id", "token_prob", "duration"}};
}  // namespace

std::shared_ptr<FunctionModel> ScriptedJoint::model() {
    return std::make_shared<FunctionModel>(
        jointDescription, [this](const FeatureMap& inputs, FeatureMap& outputs) {
            std::lock_guard lock(mutex_);
            int frame = frameOf(inputs);
            int previous = previousOf(inputs);
            framesAsked_.push_back(frame);
            if (next_ >= steps_.size()) {
                mismatches_.push_back("call past the script at frame " + std::to_string(frame));
                writeJointOutputs(outputs, blankId_, 1.0f, 1);
                return;
            }
            const auto& step = steps_[next_];
            if (step.expectedFrame != frame) {
                mismatches_.push_back("step " + std::to_string(next_) + ": asked frame " +
                                      std::to_string(frame) + ", expected " +
                                      std::to_string(step.expectedFrame));
            }
            if (step.expectedPrevious && *step.expectedPrevious != previous) {
                mismatches_.push_back("step " + std::to_string(next_) + ": previous token " +
                                      std::to_string(previous) + ", expected " +
                                      std::to_string(*step.expectedPrevious));
            }
            ++next_;
            writeJointOutputs(outputs, step.token, step.probability, step.durationIndex);
        });
}

std::vector<int> ScriptedJoint::framesAsked() const {
    std::lock_guard lock(mutex_);
    return framesAsked_;
}
std::vector<std::string> ScriptedJoint::mismatches() const {
    std::lock_guard lock(mutex_);
    return mismatches_;
}
bool ScriptedJoint::finished() const {
    std::lock_guard lock(mutex_);
    return next_ == steps_.size();
}

std::shared_ptr<FunctionModel> functionJoint(
    std::function<JointStep(int frame, int previous)> answer) {
    return std::make_shared<FunctionModel>(
        jointDescription, [answer](const FeatureMap& inputs, FeatureMap& outputs) {
            auto step = answer(frameOf(inputs), previousOf(inputs));
            writeJointOutputs(outputs, step.token, step.probability, step.durationIndex);
        });
}

TemporaryDirectory::TemporaryDirectory() {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() /
            ("speech-test-" + std::to_string(random()) + std::to_string(random()));
    std::filesystem::create_directories(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(path_, ignored);
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

AsrModels loadScriptedModels(const std::filesystem::path& folder, AsrModelVersion version) {
    ScriptedRuntime runtime;
    auto files = modelFiles(version);
    AsrModels models;
    models.version = version;
    models.preprocessor = runtime.load(folder / files.preprocessor, {});
    if (files.encoder) models.encoder = runtime.load(folder / *files.encoder, {});
    models.decoder = runtime.load(folder / files.decoder, {});
    models.joint = runtime.load(folder / files.joint, {});
    models.vocabulary =
        std::make_shared<const Vocabulary>(loadVocabulary(folder / files.vocabulary));
    return models;
}

}  // namespace speech::testing
