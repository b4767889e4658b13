#include "CorvaneApp/models/WhisperHandler.h"

#include <exception>
#include <system_error>

#include "CorvaneApp/models/AudioPipeline.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/StageTiming.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

const ModelCatalogueEntry& catalogued() {
    static const ModelCatalogueEntry entry = *catalogueEntry(whisperModelIdentifier());
    return entry;
}

}  // namespace

ModelIdentifier WhisperHandler::identifier() { return whisperModelIdentifier(); }
HardwareRequirements WhisperHandler::requirements() { return catalogued().requirements; }
std::uint64_t WhisperHandler::downloadSizeBytes() { return catalogued().downloadSizeBytes; }

WhisperHandler::WhisperHandler(const std::filesystem::path& modelDirectory, ChipTier, Options options)
    : log_(log::get("WhisperHandler")),
      decode_(options.decode ? std::move(options.decode) : Decoder(AudioPipeline::decodeTo16kMonoPCM)),
      now_(std::move(options.now)) {
    const std::filesystem::path weights = modelDirectory / WhisperImpl::defaultModelFilename;
    std::error_code error;
    if (!std::filesystem::exists(weights, error)) {
        log_->error("Whisper weights missing at {}", weights.string());
        throw ModelError(ModelError::ModelNotInstalled{});
    }
    impl_ = std::make_unique<WhisperImpl>(weights, std::move(options.impl));
    activeImplName_ = WhisperImpl::displayName;
    installedVersion_ = "1";
}

JobResult WhisperHandler::handle(const ClaimedJob& job, const StageObserver& stageObserver, std::stop_token stop) {
    const Date start = now_();
    if (job.category != ModelCategory::transcription) {
        throw ModelError(ModelError::InvalidInput{"WhisperHandler only handles .transcription jobs, got " +
                                                  rawValue(job.category)});
    }
    const std::vector<float> pcm =
        timedStage(ModelHandlerStage::decode, stageObserver, now_, [&] { return decode_(job.inputPath); });
    std::string text =
        timedStage(ModelHandlerStage::inference, stageObserver, now_, [&] { return impl_->transcribe(pcm, stop); });

    JobResult result;
    result.jobID = job.id;
    result.shardID = job.shardID;
    result.output = ModelOutput{TranscriptResult{std::move(text), std::nullopt, {}}};
    result.backendUsed = WhisperImpl::displayName;
    result.wallTimeSeconds = secondsBetween(start, now_());
    return result;
}

}  // namespace corvane
