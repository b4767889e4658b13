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
    return transcribeSpeechJob("WhisperHandler", WhisperImpl::displayName, job, stageObserver, now_, decode_,
                               [&](const std::vector<float>& pcm) { return impl_->transcribe(pcm, stop); });
}

}  // namespace corvane
