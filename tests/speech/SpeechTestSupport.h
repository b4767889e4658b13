#pragma once
// Shared fakes of the speech engine's suites: a network made of a lambda, the scratch folder,
// and a scripted model set loaded without the downloader.

#include <filesystem>
#include <functional>
#include <string>

#include "SpeechEngine/AsrModels.h"
#include "SpeechEngine/NeuralModel.h"
#include "SpeechEngine/ScriptedRuntime.h"
#include "tests/support/ScratchFolder.h"

namespace speech::testing {

class FunctionModel final : public NeuralModel {
  public:
    using Run = std::function<void(const FeatureMap&, FeatureMap&)>;
    FunctionModel(ModelDescription description, Run run)
        : description_(std::move(description)), run_(std::move(run)) {}
    const ModelDescription& description() const override { return description_; }
    const ModelConfiguration& configuration() const override { return configuration_; }

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        run_(inputs, outputs);
    }
    ModelDescription description_;
    ModelConfiguration configuration_;
    Run run_;
};

using corvane::testing::ScratchFolder;

void writeText(const std::filesystem::path& path, const std::string& text);

// Loads every network of a scripted v2-style set straight from `folder` (no downloader).
AsrModels loadScriptedModels(const std::filesystem::path& folder, AsrModelVersion version);

}  // namespace speech::testing
