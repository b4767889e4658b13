#pragma once
// The ModelHandler of the Whisper model (backend "whisper-cpp-swift"): decodes a claim's audio to
// 16 kHz mono and transcribes it in English on one whisper.cpp context, made once per handler.
// Safe to call from several shard tasks at once: decoding overlaps, inference takes turns.

#include <cstdint>
#include <filesystem>
#include <memory>

#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/HardwareRequirements.h"
#include "CorvaneApp/models/SpeechHandler.h"
#include "CorvaneApp/models/WhisperImpl.h"

namespace corvane {

class WhisperHandler final : public SpeechHandler {
  public:
    static ModelIdentifier identifier();
    static constexpr ModelCategory category = ModelCategory::transcription;
    static HardwareRequirements requirements();
    static std::uint64_t downloadSizeBytes();

    struct Options : SpeechHandler::Options {
        WhisperImpl::Options impl;
    };

    // Loads WhisperImpl::defaultModelFilename from `modelDirectory`; `chipTier` is accepted for
    // the handlers' common shape and not used. Throws ModelError (see WhisperImpl) and logs why.
    WhisperHandler(const std::filesystem::path& modelDirectory, ChipTier chipTier, Options options);

    ModelIdentifier modelIdentifier() const override { return identifier(); }

    // Throws ModelError for a job that is not a transcription and for engine failures, and passes
    // AudioDecodeError through. The observer hears "decode" and "inference" with their seconds,
    // also when the stage failed. `stop` ends a whisper.cpp run early.
    JobResult handle(const ClaimedJob& job, const StageObserver& stageObserver,
                     std::stop_token stop) override;
    // The next job reloads them inside its inference stage (see WhisperImpl).
    WeightsRelease releaseWeights() override { return impl_->releaseWeights(); }

    WhisperImpl& impl() { return *impl_; }

  private:
    std::unique_ptr<WhisperImpl> impl_;
};

}  // namespace corvane
