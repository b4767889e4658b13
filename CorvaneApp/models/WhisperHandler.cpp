#include "CorvaneApp/models/WhisperHandler.h"

#include <exception>
#include <system_error>

#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

const ModelCatalogueEntry& catalogued() {
    static const ModelCatalogueEntry entry = *catalogueEntry(whisperModelIdentifier());
    return entry;
}

}  // namespace

ModelIdentifier WhisperHandler::identifier() {
    return whisperModelIdentifier();
}
HardwareRequirements WhisperHandler::requirements() {
    return catalogued().requirements;
}
std::uint64_t WhisperHandler::downloadSizeBytes() {
    return catalogued().downloadSizeBytes;
}

WhisperHandler::WhisperHandler(const std::filesystem::path& modelDirectory, ChipTier,
                               Options options)
    : SpeechHandler("WhisperHandler", WhisperImpl::displayName,
                    {std::move(options.decode), std::move(options.now)}) {
    const std::filesystem::path weights = modelDirectory / WhisperImpl::defaultModelFilename;
    std::error_code error;
    if (!std::filesystem::exists(weights, error)) {
        log::get("WhisperHandler")->error("Whisper weights missing at {}", weights.string());
        throw ModelError(ModelError::ModelNotInstalled{});
    }
    impl_ = std::make_unique<WhisperImpl>(weights, std::move(options.impl));
}

JobResult WhisperHandler::handle(const ClaimedJob& job, const StageObserver& stageObserver,
                                 std::stop_token stop) {
    return transcribeJob(job, stageObserver, [&](const std::vector<float>& pcm) {
        return impl_->transcribe(pcm, stop);
    });
}

}  // namespace corvane
