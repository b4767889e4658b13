#include "CorvaneApp/demo/DemoSession.h"

#include <unistd.h>

#include <chrono>

#include "CorvaneApp/demo/DemoShardProgress.h"
#include "CorvaneApp/demo/DemoStatusSource.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

DemoSession::DemoSession(Executor& mainSequence, Options options)
    : main_(mainSequence),
      options_(std::move(options)),
      gate_(EligibilityGate::create(mainSequence, true)),
      provider_(std::make_shared<const DummyDataProvider>(options_.referenceDate)),
      download_(mainSequence, [this](const auto& progress, const auto& installed) {
          applyDownload(progress, installed);
      }) {
    if (!options_.sessionElapsed) {
        options_.sessionElapsed = [start = std::chrono::steady_clock::now()] {
            return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        };
    }
    // No file behind the store: the demo shows the default settings and keeps changes in memory.
    configStore_ = std::make_unique<WorkerConfigStore>(
        main_, userDefaults_, runner_,
        WorkerConfigStore::Options{{}, [] { return std::optional<double>(0.0); }, DataMode::dummy});
    const auto machine = DummyDataProvider::machine(options_.version);
    api_ = std::make_shared<DemoCoordinatorAPI>(provider_, machine.workerID);

    AppModel::Dependencies deps;
    deps.eligibilityGate = gate_;
    deps.enrollment.coordinatorAPIFactory =
        [this]() -> std::shared_ptr<const CoordinatorAPIProtocol> {
        return signedOut_ ? nullptr : api_;
    };
    deps.enrollment.clear = [this] { signedOut_ = true; };
    deps.enrollment.signOutLine = "signOut: clearing dummy session state only";
    deps.enrollment.signOutCompleteLine.reset();
    deps.samplerSnapshot = [provider = provider_] { return provider->resourceHistory(); };
    deps.startBackgroundTasks = options_.startBackgroundTasks;
    deps.buildMachineInfo = [machine] { return machine; };
    deps.appVersion = options_.version;
    deps.statusSource = std::make_shared<DemoStatusSource>();
    deps.backgroundRunner = std::make_shared<InlineBackgroundRunner>();
    deps.now = options_.now;
    // A sample disk, so that every computer shows the same figures.
    deps.volumeInfo = [] { return std::optional<VolumeInfo>(VolumeInfo{465.6, 171.2}); };
    // The sample account is always up to date.
    *publishedVersion_ = options_.version;
    deps.fetchAppVersion = [version = publishedVersion_](std::stop_token) {
        return AppVersion{*version, std::nullopt, {}, std::nullopt};
    };
    model_ = std::make_unique<AppModel>(main_, std::move(deps));
    model_->setCurrentDateOverride(options_.referenceDate);  // the demo keeps its own day
    model_->setWorkerSnapshotSource([this] { return workerSnapshot(); });

    AppModel::Requests requests;
    const auto whisper = whisperModelIdentifier();
    requests.requestModelDownloadRetry = [this, whisper] { download_.start(whisper); };
    requests.requestModelInstall = [this](const ModelIdentifier& identifier) {
        if (catalogueEntry(identifier)) download_.start(identifier);
    };
    requests.requestModelRemove = [this](const ModelIdentifier& identifier) {
        return download_.remove(identifier);
    };
    requests.requestModelCacheReset = [this] {
        for (const auto& identifier : std::unordered_set(download_.installed()))
            download_.remove(identifier);
    };
    model_->setRequests(std::move(requests));
    if (!options_.simulateModelDownload) download_.markInstalled(whisper);

    NotificationBridge::Dependencies notificationDeps;
    notificationDeps.log = std::make_shared<NotificationEventLog>(
        options_.notificationLog.value_or(NotificationEventLog::defaultOptions()));
    notificationDeps.dataMode = DataMode::dummy;
    notificationDeps.now = options_.now;
    notifications_ = std::make_unique<NotificationBridge>(main_, *model_, userDefaults_,
                                                          std::move(notificationDeps));
    notifications_->setDeliverer(std::make_shared<SilentNotificationDeliverer>());
}

DemoSession::~DemoSession() {
    terminate();
    notifications_.reset();
}

void DemoSession::launch() {
    if (options_.simulateModelDownload) download_.start(whisperModelIdentifier());
    model_->refreshLocalState(false);
}

void DemoSession::terminate() {
    configStore_->cancelPendingSave();
}

void DemoSession::uninstall(std::function<void(UninstallReport)> done) {
    model_->signOut();
    UninstallReport report;
    report.sampleSession = true;
    done(std::move(report));
}

void DemoSession::resetToFirstLaunchState() {
    auto log = log::get("AppModel");
    log->info(
        "resetToFirstLaunchState: clearing keychain, config.yaml, model cache, first-run "
        "UserDefaults, dummy session state");
    // The sample session has no keychain item or config file: its enrolment is the flag that
    // the sign-out below clears.
    if (const auto& reset = model_->requests().requestModelCacheReset) reset();
    for (const auto& key : userDefaults_.keys()) {
        if (key.starts_with("cvn.") || key.starts_with("notify.")) userDefaults_.remove(key);
    }
    launchesAtLogin_ = false;
    model_->signOut();
    log->info("resetToFirstLaunchState complete — app is ready for quit/relaunch");
}

void DemoSession::enroll() {
    signedOut_ = false;
    model_->didCompleteOnboarding();
}

OnboardingMachineFacts DemoSession::onboardingMachine(const std::string& version) {
    const MachineInfo machine = DummyDataProvider::machine(version);
    OnboardingMachineFacts facts;
    facts.workerID = machine.workerID;
    facts.computerName = machine.name;
    // The brand a 12-core x86-64 processor reports, as the sample's machine has.
    facts.chipDescription = "AMD Ryzen 9 5900X 12-Core Processor";
    facts.physicalMemoryBytes = std::uint64_t(machine.totalRAM_GB) << 30;
    facts.buildIdentity = version;
    return facts;
}

std::unique_ptr<OnboardingViewModel> DemoSession::makeOnboarding(std::function<void()> onFinish) {
    OnboardingViewModel::Dependencies deps;
    deps.mainSequence = &main_;
    // The sample answers at once; the answer still lands on the main sequence as a real one does.
    deps.backgroundRunner = std::make_shared<InlineBackgroundRunner>();
    deps.registrationClient = registration_;
    deps.credentialStore = credentials_;
    deps.machine = onboardingMachine(options_.version);
    deps.onFinish = std::move(onFinish);
    deps.now = options_.now;
    deps.writeConfig = [text = configText_](const WorkerConfigWriter& writer) {
        *text = writer.buildYAML(*text);
    };
    return std::make_unique<OnboardingViewModel>(std::move(deps));
}

void DemoSession::setSessionElapsedOverride(std::optional<double> seconds) {
    elapsedOverride_ = seconds;
    model_->refreshStatus(true);
}

std::optional<WorkerControllerSnapshot> DemoSession::workerSnapshot() const {
    if (signedOut_) return std::nullopt;
    WorkerControllerSnapshot snapshot;
    snapshot.isRunning = true;
    if (auto shard = liveShardProgress(elapsedOverride_.value_or(options_.sessionElapsed()))) {
        snapshot.currentJobID = shard->jobID;
        snapshot.currentShardID = shard->shardID;
        snapshot.currentShardStartedAt = addSeconds(options_.now(), -shard->elapsedSeconds);
        snapshot.currentShardExpectedSeconds = shard->expectedDurationSeconds;
    }
    return snapshot;
}

void DemoSession::applyDownload(const std::optional<ModelDownloadProgress>& progress,
                                const std::unordered_set<ModelIdentifier>& installed) {
    if (!model_) return;
    ModelChanges::Batch batch(model_->changes());
    model_->modelInstall().setModelDownloadProgress(progress);
    model_->modelInstall().setInstalledModelIDs(installed);
    model_->refreshStatus(true);
}

WorkerStatusRecord DemoSession::statusRecord() {
    WorkerStatusRecord record;
    model_->refreshStatus(true);
    record.presentation = model_->presentation();
    if (auto snapshot = workerSnapshot()) {
        record.jobID = snapshot->currentJobID;
        record.shardID = snapshot->currentShardID;
    }
    record.pid = long(::getpid());
    return record;
}

}  // namespace corvane
