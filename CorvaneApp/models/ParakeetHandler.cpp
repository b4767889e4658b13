#include "CorvaneApp/models/ParakeetHandler.h"

#include "CorvaneApp/models/ModelCatalogue.h"

namespace corvane {
namespace {

const ModelCatalogueEntry& catalogued() {
    static const ModelCatalogueEntry entry = *catalogueEntry(parakeetModelIdentifier());
    return entry;
}

}  // namespace

ModelIdentifier ParakeetHandler::identifier() {
    return parakeetModelIdentifier();
}
HardwareRequirements ParakeetHandler::requirements() {
    return catalogued().requirements;
}
std::uint64_t ParakeetHandler::downloadSizeBytes() {
    return catalogued().downloadSizeBytes;
}

ParakeetHandler::ParakeetHandler(const std::filesystem::path& modelDirectory, ChipTier,
                                 std::shared_ptr<const ParakeetRuntime> runtime, Options options)
    : SpeechHandler("ParakeetHandler", ParakeetImpl::displayName, std::move(options)),
      impl_(std::make_unique<ParakeetImpl>(modelDirectory, std::move(runtime))) {}

JobResult ParakeetHandler::handle(const ClaimedJob& job, const StageObserver& stageObserver,
                                  std::stop_token stop) {
    return transcribeJob(job, stageObserver, [&](const std::vector<float>& pcm) {
        return impl_->transcribe(pcm, stop);
    });
}

}  // namespace corvane
