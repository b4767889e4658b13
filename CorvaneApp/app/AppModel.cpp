#include "CorvaneApp/app/AppModel.h"

#include <algorithm>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

AppModel::Dependencies withDefaults(AppModel::Dependencies deps) {
    if (!deps.backgroundRunner) deps.backgroundRunner = std::make_shared<TaskBackgroundRunner>();
    if (!deps.sleeper) deps.sleeper = std::make_shared<TaskSleepProvider>();
    if (!deps.now) deps.now = systemNow;
    if (!deps.volumeInfo) deps.volumeInfo = [] { return VolumeInfo::current(); };
    if (!deps.reasonReporter)
        deps.reasonReporter = std::make_shared<UnknownEligibilityReasonReporter>();
    if (!deps.statusSource)
        deps.statusSource = std::make_shared<WorkerStatusTracker>(deps.reasonReporter);
    if (!deps.buildMachineInfo) {
        deps.buildMachineInfo = [version = deps.appVersion] {
            MachineInfo info;
            info.appVersion = version;
            return info;
        };
    }
    return deps;
}

}  // namespace

AppModel::AppModel(Executor& mainSequence, Dependencies dependencies)
    : main_(mainSequence),
      deps_(withDefaults(std::move(dependencies))),
      pause_(mainSequence, changes_,
             PauseControl::Dependencies{deps_.eligibilityGate, deps_.heavyAppSampler,
                                        deps_.pauseOnHeavyApp, deps_.startBackgroundTasks,
                                        [this] { refreshLocalState(false); }}),
      refresher_(mainSequence, deps_.backgroundRunner, deps_.sleeper),
      shouldRunRefreshLoop_(deps_.startBackgroundTasks),
      machine_(deps_.buildMachineInfo()) {
    ModelChanges::Batch batch(changes_);
    if (deps_.startBackgroundTasks) {
        localTimer_ =
            main_.scheduleRepeating(localRefreshSeconds, [this] { refreshLocalState(false); });
        refreshLocalState(false);
        pause_.startHeavyAppDetection();
    } else {
        syncEnrollmentState();
        pause_.syncHeavyAppConfiguration();
        refreshStatus(true);
    }
}

AppModel::~AppModel() {
    alive_.reset();
    volumeJob_.reset();
    localTimer_.cancel();
    refreshTimer_.cancel();
}

void AppModel::setWorkerSnapshotSource(
    std::function<std::optional<WorkerControllerSnapshot>()> source) {
    workerSnapshotSource_ = std::move(source);
}

// --- Local state

void AppModel::refreshLocalState(bool sampleNow) {
    ModelChanges::Batch batch(changes_);
    syncEnrollmentState();
    pause_.syncHeavyAppConfiguration();
    refreshStatus(true);
    if (sampleNow && deps_.sampleNow) deps_.sampleNow();
    if (deps_.samplerSnapshot) resources_.applySamplerSnapshot(deps_.samplerSnapshot());
}

void AppModel::syncEnrollmentState() {
    ModelChanges::Batch batch(changes_);
    const AppPhase old = phase_;
    auto api =
        deps_.enrollment.coordinatorAPIFactory ? deps_.enrollment.coordinatorAPIFactory() : nullptr;
    changes_.assign(phase_, api ? AppPhase::enrolled : AppPhase::notEnrolled, ModelPart::status);
    if (phase_ == AppPhase::notEnrolled && old == AppPhase::enrolled) pause_.reset();
    if (phase_ == AppPhase::enrolled && !api_) {
        api_ = std::move(api);  // kept once made; a later factory result doesn't replace it
        pause_.reset();
        setMachine(deps_.buildMachineInfo());
        if (requests_.requestWorkerStart) requests_.requestWorkerStart();
        if (shouldRunRefreshLoop_) startRefreshLoop();
    }
}

void AppModel::setStatusPresentation(const WorkerStatusPresentation& presentation) {
    changes_.assign(presentation_, presentation, ModelPart::status);
}

WorkerStatusInputs AppModel::statusInputs(bool preservePausedState) const {
    const auto& gate = *deps_.eligibilityGate;
    WorkerStatusInputs inputs;
    inputs.enrolled = phase_ == AppPhase::enrolled;
    inputs.paused = preservePausedState && (pause_.isManuallyPaused() || pause_.gateHoldsPause());
    inputs.modelDownloading = modelInstall_.isDownloading();
    inputs.workerRunning = isWorkerRunning();
    inputs.busy = hasActiveJob() || account_.coordinatorReportsBusy();
    inputs.gateEligible = gate.isEligible();
    inputs.gateReason = gate.reason();
    if (auto state = activeRuntimeState()) inputs.eligibility = state->eligibility;
    return inputs;
}

void AppModel::refreshStatus(bool preservePausedState) {
    if (auto presentation =
            deps_.statusSource->refresh(statusInputs(preservePausedState), deps_.now()))
        setStatusPresentation(*presentation);
}

// --- Pause

bool AppModel::isPauseActionEnabled() const {
    return phase_ == AppPhase::enrolled && pause_.isPauseActionEnabled();
}

void AppModel::togglePause(std::function<void()> startWorker) {
    if (!isPauseActionEnabled()) return;
    ModelChanges::Batch batch(changes_);
    if (pause_.isManuallyPaused()) {
        pause_.resume();
        if (startWorker) {
            startWorker();
        } else if (requests_.requestWorkerStart) {
            requests_.requestWorkerStart();
        }
        // Another pause may still hold: then the words stay "Paused".
        setStatusPresentation(deps_.statusSource->ownerResumed(statusInputs(true)));
        return;
    }
    deps_.statusSource->ownerPaused();
    pause_.pause();
    setStatusPresentation(WorkerStatusPresentation::defaultFor(WorkerStatus::paused));
}

// --- Enrolment

void AppModel::didCompleteOnboarding() {
    ModelChanges::Batch batch(changes_);
    syncEnrollmentState();
    refreshStatus(true);
}

void AppModel::signOut() {
    ModelChanges::Batch batch(changes_);
    log::get("AppModel")->info("{}", deps_.enrollment.signOutLine);
    pause_.reset();
    if (requests_.requestWorkerStop) requests_.requestWorkerStop();
    if (deps_.enrollment.clear) deps_.enrollment.clear();
    setMachine(deps_.buildMachineInfo());
    api_.reset();
    stopRefreshLoop();
    refresher_.cancelRange();
    resetLiveData();
    changes_.assign(phase_, AppPhase::notEnrolled, ModelPart::status);
    setStatusPresentation(WorkerStatusPresentation::defaultFor(WorkerStatus::notEnrolled));
    if (deps_.enrollment.signOutCompleteLine)
        log::get("AppModel")->info("{}", *deps_.enrollment.signOutCompleteLine);
    if (requests_.onSignedOut) requests_.onSignedOut();
}

void AppModel::resetLiveData() {
    account_.reset();
    earnings_.reset();
    resources_.reset();
    setWorkerOverrides(std::nullopt, std::nullopt);
    deps_.statusSource->reset();
}

// --- Account refresh

void AppModel::startRefreshLoop() {
    refreshLoopRunning_ = true;
    refreshFromAPI();
}

void AppModel::stopRefreshLoop() {
    refreshLoopRunning_ = false;
    refreshTimer_.cancel();
    refresher_.cancelRefresh();
}

void AppModel::refreshFromAPIIfStale(double maxAgeSeconds) {
    const auto& last = account_.lastRefreshAt();
    if (last && secondsBetween(*last, currentDate()) < maxAgeSeconds) return;
    refreshFromAPI();
}

void AppModel::refreshFromAPI() {
    ModelChanges::Batch batch(changes_);
    syncEnrollmentState();
    // One refresh at a time: a slow one is not joined by another, and the loop's next turn is
    // counted from its end.
    if (refresher_.isRefreshing()) return;
    refreshTimer_.cancel();
    refresher_.refresh(
        api_, deps_.fetchAppVersion, earnings_.earningsVisibleRange(),
        [this](const AccountRefresher::Outcome& outcome) { finishRefresh(outcome); });
}

void AppModel::finishRefresh(const AccountRefresher::Outcome& outcome) {
    ModelChanges::Batch batch(changes_);
    if (outcome.appVersion) account_.applyLatestAppVersion(*outcome.appVersion, deps_.appVersion);
    if (outcome.signOut) {
        signOut();
        return;
    }
    if (!api_) return;  // signed out while the answers were on their way
    if (outcome.dashboard) account_.applyDashboard(*outcome.dashboard);
    if (outcome.month) {
        earnings_.applyEarningsSnapshot(*outcome.month, EarningsRange::month, true);
        // The rows stand in for the summary only when it failed: applied under it, they would
        // change today's figures twice and report a change when nothing changed.
        if (!outcome.summary)
            earnings_.applyDerivedEarningsSummaryFallback(outcome.month->dailyRows, currentDate());
    }
    if (outcome.visible)
        earnings_.applyEarningsSnapshot(outcome.visible->second, outcome.visible->first, false);
    if (outcome.summary) earnings_.applyEarningsSummary(*outcome.summary);
    if (outcome.topJobs) account_.setTopJobs(*outcome.topJobs);
    if (outcome.succeeded) account_.setLastRefreshAt(currentDate());
    refreshStatus(true);  // the coordinator's "busy" counts at once
    if (refreshLoopRunning_) {
        refreshTimer_ = main_.scheduleOnce(accountRefreshSeconds, [this] { refreshFromAPI(); });
    }
}

// --- Earnings ranges and the histogram

void AppModel::selectEarningsRange(EarningsRange range) {
    const std::uint64_t generation = earnings_.beginEarningsRangeRefresh();
    auto finish = [this, range, generation](std::optional<EarningsRangeSnapshot> snapshot) {
        earnings_.finishEarningsRangeRefresh(generation, range, snapshot);
    };
    if (!api_) {
        finish(std::nullopt);
        return;
    }
    refresher_.loadRange(api_, range, std::move(finish));
}

void AppModel::loadActivityHistogram(
    int days,
    std::function<void(std::optional<ActivityHistogramResponse>, std::optional<std::string>)>
        done) {
    auto api = coordinatorAPI();
    if (!api) {
        done(std::nullopt, "Corvane is not enrolled on this computer.");
        return;
    }
    refresher_.loadHistogram(std::move(api), machine_.workerID, days, std::move(done));
}

std::shared_ptr<const CoordinatorAPIProtocol> AppModel::coordinatorAPI() const {
    if (api_) return api_;
    return deps_.enrollment.coordinatorAPIFactory ? deps_.enrollment.coordinatorAPIFactory()
                                                  : nullptr;
}

void AppModel::refreshAppVersion(std::function<void(bool)> done) {
    if (!deps_.fetchAppVersion) {
        if (done) done(false);
        return;
    }
    refresher_.loadAppVersion(deps_.fetchAppVersion,
                              [this, done = std::move(done)](std::optional<AppVersion> version) {
                                  if (version)
                                      account_.applyLatestAppVersion(*version, deps_.appVersion);
                                  if (done) done(version.has_value());
                              });
}

void AppModel::retryDownload() {
    if (requests_.requestModelDownloadRetry) requests_.requestModelDownloadRetry();
}

void AppModel::refreshVolumeInfo() {
    volumeJob_ = deps_.backgroundRunner->run(
        [read = deps_.volumeInfo, main = &main_,
         alive = std::weak_ptr<AppModel*>(alive_)](std::stop_token stop) {
            auto volume = read();
            if (stop.stop_requested()) return;
            main->post([alive, volume] {
                if (auto self = alive.lock()) (*self)->modelInstall().setVolume(volume);
            });
        });
}

// --- Setters

void AppModel::setMachine(MachineInfo machine) {
    changes_.assign(machine_, std::move(machine), ModelPart::machine);
}

void AppModel::setRequestedPage(std::optional<std::string> page) {
    changes_.assign(requestedPage_, std::move(page), ModelPart::navigation);
}

void AppModel::setWorkerOverrides(std::optional<bool> isWorkerRunning,
                                  std::optional<bool> hasActiveJob) {
    ModelChanges::Batch batch(changes_);
    changes_.assign(isWorkerRunningOverride_, isWorkerRunning, ModelPart::status);
    changes_.assign(hasActiveJobOverride_, hasActiveJob, ModelPart::status);
}

void AppModel::setCurrentDateOverride(std::optional<Date> date) {
    changes_.assign(currentDateOverride_, date, ModelPart::status);
}

// --- Derived values

std::optional<WorkerControllerSnapshot> AppModel::workerSnapshot() const {
    return workerSnapshotSource_ ? workerSnapshotSource_() : std::nullopt;
}

bool AppModel::isWorkerRunning() const {
    if (isWorkerRunningOverride_) return *isWorkerRunningOverride_;
    auto snapshot = workerSnapshot();
    return snapshot && snapshot->isRunning;
}

bool AppModel::hasActiveJob() const {
    if (hasActiveJobOverride_) return *hasActiveJobOverride_;
    auto snapshot = workerSnapshot();
    return snapshot && snapshot->currentJobID.has_value();
}

Date AppModel::currentDate() const {
    return currentDateOverride_.value_or(deps_.now());
}

std::optional<RuntimeState> AppModel::activeRuntimeState() const {
    if (!deps_.runtimeState) return std::nullopt;
    auto reading = deps_.runtimeState();
    if (!reading || secondsBetween(reading->second, deps_.now()) > runtimeStateMaxAgeSeconds)
        return std::nullopt;
    return std::move(reading->first);
}

std::optional<Date> AppModel::lastRuntimeStateReadAt() const {
    if (!deps_.runtimeState) return std::nullopt;
    auto reading = deps_.runtimeState();
    return reading ? std::optional<Date>(reading->second) : std::nullopt;
}

std::optional<LiveShardSnapshot> AppModel::liveShardSnapshot() const {
    if (auto snapshot = workerSnapshot();
        snapshot && (snapshot->currentShardID || snapshot->currentJobID)) {
        LiveShardSnapshot live;
        live.shardID = snapshot->currentShardID.value_or(*snapshot->currentJobID);
        live.jobID = snapshot->currentJobID;
        if (snapshot->currentShardStartedAt) {
            live.elapsedSeconds =
                std::max(secondsBetween(*snapshot->currentShardStartedAt, deps_.now()), 0.0);
        }
        live.expectedSeconds = snapshot->currentShardExpectedSeconds;
        return live;
    }
    auto state = activeRuntimeState();
    if (!state || !(state->currentShardID || state->currentJobID)) return std::nullopt;
    LiveShardSnapshot live;
    live.shardID = state->currentShardID.value_or(state->currentJobID.value_or("active-shard"));
    live.jobID = state->currentJobID;
    if (state->currentShardStartedAt) {
        if (auto started =
                AppModelDateParser::parseCoordinatorTimestamp(*state->currentShardStartedAt)) {
            live.elapsedSeconds = std::max(secondsBetween(*started, deps_.now()), 0.0);
        }
    }
    live.expectedSeconds = state->currentShardExpectedSeconds;
    return live;
}

std::optional<std::string> AppModel::sidebarShardIndicator() const {
    if (presentation_.status == WorkerStatus::earning && liveShardSnapshot())
        return "1 shard in progress";
    return std::nullopt;
}

std::string AppModel::statusSubtitle() const {
    if (presentation_.status == WorkerStatus::paused) {
        if (auto reason = pause_.othersPauseReason()) return *reason;
    }
    return presentation_.sub;
}

std::optional<std::string> AppModel::inlineStatusExplanation() const {
    return inlineExplanation(presentation_.status, presentation_.label, presentation_.sub);
}

double AppModel::todayProgress() const {
    const std::tm parts = localParts(currentDate());
    return (parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec) / 86400.0;
}

double AppModel::currentHourProgress() const {
    const std::tm parts = localParts(currentDate());
    return (parts.tm_min * 60 + parts.tm_sec) / 3600.0;
}

std::optional<double> AppModel::estimatedRecentUnpaidCompletedWork() const {
    return EarningsState::estimatedRecentUnpaidCompletedWork(
        account_.recentEstimatedActivity(currentDate(), earnings_.hourlyEstimateWindowMinutes()));
}

std::string AppModel::estimatedRecentUnpaidSummary() const {
    return earnings_.estimatedRecentUnpaidSummary(
        account_.recentEstimatedActivity(currentDate(), earnings_.hourlyEstimateWindowMinutes())
            .size());
}

}  // namespace corvane
