#include "CorvaneApp/models/ParakeetCache.h"

#include <algorithm>

#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ParakeetCacheError.h"
#include "SpeechEngine/AsrModels.h"

namespace corvane {

std::filesystem::path ParakeetCache::defaultDirectory() {
    return ModelCache::defaultRootDirectory() / "parakeet-tdt-0.6b-v2";
}

ParakeetCache::ParakeetCache(std::filesystem::path directory,
                             std::shared_ptr<const ParakeetRuntime> runtime)
    : directory_(std::move(directory)), runtime_(std::move(runtime)) {}

bool ParakeetCache::isInstalled() const {
    return speech::AsrModels::modelsExist(directory_, speech::AsrModelVersion::v2);
}

void ParakeetCache::install(const std::function<void(double)>& progress,
                            std::stop_token stop) const {
    if (!runtime_) throw ParakeetCacheError(ParakeetCacheError::Kind::noRuntime);
    speech::DownloadProgressHandler clamped;
    if (progress) {
        clamped = [progress](const speech::DownloadProgress& step) {
            progress(std::clamp(step.fractionCompleted, 0.0, 1.0));
        };
    }
    speech::AsrModels::download(runtime_->downloads(), directory_, false,
                                speech::AsrModelVersion::v2, clamped, stop);
    if (!isInstalled())
        throw ParakeetCacheError(ParakeetCacheError::Kind::weightsMissingAfterDownload);
}

void ParakeetCache::remove() const {
    if (std::filesystem::exists(directory_)) std::filesystem::remove_all(directory_);
}

}  // namespace corvane
