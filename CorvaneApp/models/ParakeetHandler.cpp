#include "CorvaneApp/models/ParakeetHandler.h"

#include "CorvaneApp/models/AudioPipeline.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/StageTiming.h"

namespace corvane {
namespace {

const ModelCatalogueEntry& catalogued() {
    static const ModelCatalogueEntry entry = *catalogueEntry(parakeetModelIdentifier());
    return entry;
}

}  // namespace

ModelIdentifier ParakeetHandler::identifier() { return parakeetModelIdentifier(); }
HardwareRequirements ParakeetHandler::requirements() { return catalogued().requirements; }
std::uint64_t ParakeetHandler::downloadSizeBytes() { return catalogued().downloadSizeBytes; }

ParakeetHandler::ParakeetHandler(const std::filesystem::path& modelDirectory, ChipTier,
                                 std::shared_ptr<const ParakeetRuntime> runtime, Options options)
    : decode_(options.decode ? std::move(options.decode) : Decoder(AudioPipeline::decodeTo16kMonoPCM)),
      now_(std::move(options.now)),
      impl_(std::make_unique<ParakeetImpl>(modelDirectory, std::move(runtime))) {
    activeImplName_ = ParakeetImpl::displayName;
    installedVersion_ = "1";
}

JobResult ParakeetHandler::handle(const ClaimedJob& job, const StageObserver& stageObserver, std::stop_token stop) {
    const Date start = now_();
    if (job.category != ModelCategory::transcription) {
        throw ModelError(ModelError::InvalidInput{"ParakeetHandler only handles .transcription jobs, got " +
                                                  rawValue(job.category)});
    }
    const std::vector<float> pcm =
        timedStage(ModelHandlerStage::decode, stageObserver, now_, [&] { return decode_(job.inputPath); });
    std::string text = timedStage(ModelHandlerStage::inference, stageObserver, now_,
                                  [&] { return impl_->transcribe(pcm, stop); });

    JobResult result;
    result.jobID = job.id;
    result.shardID = job.shardID;
    result.output = ModelOutput{TranscriptResult{std::move(text), std::nullopt, {}}};
    result.backendUsed = ParakeetImpl::displayName;
    result.wallTimeSeconds = secondsBetween(start, now_());
    return result;
}

}  // namespace corvane
