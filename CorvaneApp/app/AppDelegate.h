#pragma once
// The root of the running program: owns every long-lived object, decides at launch whether the
// computer is enrolled, keeps the Whisper weights present, builds and starts the worker once the
// model is ready, and shuts everything down in order. Lives on the main sequence.

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_set>

#include "CorvaneApp/app/AppEnvironment.h"
#include "CorvaneApp/app/ShardAudioFolder.h"
#include "CorvaneApp/app/WorkerAssembly.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/config/CredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"
#include "CorvaneApp/eligibility/MeetingDetector.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/eligibility/RuntimeStateReader.h"
#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/models/MachineProbe.h"
#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "CorvaneApp/models/WeightsReleaseTimer.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/platform/BackgroundRunner.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/FileWatcher.h"
#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/worker/WorkerControllerBridge.h"

namespace corvane {

class AppDelegate : public std::enable_shared_from_this<AppDelegate> {
  public:
    static std::shared_ptr<AppDelegate> create(Executor& mainSequence, AppEnvironment environment);
    AppDelegate(Executor& mainSequence, AppEnvironment environment);  // use create()
    ~AppDelegate();
    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // Starts the sampler, the state polling and the monitors, then the worker when enrolled.
    void launch();
    // Stops everything in order: the worker reports its shards, pending settings are saved.
    void terminate();

    bool isWorkerEnrolled();
    void buildAndStartWorkerIfPossible();
    void restartModelCacheTask();
    void requestModelDownloadRetry();
    // Fetches Parakeet's model set in the background, unless another model is downloading: one
    // download at a time. It is advertised on the next poll once there and runnable.
    void startParakeetInstallTask();
    // The models screen's install and remove; other identifiers do nothing (and free 0 bytes).
    void requestModelInstall(const ModelIdentifier& identifier);
    std::uint64_t requestModelRemove(const ModelIdentifier& identifier);
    void teardownWorker();

    EligibilityGate& eligibilityGate() { return *gate_; }
    WorkerConfigStore& configStore() { return *configStore_; }
    UserDefaults& userDefaults() { return userDefaults_; }
    const std::shared_ptr<WorkerControllerBridge>& workerBridge() const { return workerBridge_; }
    const AppEnvironment& environment() const { return env_; }
    const RuntimeStateReader& stateReader() const { return *stateReader_; }
    const std::shared_ptr<ResourceSampler>& sampler() const {
        return sampler_;
    }  // null before launch()
    KeychainStore& keychain() { return *keychain_; }
    const std::shared_ptr<KeychainStore>& sharedKeychain() const { return keychain_; }
    // The one model download the screens show: the latest to start, fail or finish wins.
    const std::optional<ModelDownloadProgress>& modelDownloadProgress() const {
        return modelDownloadProgress_;
    }
    // Models whose weights are on disk (Parakeet's even where no runtime can run it).
    std::unordered_set<ModelIdentifier> installedModelIDs() const;
    bool modelReady() const { return modelReady_; }
    // The handler the worker runs shards on; null before the first model is ready.
    std::shared_ptr<ModelHandler> currentHandler() const {
        return handlerBox_ ? handlerBox_->current() : nullptr;
    }
    [[nodiscard]] Subscription observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

  private:
    void refreshMirror();
    // config.yaml edited behind the store (by hand, by the daemon) reaches the settings, and with
    // them the screens and the worker's limits, without a restart. Needs the file's folder, so it
    // is tried again once enrolment has made it.
    void watchConfigFile();
    // What the weights on disk allow; with `runnableOnly`, Parakeet only where a runtime can run it
    // (what the worker may advertise).
    std::vector<ModelIdentifier> modelsOnDisk(bool runnableOnly) const;
    void modelReadyOnMain(std::shared_ptr<ModelHandler> handler, bool hit, double seconds);
    void modelFailedOnMain(std::string description);
    void setModelDownloadProgress(std::optional<ModelDownloadProgress> progress);
    void startModelCacheStreamSubscription();
    void applyModelCacheState(const ModelCache::State& state);
    void cancelParakeetInstallTask();
    // What a shard's thread calls when released Whisper weights could not be loaded again: the
    // repair below, on the main sequence.
    std::function<void()> whisperReloadFailed();
    void repairWhisperWeights();
    // Before a worker's first poll: the shard folder made ours and emptied. While that fails, a
    // hold on the gate says why (so no shard is claimed only to fail) and it is tried again.
    void prepareShardFolder();

    Executor& main_;
    AppEnvironment env_;
    std::shared_ptr<EligibilityGate> gate_;
    UserDefaults userDefaults_;
    TaskBackgroundRunner backgroundRunner_;
    std::unique_ptr<WorkerConfigStore> configStore_;
    std::shared_ptr<KeychainStore> keychain_;
    std::shared_ptr<ModelCache> modelCache_;
    std::shared_ptr<const ParakeetCache> parakeetCache_;
    std::unique_ptr<RuntimeStateReader> stateReader_;
    std::shared_ptr<ResourceSampler> sampler_;
    std::unique_ptr<IdleEligibilityMonitor> idleMonitor_;
    std::unique_ptr<MeetingDetector> meetingDetector_;
    std::shared_ptr<WorkerSettingsMirror> mirror_;
    std::shared_ptr<ShardAudioFolder> shardFolder_;
    std::shared_ptr<PauseHandle> shardFolderPause_;
    std::string shardFolderProblem_;  // the reason of shardFolderPause_
    TimerHandle shardFolderRetryTimer_;
    Subscription storeSubscription_;
    std::unique_ptr<FileWatcher> configWatcher_;

    std::shared_ptr<HandlerBox> handlerBox_;
    std::shared_ptr<WorkerController> workerController_;
    std::shared_ptr<WorkerControllerBridge> workerBridge_;
    TaskHandle modelCacheTask_;
    TaskHandle modelCacheStreamTask_;
    TaskHandle parakeetInstallTask_;
    std::uint64_t parakeetInstallGeneration_ = 0;  // reports of older install tasks are dropped
    TimerHandle modelRetryTimer_;
    std::unique_ptr<WeightsReleaseTimer> weightsReleaseTimer_;
    Subscription gateSubscription_;  // tells weightsReleaseTimer_ when the worker is paused
    std::optional<ModelDownloadProgress> modelDownloadProgress_;
    bool modelReady_ = false;
    bool terminated_ = false;
    ObserverList<> observers_;
};

}  // namespace corvane
