#pragma once
// The models as the screens show them: the one download in progress (or failed), and the models
// whose weights are on disk.

#include <optional>
#include <unordered_set>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"

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

    const std::optional<ModelDownloadProgress>& modelDownloadProgress() const {
        return modelDownloadProgress_;
    }
    const std::unordered_set<ModelIdentifier>& installedModelIDs() const {
        return installedModelIDs_;
    }
    // A download is under way and has not failed.
    bool isDownloading() const {
        return modelDownloadProgress_ && std::holds_alternative<ModelDownloadProgress::Downloading>(
                                             modelDownloadProgress_->phase);
    }

  private:
    ModelChanges& changes_;
    std::optional<ModelDownloadProgress> modelDownloadProgress_;
    std::unordered_set<ModelIdentifier> installedModelIDs_;
};

}  // namespace corvane
