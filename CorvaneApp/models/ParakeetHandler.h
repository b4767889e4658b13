#pragma once
// The ModelHandler of Parakeet TDT v2 (backend "speech-engine-native"): decodes a claim's audio
// to 16 kHz mono and transcribes it with the speech engine. Safe to call from several shard tasks
// at once.

#include <cstdint>
#include <filesystem>
#include <memory>

#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/HardwareRequirements.h"
#include "CorvaneApp/models/ParakeetImpl.h"
#include "CorvaneApp/models/SpeechHandler.h"

namespace corvane {

class ParakeetHandler final : public SpeechHandler {
  public:
    static ModelIdentifier identifier();
    static constexpr ModelCategory category = ModelCategory::transcription;
    static HardwareRequirements requirements();
    static std::uint64_t downloadSizeBytes();

    // Over the model set in `modelDirectory`, run by `runtime`; `chipTier` is accepted for the
    // handlers' common shape and not used. Throws as ParakeetImpl does.
    ParakeetHandler(const std::filesystem::path& modelDirectory, ChipTier chipTier,
                    std::shared_ptr<const ParakeetRuntime> runtime, Options options);

    ModelIdentifier modelIdentifier() const override { return identifier(); }

    // Throws ModelError::InvalidInput for a job that is not a transcription, passes the decoder's
    // and the engine's errors through. The observer hears "decode" and "inference" with their
    // seconds, also when the stage failed. `stop` cancels the engine between its steps.
    JobResult handle(const ClaimedJob& job, const StageObserver& stageObserver,
                     std::stop_token stop) override;

    ParakeetImpl& impl() { return *impl_; }

  private:
    std::unique_ptr<ParakeetImpl> impl_;
};

}  // namespace corvane
