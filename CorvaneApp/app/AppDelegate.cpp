#include "CorvaneApp/app/AppDelegate.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <mutex>

#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/eligibility/SystemMeetingProbe.h"
#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/ClaimMaterialiser.h"
#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/models/WhisperModelFile.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Paths.h"
#include "CorvaneApp/worker/PerformanceMetadata.h"

namespace corvane {
namespace {

// The bytes of the regular files under `directory`; throws when it cannot be read.
std::uint64_t directoryBytes(const std::filesystem::path& directory) {
    std::uint64_t total = 0;
    if (!std::filesystem::exists(directory)) return 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory)) {
        if (entry.is_regular_file()) total += entry.file_size();
    }
    return total;
}

constexpr double kShardFolderRetrySeconds = 30.0;

}  // namespace

std::shared_ptr<AppDelegate> AppDelegate::create(Executor& mainSequence,
                                                 AppEnvironment environment) {
    return std::make_shared<AppDelegate>(mainSequence, std::move(environment));
}

AppDelegate::AppDelegate(Executor& mainSequence, AppEnvironment environment)
    : main_(mainSequence),
      env_(std::move(environment)),
      gate_(EligibilityGate::create(mainSequence, true)),
      userDefaults_(env_.userDefaultsFile),
      keychain_(std::make_shared<KeychainStore>(env_.credentials)),
      mirror_(std::make_shared<WorkerSettingsMirror>()),
      shardFolder_(ShardAudioFolder::create(env_.tempDirectory)) {
    configStore_ = std::make_unique<WorkerConfigStore>(
        main_, userDefaults_, backgroundRunner_,
        WorkerConfigStore::Options{env_.configPath, env_.secondsSinceLastInput});
    ModelCache::Dependencies cacheDependencies;
    cacheDependencies.rootDirectory = env_.modelRoot;
    cacheDependencies.session = env_.session;
    if (env_.modelRegistry) cacheDependencies.registry = *env_.modelRegistry;
    modelCache_ = std::make_shared<ModelCache>(std::move(cacheDependencies));
    parakeetCache_ =
        std::make_shared<const ParakeetCache>(env_.parakeetDirectory, env_.parakeetRuntime);
    stateReader_ = std::make_unique<RuntimeStateReader>(main_, env_.runtimeStatePath);
    refreshMirror();
    storeSubscription_ =
        configStore_->observe([this](WorkerConfigStore::Field) { refreshMirror(); });
}

AppDelegate::~AppDelegate() {
    terminate();
}

void AppDelegate::refreshMirror() {
    std::lock_guard lock(mirror_->mutex);
    mirror_->settings = configStore_->settings();
    mirror_->quantization = WorkerConfigStore::extractTranscribeQuantization(
        configStore_->currentYAMLForRuntimeReads());
    mirror_->fallbackPercent = configStore_->currentEffectiveResourcePercentFallback();
}

void AppDelegate::watchConfigFile() {
    if (terminated_ || (configWatcher_ && configWatcher_->isWatching())) return;
    configWatcher_.reset();
    configWatcher_ =
        std::make_unique<FileWatcher>(env_.configPath, [weak = weak_from_this(), &main = main_] {
            main.post([weak] {
                if (auto self = weak.lock(); self && !self->terminated_)
                    self->configStore_->followFileChange();
            });
        });
}

void AppDelegate::launch() {
    watchConfigFile();
    sampler_ =
        std::make_shared<ResourceSampler>(main_, env_.samplerProbes, static_cast<int>(::getpid()));
    sampler_->start(2.0);
    stateReader_->startPolling(2.0);
    startModelCacheStreamSubscription();

    WorkerConfigStore* store = configStore_.get();
    IdleEligibilityMonitor::Settings settings{[store] { return store->idleMinutes(); },
                                              [store] { return store->inUseCpuCeiling(); },
                                              [store] { return store->inUseRamCeilingGB(); }};
    IdleEligibilityMonitor::Probes probes{
        [store](Date at) {
            return IdleEligibilityMonitor::scheduleAllowsClaim(store->scheduleGrid(), at);
        },
        [idle = env_.secondsSinceLastInput] { return idle().value_or(std::nan("")); },
        env_.isOnACPower,
        systemNow,
    };
    idleMonitor_ = std::make_unique<IdleEligibilityMonitor>(gate_, main_, std::move(settings),
                                                            std::move(probes), 5.0);
    idleMonitor_->start();
    meetingDetector_ = std::make_unique<MeetingDetector>(
        gate_, main_, [store] { return store->pauseOnMeeting(); }, env_.meetingProbe,
        [this] { return workerBridge_ && workerBridge_->isRunning(); },
        MeetingDetector::Options{5.0, 30.0});
    meetingDetector_->start();

    if (isWorkerEnrolled()) {
        buildAndStartWorkerIfPossible();
    } else {
        log::get("AppDelegate")->info("launch: this computer is not enrolled yet");
    }
}

bool AppDelegate::isWorkerEnrolled() {
    auto config = WorkerConfig::load(env_.configPath);
    if (!config) return false;
    return keychain_->pythonWorkerToken(config->coordinatorURL, config->workerID).has_value();
}

std::vector<ModelIdentifier> AppDelegate::modelsOnDisk(bool runnableOnly) const {
    std::vector<ModelIdentifier> installed;
    for (const auto& spec : modelCache_->registry().all()) {
        if (modelCache_->isCached(spec.identifier)) installed.push_back(spec.identifier);
    }
    if (runnableOnly ? parakeetCache_->canServe() : parakeetCache_->isInstalled()) {
        installed.push_back(parakeetModelIdentifier());
    }
    return installed;
}

std::unordered_set<ModelIdentifier> AppDelegate::installedModelIDs() const {
    const auto models = modelsOnDisk(false);
    return {models.begin(), models.end()};
}

void AppDelegate::setModelDownloadProgress(std::optional<ModelDownloadProgress> progress) {
    if (modelDownloadProgress_ == progress) return;
    modelDownloadProgress_ = std::move(progress);
    observers_.notify();
}

void AppDelegate::buildAndStartWorkerIfPossible() {
    if (terminated_) return;
    if (workerController_) {
        if (modelReady_) workerBridge_->start();
        return;
    }
    auto config = WorkerConfig::load(env_.configPath);
    if (!config) {
        log::get("AppDelegate")->info("buildAndStartWorkerIfPossible: config not yet available");
        return;
    }
    if (!http::resolveAbsolutePath(config->coordinatorURL, "/")) {
        log::get("AppDelegate")
            ->info("buildAndStartWorkerIfPossible: invalid coordinator URL {}",
                   config->coordinatorURL);
        return;
    }
    auto token = keychain_->pythonWorkerToken(config->coordinatorURL, config->workerID);
    if (!token) {
        log::get("AppDelegate")
            ->info("buildAndStartWorkerIfPossible: worker token not yet available for worker_id={}",
                   config->workerID);
        return;
    }
    log::get("AppDelegate")
        ->info("buildAndStartWorkerIfPossible: building worker controller for worker_id={}",
               config->workerID);
    watchConfigFile();
    prepareShardFolder();
    handlerBox_ = handlerBox_ ? handlerBox_ : std::make_shared<HandlerBox>();
    WorkerAssembly assembly{
        env_,
        *config,
        *token,
        mirror_,
        handlerBox_,
        modelCache_,
        parakeetCache_,
        sampler_,
        gate_->isEligibleFunction(),
        [self = weak_from_this()]() -> std::optional<std::vector<ModelIdentifier>> {
            if (auto delegate = self.lock()) return delegate->modelsOnDisk(true);
            return std::nullopt;
        },
        whisperReloadFailed()};
    auto deps = assembly.dependencies();
    deps.http = shardFolder_->clearingAfterReports(std::move(deps.http));
    deps.materialiser = shardFolder_->tracking(std::move(deps.materialiser));
    workerController_ = WorkerController::create(std::move(deps));
    workerBridge_ = WorkerControllerBridge::create(workerController_, gate_, main_);

    // A paused worker lets go of the weights after a while; the next shard loads them again.
    WeightsReleaseTimer::Options release;
    release.delaySeconds = env_.modelReleaseDelaySeconds;
    weightsReleaseTimer_ = std::make_unique<WeightsReleaseTimer>(
        main_,
        [box = handlerBox_] {
            auto handler = box->current();
            return handler ? handler->releaseWeights() : WeightsRelease::nothingHeld;
        },
        [store = configStore_.get()] {
            return WorkerConfigStore::extractKeepModelLoaded(store->currentYAMLForRuntimeReads());
        },
        release);
    auto* gate = gate_.get();
    auto* releaseTimer = weightsReleaseTimer_.get();
    gateSubscription_ = gate_->observe([gate, releaseTimer](EligibilityGate::Property property) {
        if (property == EligibilityGate::Property::isEligible)
            releaseTimer->setPaused(!gate->isEligible());
    });
    releaseTimer->setPaused(!gate_->isEligible());

    observers_.notify();
    restartModelCacheTask();
}

void AppDelegate::prepareShardFolder() {
    try {
        shardFolder_->prepare();
    } catch (const ShardAudioFolder::Unavailable& error) {
        const std::string problem = error.what();
        if (!shardFolderPause_ || shardFolderProblem_ != problem) {
            log::get("AppDelegate")->error("{}", problem);
            if (shardFolderPause_) shardFolderPause_->release();
            shardFolderPause_ = gate_->pause(problem);
            shardFolderProblem_ = problem;
        }
        if (!shardFolderRetryTimer_.active()) {
            shardFolderRetryTimer_ = main_.scheduleRepeating(kShardFolderRetrySeconds, [this] {
                if (!terminated_) prepareShardFolder();
            });
        }
        return;
    }
    shardFolderRetryTimer_.cancel();
    if (shardFolderPause_) {
        log::get("AppDelegate")
            ->info("shard folder {} is ready", shardFolder_->directory().string());
        shardFolderPause_->release();
        shardFolderPause_.reset();
    }
}

// The cache tells of every chunk; a few updates a second are all the screens can show, so a burst
// is read whole and only its last state of the Whisper model goes to the main sequence.
void AppDelegate::startModelCacheStreamSubscription() {
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    Executor& main = main_;
    modelCacheStreamTask_ = Task::start([weak, &main, cache = modelCache_](std::stop_token stop) {
        const ModelIdentifier whisper = whisperModelIdentifier();
        std::mutex pauseMutex;
        std::condition_variable_any pause;
        while (auto change = cache->stateStream().next(stop)) {
            std::optional<ModelCache::State> latest;
            for (; change; change = cache->stateStream().tryNext()) {
                if (change->identifier == whisper) latest = change->state;
            }
            if (latest) {
                main.post([weak, state = *latest] {
                    if (auto self = weak.lock()) self->applyModelCacheState(state);
                });
            }
            std::unique_lock lock(pauseMutex);
            pause.wait_for(lock, stop, std::chrono::milliseconds(150), [] { return false; });
        }
    });
}

// Only the bytes of a download in progress come from here: the start, the failure and the end
// (once the handler has loaded the weights) are told by the model cache task itself, so a report
// that arrives after those changes nothing.
void AppDelegate::applyModelCacheState(const ModelCache::State& state) {
    const auto* downloading = std::get_if<ModelCache::State::Downloading>(&state.value);
    const std::string whisper = modelDisplayName(whisperModelIdentifier());
    if (!downloading || terminated_ || !modelDownloadProgress_ ||
        modelDownloadProgress_->modelDisplayName != whisper ||
        !std::holds_alternative<ModelDownloadProgress::Downloading>(modelDownloadProgress_->phase))
        return;
    setModelDownloadProgress(ModelDownloadProgress{
        whisper,
        ModelDownloadProgress::Downloading{downloading->bytesDownloaded, downloading->totalBytes}});
}

void AppDelegate::restartModelCacheTask() {
    if (!workerBridge_ || terminated_) return;
    auto spec = modelCache_->registry().spec(whisperModelIdentifier());
    if (!spec) {
        log::get("AppDelegate")
            ->error("no ModelSpec for {} \u2014 worker cannot start",
                    whisperModelIdentifier().model);
        return;
    }
    modelRetryTimer_.cancel();
    if (modelCacheTask_) {
        modelCacheTask_->cancel();
        modelCacheTask_.reset();
    }
    auto machine = env_.machine;
    auto options = whisperOptions(env_, mirror_, whisperReloadFailed());
    // The size the catalogue expects, so the row reads "0% · 0 MB / 1.6 GB" before the first byte.
    setModelDownloadProgress(
        ModelDownloadProgress{modelDisplayName(whisperModelIdentifier()),
                              ModelDownloadProgress::Downloading{0, spec->expectedSizeBytes}});

    std::weak_ptr<AppDelegate> weak = weak_from_this();
    Executor& main = main_;
    modelCacheTask_ = Task::start([weak, &main, cache = modelCache_, spec = *spec, machine,
                                   options](std::stop_token stop) {
        auto started = systemNow();
        try {
            log::get("AppDelegate")
                ->info("restartModelCacheTask: ensuring cached model {}", spec.identifier.model);
            bool hit = cache->isCached(spec.identifier);
            auto path = cache->ensureCached(spec, stop);
            log::get("AppDelegate")
                ->info("restartModelCacheTask: model ready at {}", path.string());
            ChipTier tier = currentChipTier(*machine);
            log::get("AppDelegate")
                ->info("restartModelCacheTask: initialising WhisperHandler for chip tier {}",
                       rawValue(tier));
            auto handler = std::make_shared<WhisperHandler>(path.parent_path(), tier, options);
            double seconds = secondsBetween(started, systemNow());
            if (stop.stop_requested()) return;
            main.post([weak, handler, hit, seconds] {
                if (auto self = weak.lock()) self->modelReadyOnMain(handler, hit, seconds);
            });
        } catch (const std::exception& error) {
            if (stop.stop_requested()) return;
            log::get("AppDelegate")->error("Whisper model cache/init failed: {}", error.what());
            main.post([weak, text = std::string(error.what())] {
                if (auto self = weak.lock()) self->modelFailedOnMain(text);
            });
        }
    });
}

std::function<void()> AppDelegate::whisperReloadFailed() {
    return [weak = weak_from_this(), &main = main_] {
        main.post([weak] {
            if (auto self = weak.lock()) self->repairWhisperWeights();
        });
    };
}

// The weights a paused worker released could not be loaded again: the file is gone, or is no
// longer a whole model (a file at the final path counts as complete, so a broken one goes first).
// The cache fetches it anew and a fresh handler takes the place of the one that failed.
void AppDelegate::repairWhisperWeights() {
    if (!workerBridge_ || terminated_) return;
    const auto whisper = whisperModelIdentifier();
    if (modelDownloadProgress_ &&
        modelDownloadProgress_->modelDisplayName == modelDisplayName(whisper) &&
        std::holds_alternative<ModelDownloadProgress::Downloading>(modelDownloadProgress_->phase)) {
        return;  // already on its way
    }
    if (auto file = modelCache_->cachedFileURL(whisper); file && WhisperModelFile::problem(*file)) {
        try {
            modelCache_->remove(whisper);
        } catch (const std::exception& error) {
            log::get("AppDelegate")
                ->error("ModelCache.remove failed for {}: {}", whisper.model, error.what());
        }
    }
    log::get("AppDelegate")
        ->info(
            "repairWhisperWeights: the Whisper weights could not be reloaded; fetching them "
            "again");
    restartModelCacheTask();
}

void AppDelegate::modelReadyOnMain(std::shared_ptr<ModelHandler> handler, bool hit,
                                   double seconds) {
    if (!workerBridge_ || terminated_) return;
    handlerBox_->replace(std::move(handler));
    log::get("AppDelegate")
        ->info(
            "restartModelCacheTask: WhisperHandler initialised; cache_hit={} load_seconds={:f}; "
            "starting worker bridge",
            hit, seconds);
    modelReady_ = true;
    workerBridge_->recordModelLoaded(hit, seconds);
    workerBridge_->start();
    log::get("AppDelegate")->info("restartModelCacheTask: worker bridge started");
    if (modelDownloadProgress_ &&
        modelDownloadProgress_->modelDisplayName == modelDisplayName(whisperModelIdentifier())) {
        modelDownloadProgress_.reset();
    }
    observers_.notify();
}

void AppDelegate::modelFailedOnMain(std::string description) {
    modelReady_ = false;
    if (env_.modelRetrySeconds > 0 && !terminated_) {
        modelRetryTimer_ =
            main_.scheduleOnce(env_.modelRetrySeconds, [this] { requestModelDownloadRetry(); });
    }
    modelDownloadProgress_ =
        ModelDownloadProgress{modelDisplayName(whisperModelIdentifier()),
                              ModelDownloadProgress::Failed{std::move(description)}};
    observers_.notify();
}

void AppDelegate::requestModelDownloadRetry() {
    if (workerController_) {
        restartModelCacheTask();
    } else {
        buildAndStartWorkerIfPossible();
    }
}

void AppDelegate::startParakeetInstallTask() {
    if (terminated_) return;
    const std::string parakeet = modelDisplayName(parakeetModelIdentifier());
    if (modelDownloadProgress_ && modelDownloadProgress_->modelDisplayName != parakeet &&
        !std::holds_alternative<ModelDownloadProgress::Failed>(modelDownloadProgress_->phase)) {
        const std::string other = modelDownloadProgress_->modelDisplayName;
        log::get("AppDelegate")
            ->info("startParakeetInstallTask: blocked \u2014 {} is already downloading", other);
        setModelDownloadProgress(ModelDownloadProgress{
            parakeet, ModelDownloadProgress::Failed{"Wait for " + other +
                                                    " to finish downloading, then try again."}});
        return;
    }
    cancelParakeetInstallTask();
    // The catalogue's size: an estimate fixed here, never read from the server.
    const std::uint64_t total = catalogueEntry(parakeetModelIdentifier())->downloadSizeBytes;
    setModelDownloadProgress(
        ModelDownloadProgress{parakeet, ModelDownloadProgress::Downloading{0, total}});

    // Reports go through the main sequence and count only while their task is the current one
    // (not cancelled, replaced or torn down since).
    std::weak_ptr<AppDelegate> weak = weak_from_this();
    Executor& main = main_;
    const std::uint64_t generation = parakeetInstallGeneration_;
    auto deliver = [weak, &main, generation](std::function<void(AppDelegate&)> apply) {
        main.post([weak, generation, apply = std::move(apply)] {
            auto self = weak.lock();
            if (self && self->parakeetInstallTask_ &&
                self->parakeetInstallGeneration_ == generation)
                apply(*self);
        });
    };
    parakeetInstallTask_ =
        Task::start([deliver, cache = parakeetCache_, parakeet, total](std::stop_token stop) {
            auto progress = [&](double fraction) {
                const auto bytes =
                    static_cast<std::uint64_t>(std::clamp(fraction, 0.0, 1.0) * double(total));
                deliver([parakeet, bytes, total](AppDelegate& delegate) {
                    delegate.setModelDownloadProgress(ModelDownloadProgress{
                        parakeet, ModelDownloadProgress::Downloading{bytes, total}});
                });
            };
            try {
                log::get("AppDelegate")
                    ->info("startParakeetInstallTask: downloading Parakeet TDT v2 weights");
                cache->install(progress, stop);
                if (stop.stop_requested()) return;
                log::get("AppDelegate")->info("startParakeetInstallTask: Parakeet weights ready");
                deliver([](AppDelegate& delegate) {
                    delegate.parakeetInstallTask_.reset();
                    delegate.modelDownloadProgress_.reset();
                    delegate.observers_.notify();  // the installed set changed too
                });
            } catch (const std::exception& error) {
                if (stop.stop_requested()) return;
                log::get("AppDelegate")->error("startParakeetInstallTask failed: {}", error.what());
                deliver([parakeet, text = std::string(error.what())](AppDelegate& delegate) {
                    delegate.parakeetInstallTask_.reset();
                    delegate.setModelDownloadProgress(
                        ModelDownloadProgress{parakeet, ModelDownloadProgress::Failed{text}});
                });
            }
        });
}

void AppDelegate::cancelParakeetInstallTask() {
    ++parakeetInstallGeneration_;
    if (parakeetInstallTask_) {
        parakeetInstallTask_->cancel();
        parakeetInstallTask_.reset();  // waits for the download to give up
    }
}

void AppDelegate::requestModelInstall(const ModelIdentifier& identifier) {
    if (identifier == whisperModelIdentifier()) {
        restartModelCacheTask();
    } else if (identifier == parakeetModelIdentifier()) {
        startParakeetInstallTask();
    }
}

std::uint64_t AppDelegate::requestModelRemove(const ModelIdentifier& identifier) {
    std::uint64_t freed = 0;
    if (identifier == parakeetModelIdentifier()) {
        cancelParakeetInstallTask();
        if (modelDownloadProgress_ &&
            modelDownloadProgress_->modelDisplayName == modelDisplayName(identifier)) {
            modelDownloadProgress_.reset();
        }
        const auto& directory = parakeetCache_->directory();
        try {
            freed = directoryBytes(directory);
            parakeetCache_->remove();
            log::get("AppDelegate")
                ->info("removeParakeetCache: removed {} bytes at {}", freed, directory.string());
        } catch (const std::exception& error) {
            log::get("AppDelegate")->error("removeParakeetCache failed: {}", error.what());
            freed = 0;
        }
    } else {
        try {
            freed = modelCache_->remove(identifier);
        } catch (const std::exception& error) {
            log::get("AppDelegate")
                ->error("ModelCache.remove failed for {}: {}", identifier.model, error.what());
            return 0;
        }
    }
    observers_.notify();
    return freed;
}

void AppDelegate::teardownWorker() {
    modelRetryTimer_.cancel();
    gateSubscription_.reset();
    weightsReleaseTimer_.reset();
    cancelParakeetInstallTask();
    if (modelCacheTask_) {
        modelCacheTask_->cancel();
        modelCacheTask_.reset();  // waits for a model load in progress to give up
    }
    shardFolderRetryTimer_.cancel();
    shardFolderPause_.reset();  // the gate's holds are all cleared below
    if (workerBridge_) {
        workerBridge_->stop();
        // Every handler has returned: what a late download made is left over now.
        try {
            shardFolder_->prepare();
        } catch (const ShardAudioFolder::Unavailable&) {
        }
    }
    workerController_.reset();
    workerBridge_.reset();
    handlerBox_.reset();
    modelReady_ = false;
    modelDownloadProgress_.reset();
    gate_->clearAllPauses();
    observers_.notify();
}

void AppDelegate::terminate() {
    if (terminated_) return;
    terminated_ = true;
    modelCacheStreamTask_.reset();  // cancels and joins
    configWatcher_.reset();
    if (meetingDetector_) meetingDetector_->stop();
    meetingDetector_.reset();
    idleMonitor_.reset();
    if (sampler_) sampler_->stop();
    teardownWorker();
    if (configStore_->hasPendingSave()) {
        configStore_->cancelPendingSave();
        configStore_->saveNow();
    }
}

}  // namespace corvane
