#pragma once
// The inference contract: the worker runs exactly one model at a time through a ModelHandler.

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "CorvaneApp/coordinator/JobRecords.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"

namespace corvane {

enum class ModelHandlerStage { decode, inference };
inline const char* rawValue(ModelHandlerStage stage) {
    return stage == ModelHandlerStage::decode ? "decode" : "inference";
}

// What asking a handler to let go of its weights came to.
enum class WeightsRelease {
    released,     // freed; the next job loads them again
    nothingHeld,  // none in memory (already freed, or the handler keeps none of its own)
    busy,         // a job is using them; ask again later
};

// Told the seconds of each stage as the handler finishes it.
using StageObserver = std::function<void(ModelHandlerStage stage, double seconds)>;

// The error of handlers. It has no text of its own: what is shown is its case and payload.
class ModelError : public std::exception {
  public:
    struct HardwareIncapable {
        std::string reason;
    };
    struct BackendCrashed {
        std::string underlying;
    };  // the underlying error's description
    struct InvalidInput {
        std::string reason;
    };
    struct ModelNotInstalled {};
    struct Timeout {};
    using Case =
        std::variant<HardwareIncapable, BackendCrashed, InvalidInput, ModelNotInstalled, Timeout>;

    explicit ModelError(Case value);
    const Case& value() const { return value_; }
    // Whether the coordinator may hand the shard out again after this error.
    bool isRetryable() const;
    // The case and its payload, e.g. "backendCrashed(whisper_full returned -1)".
    const char* what() const noexcept override { return printed_.c_str(); }

  private:
    Case value_;
    std::string printed_;
};

// The samples of an audio input at 16 kHz, the one form the speech engines take. Anything else is
// ModelError::InvalidInput, naming `implName`.
const std::vector<float>& audioSamplesAt16kHz(const ModelInput& input, const std::string& implName);

class ModelHandler {
  public:
    virtual ~ModelHandler() = default;
    // The model this handler serves.
    virtual ModelIdentifier modelIdentifier() const = 0;
    // Name of the back-end that ran, reported to the coordinator.
    virtual std::string activeImplName() const = 0;
    // Version of the installed weights.
    virtual std::optional<std::string> installedVersion() const = 0;
    // Runs one job. Throws ModelError (or the error of whatever failed beneath). Reacts to `stop`
    // at its own pace by throwing.
    virtual JobResult handle(const ClaimedJob& job, const StageObserver& stageObserver,
                             std::stop_token stop) = 0;
    // Frees the model's weights while no job uses them, for an idle worker; the next job loads
    // them again (inside its inference stage). Never waits for a running job.
    virtual WeightsRelease releaseWeights() { return WeightsRelease::nothingHeld; }
};

}  // namespace corvane
