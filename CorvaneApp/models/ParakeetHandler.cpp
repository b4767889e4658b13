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
    return transcribeSpeechJob("ParakeetHandler", ParakeetImpl::displayName, job, stageObserver, now_, decode_,
                               [&](const std::vector<float>& pcm) { return impl_->transcribe(pcm, stop); });
}

}  // namespace corvane
