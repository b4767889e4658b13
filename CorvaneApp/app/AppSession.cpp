#include "CorvaneApp/app/AppSession.h"

#include <unistd.h>

#include "CorvaneApp/app/OnboardingSystemCredentialStore.h"
#include "CorvaneApp/app/PayoutPrefsHooksFactory.h"
#include "CorvaneApp/app/SignOutCommand.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/eligibility/HeavyAppSystemSampler.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
AppSession::AppSession(Executor& mainSequence, AppEnvironment environment)
    : main_(mainSequence),
      delegate_(AppDelegate::create(mainSequence, std::move(environment))),
      loginItems_(LoginItemManager::systemPaths(delegate_->environment().program)) {}

AppSession::~AppSession() {
    alive_.reset();
    uninstallJob_.reset();
    terminate();
}

std::shared_ptr<const CoordinatorAPI> AppSession::coordinatorAPI(const AppEnvironment& environment,
                                                                 KeychainStore& keychain) {
    auto config = WorkerConfig::load(environment.configPath);
    if (!config) return nullptr;
    auto token = keychain.pythonWorkerToken(config->coordinatorURL, config->workerID);
    if (!token) return nullptr;
    CoordinatorAPIOptions options;
    return std::make_shared<const CoordinatorAPI>(config->coordinatorURL, *token, config->workerID,
                                                  options);
}

void AppSession::launch() {
    installPayoutPrefsHooks();
    delegate_->launch();
    AppDelegate* delegate = delegate_.get();
    const AppEnvironment& env = delegate->environment();
    AppModel::Dependencies deps;
    deps.eligibilityGate = delegate->eligibilityGate().shared_from_this();
    deps.enrollment.coordinatorAPIFactory = [delegate] {
        return coordinatorAPI(delegate->environment(), delegate->keychain());
    };
    deps.enrollment.clear = [this] { forgetEnrollment(); };
    deps.runtimeState = [delegate]() -> std::optional<std::pair<RuntimeState, Date>> {
        const auto& reader = delegate->stateReader();
        if (!reader.lastReadAt()) return std::nullopt;
        return std::pair{reader.state(), *reader.lastReadAt()};
    };
    deps.samplerSnapshot = [delegate] {
        return delegate->sampler() ? delegate->sampler()->history() : ResourceSampler::Snapshot{};
    };
    deps.sampleNow = [delegate] {
        if (delegate->sampler()) delegate->sampler()->sampleOnce();
    };
    deps.fetchAppVersion = [configPath = env.configPath,
                            session = env.session](std::stop_token stop) {
        auto config = WorkerConfig::load(configPath);
        return CoordinatorAPI::fetchAppVersion(
            config ? config->coordinatorURL : CoordinatorAPI::defaultProductionURL, nullptr, stop);
    };
    deps.buildMachineInfo = [delegate] {
        auto info =
            MachineInfo::current(*delegate->environment().machine, delegate->environment().version);
        if (auto config = WorkerConfig::load(delegate->environment().configPath))
            info.workerID = config->workerID;
        return info;
    };
    deps.heavyAppSampler = HeavyAppDetector::SystemSampler::system();
    deps.pauseOnHeavyApp = [delegate] { return delegate->configStore().pauseOnHeavyApp(); };
    deps.appVersion = env.version;
    model_ = std::make_unique<AppModel>(main_, std::move(deps));

    std::weak_ptr<AppDelegate> weak = delegate_;
    AppModel::Requests requests;
    requests.requestWorkerStart = [weak] {
        if (auto self = weak.lock()) self->buildAndStartWorkerIfPossible();
    };
    requests.requestWorkerStop = [weak] {
        if (auto self = weak.lock()) self->teardownWorker();
    };
    requests.requestModelDownloadRetry = [weak] {
        if (auto self = weak.lock()) self->requestModelDownloadRetry();
    };
    requests.requestModelInstall = [weak](const ModelIdentifier& identifier) {
        if (auto self = weak.lock()) self->requestModelInstall(identifier);
    };
    requests.requestModelRemove = [weak](const ModelIdentifier& identifier) -> std::uint64_t {
        auto self = weak.lock();
        return self ? self->requestModelRemove(identifier) : 0;
    };
    model_->setRequests(std::move(requests));
    model_->setWorkerSnapshotSource([weak]() -> std::optional<WorkerControllerSnapshot> {
        auto self = weak.lock();
        if (!self || !self->workerBridge()) return std::nullopt;
        return self->workerBridge()->snapshot();
    });
    delegateSubscription_ = delegate_->observe([this] { syncModelDownload(); });

    NotificationBridge::Dependencies notificationDeps;
    auto logOptions = NotificationEventLog::defaultOptions();
    if (!env.logDirectory.empty()) {
        logOptions.fileURL = env.logDirectory / "notifications.log";
        logOptions.rotatedFileURL = env.logDirectory / "notifications.1.log";
    }
    notificationDeps.log = std::make_shared<NotificationEventLog>(std::move(logOptions));
    notificationDeps.dataMode = DataMode::real;
    notificationDeps.lastStateReadAt = [delegate] { return delegate->stateReader().lastReadAt(); };
    notifications_ = std::make_unique<NotificationBridge>(main_, *model_, delegate->userDefaults(),
                                                          std::move(notificationDeps));
    // Without a desktop nothing is shown; the desktop gives its notification service instead.
    notifications_->setDeliverer(std::make_shared<SilentNotificationDeliverer>());
    // The model was made before it could hear of the worker; let it ask for it now.
    model_->refreshLocalState(false);
    syncModelDownload();
}

void AppSession::terminate() {
    delegateSubscription_.reset();
    notifications_.reset();
    model_.reset();
    delegate_->terminate();
}

// On each change the delegate announces: the installed set is read from disk only then.
void AppSession::syncModelDownload() {
    if (!model_) return;
    ModelChanges::Batch batch(model_->changes());
    model_->modelInstall().setModelDownloadProgress(delegate_->modelDownloadProgress());
    model_->modelInstall().setInstalledModelIDs(delegate_->installedModelIDs());
    model_->modelInstall().setParakeetRunnable(delegate_->environment().parakeetRuntime != nullptr);
    model_->refreshStatus(true);
}

WorkerStatusPresentation AppSession::refreshedPresentation() {
    if (!model_) return WorkerStatusPresentation::defaultFor(WorkerStatus::offline);
    model_->refreshStatus(true);
    return model_->presentation();
}

std::string AppSession::statusSubtitle() const {
    return model_ ? model_->statusSubtitle()
                  : WorkerStatusPresentation::defaultFor(WorkerStatus::offline).sub;
}

WorkerStatusRecord AppSession::statusRecord() {
    WorkerStatusRecord record;
    record.presentation = refreshedPresentation();
    // As the tray says it: a hold's own reason, not the words for a pause by the owner.
    record.presentation.sub = statusSubtitle();
    if (auto snapshot = model_ ? model_->workerSnapshot() : std::nullopt) {
        record.jobID = snapshot->currentJobID;
        record.shardID = snapshot->currentShardID;
        record.lastError = snapshot->lastError;
    }
    record.pid = long(::getpid());
    return record;
}

std::unique_ptr<OnboardingViewModel> AppSession::makeOnboarding(std::function<void()> onFinish) {
    const AppEnvironment& env = delegate_->environment();
    if (!onboardingFacts_) {
        OnboardingMachineFacts::Sources sources;
        sources.version = env.version;
        onboardingFacts_ = OnboardingMachineFacts::read(*env.machine, sources);
    }
    OnboardingViewModel::Dependencies deps;
    deps.mainSequence = &main_;
    deps.registrationClient = std::make_shared<CoordinatorRegistrationClient>(
        onboardingFacts_->buildIdentity, env.registrationSession);
    // The delegate's own store, so that the worker finds the new token in its cache.
    deps.credentialStore =
        std::make_shared<OnboardingSystemCredentialStore>(delegate_->sharedKeychain());
    deps.configPath = env.configPath;
    deps.machine = *onboardingFacts_;
    deps.flushPendingSettings = [this] {
        WorkerConfigStore& store = configStore();
        if (!store.hasPendingSave()) return;
        store.cancelPendingSave();
        store.saveNow();
    };
    deps.onFinish = std::move(onFinish);
    return std::make_unique<OnboardingViewModel>(std::move(deps));
}

void AppSession::finishOnboarding() {
    if (!model_) return;
    // The store read no file at launch; the owner's choices of onboarding are in one now.
    configStore().reload();
    model_->didCompleteOnboarding();
}

// A unit of the owner's stops before anything else (its worker holds the credentials too), then
// the sign-out stops ours and removes them, then the files go.
void AppSession::uninstall(std::function<void(UninstallReport)> done) {
    auto controller = std::make_shared<UninstallController>(
        UninstallController::systemPaths(delegate_->environment().program),
        UninstallController::systemProbes());
    auto post = [main = &main_, alive = std::weak_ptr<AppSession*>(alive_)](
                    std::function<void(AppSession&)> work) {
        main->post([alive, work = std::move(work)] {
            if (auto self = alive.lock()) work(**self);
        });
    };
    uninstallJob_ = runner_.run([controller, post, done = std::move(done)](std::stop_token) {
        controller->stopServices();
        post([controller, post, done](AppSession& self) {
            if (self.model_) self.model_->signOut();
            self.uninstallJob_ = self.runner_.run([controller, post, done](std::stop_token) {
                auto report = controller->removeFiles();
                post([done, report = std::move(report)](AppSession&) { done(report); });
            });
        });
    });
}

void AppSession::forgetEnrollment() {
    delegate_->configStore().cancelPendingSave();
    removeEnrollment(delegate_->environment().configPath, delegate_->keychain());
    delegate_->configStore().reload();
}

void AppSession::installPayoutPrefsHooks() {
    std::weak_ptr<AppDelegate> weak = delegate_;
    delegate_->configStore().setPayoutPrefsHooks(
        makePayoutPrefsHooks([weak]() -> std::shared_ptr<const CoordinatorAPIProtocol> {
            auto self = weak.lock();
            return self ? coordinatorAPI(self->environment(), self->keychain()) : nullptr;
        }));
}

}  // namespace corvane
