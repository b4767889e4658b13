#include "CorvaneApp/models/ModelHandler.h"

namespace corvane {
namespace {

std::string print(const ModelError::Case& value) {
    struct Printer {
        std::string operator()(const ModelError::HardwareIncapable& c) const {
            return "hardwareIncapable(reason: \"" + c.reason + "\")";
        }
        std::string operator()(const ModelError::BackendCrashed& c) const {
            return "backendCrashed(underlying: " + c.underlying + ")";
        }
        std::string operator()(const ModelError::InvalidInput& c) const {
            return "invalidInput(reason: \"" + c.reason + "\")";
        }
        std::string operator()(const ModelError::ModelNotInstalled&) const {
            return "modelNotInstalled";
        }
        std::string operator()(const ModelError::Timeout&) const { return "timeout"; }
    };
    return std::visit(Printer{}, value);
}

}  // namespace

ModelError::ModelError(Case value) : value_(std::move(value)), printed_(print(value_)) {}

bool ModelError::isRetryable() const {
    return std::holds_alternative<BackendCrashed>(value_) ||
           std::holds_alternative<Timeout>(value_);
}

const std::vector<float>& audioSamplesAt16kHz(const ModelInput& input,
                                              const std::string& implName) {
    const auto* audio = std::get_if<ModelInput::Audio>(&input.value);
    if (!audio) throw ModelError(ModelError::InvalidInput{implName + " requires .audio input"});
    if (audio->sampleRate != 16000) {
        throw ModelError(ModelError::InvalidInput{implName + " requires 16 kHz input, got " +
                                                  std::to_string(audio->sampleRate)});
    }
    return audio->pcmBuffer;
}

}  // namespace corvane
