#include "CorvaneApp/app/WorkerAssembly.h"

#include <cmath>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"
#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WhisperReloadAdmission.h"
#include "CorvaneApp/worker/PerformanceMetadata.h"

namespace corvane {

WorkerController::Dependencies WorkerAssembly::dependencies() const {
    std::optional<std::string> quantization;
    {
        std::lock_guard lock(settings->mutex);
        quantization = settings->quantization;
    }
    auto machine = environment.machine;
    auto cache = modelCache;
    auto box = handlerBox;
    CapabilityAdvertiser::Providers providers;
    providers.capabilityProvider = CapabilityAdvertiser::whisperCapabilityProvider(
        quantization.value_or("4bit"),
        [cache] { return cache->isCached(whisperModelIdentifier()); });
    // The processor doesn't change under a running worker: read once per worker, not every poll,
    // so a machine of no known tier says so once instead of at each poll.
    providers.chipTierProvider = [tier = std::string(rawValue(currentChipTier(*machine)))] {
        return tier;
    };
    providers.ramGBProvider = [machine] {
        return CapabilityAdvertiser::physicalRAMGB(machine->physicalMemoryBytes().value_or(0));
    };
    providers.buildIdentityProvider = [version =
                                           environment.version]() -> std::optional<std::string> {
        return "corvane/" + version;
    };
    providers.installedModelsProvider = installedModels;
    providers.activeModelProvider = [box]() -> std::optional<ModelIdentifier> {
        if (auto handler = box->current()) return handler->modelIdentifier();
        return std::nullopt;
    };

    auto mirror = settings;
    PerformanceMetadataSources metadata;
    metadata.runtimeEffectivePercent = [path = environment.runtimeStatePath] {
        return readRuntimeEffectiveResourcePercent(path);
    };
    metadata.fallbackPercent = [mirror] {
        std::lock_guard lock(mirror->mutex);
        return mirror->fallbackPercent;
    };
    metadata.awayCpuCeiling = [mirror] {
        std::lock_guard lock(mirror->mutex);
        return mirror->settings.awayCpuCeiling;
    };
    metadata.quantization = [mirror] {
        std::lock_guard lock(mirror->mutex);
        return mirror->quantization;
    };
    metadata.activeProcessorCount = [machine] { return machine->logicalCoreCount(); };
    metadata.chip = [machine]() -> std::optional<std::string> { return machine->cpuBrandString(); };
    metadata.physicalMemoryBytes = [machine] { return machine->physicalMemoryBytes(); };

    WorkerController::Dependencies deps;
    deps.http = std::make_shared<WorkerHTTPClient>(config.coordinatorURL, token, config.workerID,
                                                   environment.version, environment.session);
    deps.capabilities = std::make_shared<CapabilityAdvertiser>(std::move(providers));
    deps.handlerLookup = [box](const ModelIdentifier&) { return box->current(); };
    deps.materialiser = [materialiser = std::make_shared<ClaimMaterialiser>(
                             environment.session, environment.tempDirectory)](
                            const ShardClaim& claim, std::stop_token stop) {
        return materialiser->materialise(claim, stop);
    };
    deps.isEligible = isEligible;
    deps.strategyHolder = std::make_shared<StrategySuggestionHolder>();
    deps.sleepProvider = std::make_shared<TaskSleepProvider>();
    deps.buildIdentity = "corvane/" + environment.version;
    // The sampler keeps its samples under its own lock, so the worker's threads read it directly.
    deps.resourceAggregator = [sampler = sampler](Date since) -> std::optional<ResourceAggregate> {
        if (auto s = sampler.lock()) return s->aggregateSince(since);
        return std::nullopt;
    };
    deps.performanceMetadataProvider = makePerformanceMetadataProvider(std::move(metadata));
    deps.handlerLoader = HandlerLoader({box,
                                        modelCache,
                                        [machine] { return currentChipTier(*machine); },
                                        whisperOptions(environment, settings, whisperReloadFailed),
                                        parakeetCache,
                                        {}});
    return deps;
}

WhisperHandler::Options whisperOptions(const AppEnvironment& environment,
                                       std::shared_ptr<WorkerSettingsMirror> settings,
                                       std::function<void()> reloadFailed) {
    auto machine = environment.machine;
    WhisperHandler::Options options;
    // Weights released while paused come back only if the machine has room for the real model.
    options.impl.admitReload = WhisperReloadAdmission{
        [settings] {
            std::lock_guard lock(settings->mutex);
            return WhisperReloadAdmission::Settings{settings->settings.idleMinutes,
                                                    settings->settings.inUseRamCeilingGB,
                                                    settings->settings.awayRamCeilingGB};
        },
        environment.secondsSinceLastInput,
        [] { return MemoryAdmissionProbes::machineRAMUsedGB(); }};
    options.impl.reloadFailed = std::move(reloadFailed);
    options.impl.threadInputs.settings = [settings] {
        std::lock_guard lock(settings->mutex);
        return WhisperThreadInputs::Settings{settings->settings.idleMinutes,
                                             settings->settings.inUseCpuCeiling,
                                             settings->settings.awayCpuCeiling};
    };
    options.impl.threadInputs.secondsSinceLastInput = environment.secondsSinceLastInput;
    options.impl.threadInputs.runtimeEffectivePercent =
        [path = environment.runtimeStatePath]() -> std::optional<std::int64_t> {
        auto percent = readRuntimeEffectiveResourcePercent(path);
        if (!percent) return std::nullopt;
        return static_cast<std::int64_t>(std::llround(*percent));
    };
    options.impl.threadInputs.activeProcessorCount = [machine] {
        return static_cast<std::int64_t>(machine->logicalCoreCount());
    };
    return options;
}

}  // namespace corvane
