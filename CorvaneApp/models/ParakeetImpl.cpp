#include "CorvaneApp/models/ParakeetImpl.h"

#include <stdexcept>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Log.h"
#include "SpeechEngine/AsrModels.h"
#include "SpeechEngine/TdtDecoderState.h"

namespace corvane {

ParakeetImpl::ParakeetImpl(std::filesystem::path modelDirectory,
                           std::shared_ptr<const ParakeetRuntime> runtime)
    : modelDirectory_(std::move(modelDirectory)),
      runtime_(std::move(runtime)),
      log_(log::get("ParakeetHandler")) {
    if (!runtime_) throw std::invalid_argument("ParakeetImpl needs a runtime");
    if (!speech::AsrModels::modelsExist(modelDirectory_, speech::AsrModelVersion::v2)) {
        log_->error("Parakeet weights missing at {}", modelDirectory_.string());
        throw ModelError(ModelError::ModelNotInstalled{});
    }
}

std::shared_ptr<speech::AsrManager> ParakeetImpl::loadedManager(std::stop_token stop) {
    std::lock_guard lock(loadMutex_);
    if (managerCache_) return managerCache_;
    auto models = speech::AsrModels::load(runtime_->downloads(), modelDirectory_, std::nullopt,
                                          speech::AsrModelVersion::v2, {}, stop);
    managerCache_ =
        std::make_shared<speech::AsrManager>(speech::ASRConfig::defaultConfig(), std::move(models));
    return managerCache_;
}

std::string ParakeetImpl::transcribe(std::span<const float> pcm, std::stop_token stop) {
    auto manager = loadedManager(stop);
    speech::TdtDecoderState state(2);  // fresh for each shard
    return manager->transcribe(pcm, state, std::nullopt, stop).text;
}

ModelOutput ParakeetImpl::run(const ModelInput& input) {
    return ModelOutput{
        TranscriptResult{transcribe(audioSamplesAt16kHz(input, "ParakeetImpl")), std::nullopt, {}}};
}

}  // namespace corvane
