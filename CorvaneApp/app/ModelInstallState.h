#pragma once
// The models as the screens show them: the one download in progress (or failed), the models
// whose weights are on disk, whether this build can run Parakeet at all, and the space on the
// volume that holds them.

#include <optional>
#include <unordered_set>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"
#include "CorvaneApp/platform/VolumeInfo.h"

namespace corvane {

class ModelInstallState {
  public:
    explicit ModelInstallState(ModelChanges& changes) : changes_(changes) {}
    ModelInstallState(const ModelInstallState&) = delete;
    ModelInstallState& operator=(const ModelInstallState&) = delete;

    void setModelDownloadProgress(std::optional<ModelDownloadProgress> progress) {
        changes_.assign(modelDownloadProgress_, std::move(progress), ModelPart::models);
    }
    void setInstalledModelIDs(std::unordered_set<ModelIdentifier> identifiers) {
        changes_.assign(installedModelIDs_, std::move(identifiers), ModelPart::models);
    }
    void setParakeetRunnable(bool runnable) {
        changes_.assign(parakeetRunnable_, runnable, ModelPart::models);
    }
    void setVolume(std::optional<VolumeInfo> volume) {
        changes_.assign(volume_, std::move(volume), ModelPart::models);
    }

    const std::optional<ModelDownloadProgress>& modelDownloadProgress() const {
        return modelDownloadProgress_;
    }
    const std::unordered_set<ModelIdentifier>& installedModelIDs() const {
        return installedModelIDs_;
    }
    // A runtime for Parakeet is built in: only then can an install of it ever serve.
    bool parakeetRunnable() const { return parakeetRunnable_; }
    // The volume of the model weights as last measured; absent before the first measurement or
    // when it could not be read.
    const std::optional<VolumeInfo>& volume() const { return volume_; }
    // A download is under way and has not failed.
    bool isDownloading() const {
        return modelDownloadProgress_ && std::holds_alternative<ModelDownloadProgress::Downloading>(
                                             modelDownloadProgress_->phase);
    }

  private:
    ModelChanges& changes_;
    std::optional<ModelDownloadProgress> modelDownloadProgress_;
    std::unordered_set<ModelIdentifier> installedModelIDs_;
    bool parakeetRunnable_ = false;
    std::optional<VolumeInfo> volume_;
};

}  // namespace corvane
