#pragma once
// Shared fakes of the speech engine's suites: networks made of lambdas, encoder outputs whose
// frames carry their own index, and a temporary folder.

#include <atomic>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SpeechEngine/AsrModels.h"
#include "SpeechEngine/NeuralModel.h"
#include "SpeechEngine/ScriptedRuntime.h"
#include "SpeechEngine/TdtDecoderState.h"

namespace speech::testing {

// A network whose run is a function; counts its calls.
class FunctionModel final : public NeuralModel {
  public:
    using Run = std::function<void(const FeatureMap&, FeatureMap&)>;
    FunctionModel(ModelDescription description, Run run)
        : description_(std::move(description)), run_(std::move(run)) {}
    const ModelDescription& description() const override { return description_; }
    const ModelConfiguration& configuration() const override { return configuration_; }
    int calls() const { return calls_; }

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        ++calls_;
        run_(inputs, outputs);
    }
    ModelDescription description_;
    ModelConfiguration configuration_;
    Run run_;
    mutable std::atomic<int> calls_{0};
};

// (1, hidden, frames) where frame t's first element is t.
MultiArray indexedFrames(int frames, int hidden);

// A predictor whose output carries the token it was given, recording every token in order.
class RecordingDecoder {
  public:
    std::shared_ptr<FunctionModel> model();
    std::vector<int> tokens() const;

  private:
    mutable std::mutex mutex_;
    std::vector<int> tokens_;
};

// One answer of a joint scripted by call order, with what the loop must have asked.
struct JointStep {
    int expectedFrame;
    int token;
    float probability;
    int durationIndex;
    std::optional<int> expectedPrevious = std::nullopt;  // the token the decoder step must carry
};

// A joint that answers its steps in order and notes every frame asked; a call past the script or
// with unexpected inputs is recorded as a mismatch and answered with blank.
class ScriptedJoint {
  public:
    ScriptedJoint(std::vector<JointStep> steps, int blankId)
        : steps_(std::move(steps)), blankId_(blankId) {}
    std::shared_ptr<FunctionModel> model();
    std::vector<int> framesAsked() const;
    std::vector<std::string> mismatches() const;
    bool finished() const;

  private:
    mutable std::mutex mutex_;
    std::vector<JointStep> steps_;
    int blankId_;
    std::size_t next_ = 0;
    std::vector<int> framesAsked_;
    std::vector<std::string> mismatches_;
};

// A joint computed from (frame, previous token) alone.
std::shared_ptr<FunctionModel> functionJoint(
    std::function<JointStep(int frame, int previous)> answer);

// Writes the three scalar outputs of a joint.
void writeJointOutputs(FeatureMap& outputs, int token, float probability, int durationIndex);

class TemporaryDirectory {
  public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
};

void writeText(const std::filesystem::path& path, const std::string& text);

// Loads every network of a scripted v2-style set straight from `folder` (no downloader).
AsrModels loadScriptedModels(const std::filesystem::path& folder, AsrModelVersion version);

}  // namespace speech::testing
