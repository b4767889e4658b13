#pragma once
// What one worker is built from: the wire client, the capabilities it advertises, the audio
// materialiser, its performance record and the handler loader, out of the application's
// environment and settings. The application adds its own wrappers and builds the controller.

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/AppEnvironment.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerSettings.h"
#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/worker/WorkerController.h"

namespace corvane {

// The settings the worker side reads from its own threads, copied from the store on each change.
struct WorkerSettingsMirror {
    std::mutex mutex;
    WorkerSettings settings;                  // guarded by mutex
    std::optional<std::string> quantization;  // guarded by mutex
    int fallbackPercent = 100;                // guarded by mutex
};

struct WorkerAssembly {
    const AppEnvironment& environment;
    WorkerConfig config;
    std::string token;
    std::shared_ptr<WorkerSettingsMirror> settings;
    std::shared_ptr<HandlerBox> handlerBox;
    std::shared_ptr<ModelCache> modelCache;
    std::shared_ptr<const ParakeetCache> parakeetCache;
    std::weak_ptr<ResourceSampler> sampler;
    std::function<bool()> isEligible;
    // The models the worker may advertise, read at every poll so a model installed later counts.
    std::function<std::optional<std::vector<ModelIdentifier>>()> installedModels;
    // Told, from a shard's thread, when Whisper weights released while paused could not be loaded
    // again (see WhisperImpl::Options::reloadFailed).
    std::function<void()> whisperReloadFailed;

    WorkerController::Dependencies dependencies() const;
};

// How Whisper chooses its threads (the owner's limits, idleness and the runtime-state file) and
// when it may load weights it released again (memory admission with the real model's figures).
WhisperHandler::Options whisperOptions(const AppEnvironment& environment,
                                       std::shared_ptr<WorkerSettingsMirror> settings,
                                       std::function<void()> reloadFailed);

}  // namespace corvane
