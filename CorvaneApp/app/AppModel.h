#pragma once
// The one observable model behind every screen, the tray and the headless status line. It derives
// the worker status from local sources every 2 seconds (no network on that path), refreshes the
// account every 60 seconds off the main sequence and keeps the last good values when that fails,
// copies the resource sampler's series, and carries out the interface's commands itself or hands
// them to the application through its request callbacks.
//
// Its values live in parts (account, earnings, resources, pause, models), each observable through
// the one change notification, which names the parts that changed. Lives on the main sequence:
// every method is called there, and observers are told there, once per batch of changes.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>

#include "CorvaneApp/app/AccountRefresher.h"
#include "CorvaneApp/app/AccountState.h"
#include "CorvaneApp/app/EarningsState.h"
#include "CorvaneApp/app/MachineInfo.h"
#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/app/ModelInstallState.h"
#include "CorvaneApp/app/PauseControl.h"
#include "CorvaneApp/app/ResourceHistory.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/worker/WorkerControllerEvent.h"

namespace corvane {

enum class AppPhase { notEnrolled, enrolled };

struct LiveShardSnapshot {
    std::string shardID;
    std::optional<std::string> jobID;
    std::optional<double> elapsedSeconds;
    std::optional<double> expectedSeconds;
    bool operator==(const LiveShardSnapshot&) const = default;
};

class AppModel {
  public:
    static constexpr double localRefreshSeconds = 2.0;
    static constexpr double accountRefreshSeconds = 60.0;
    static constexpr double runtimeStateMaxAgeSeconds = 900.0;

    using CoordinatorAPIFactory = std::function<std::shared_ptr<const CoordinatorAPIProtocol>()>;

    // Whether this computer is enrolled, and how its enrolment ends; the defaults' texts are those
    // of a real enrolment.
    struct Enrollment {
        // A client while enrolled (a real one needs the config file and the token), else null.
        CoordinatorAPIFactory coordinatorAPIFactory;
        // Removes what enrolment left; called once the worker has been asked to stop.
        std::function<void()> clear;
        std::string signOutLine = "signOut: stopping worker, removing config, clearing credentials";
        std::optional<std::string> signOutCompleteLine =
            "signOut complete — worker stopped, config removed, credentials cleared";
    };

    struct Dependencies {
        std::shared_ptr<EligibilityGate> eligibilityGate;  // required
        Enrollment enrollment;
        // The runtime-state file's last reading and when it was read; absent when there is none.
        std::function<std::optional<std::pair<RuntimeState, Date>>()> runtimeState;
        std::function<ResourceSampler::Snapshot()> samplerSnapshot;
        std::function<void()> sampleNow;
        bool startBackgroundTasks = true;
        // The published version, asked without credentials; absent: no version check.
        AccountRefresher::FetchAppVersion fetchAppVersion;
        std::function<MachineInfo()> buildMachineInfo;
        std::string appVersion = "0.2.0";
        std::shared_ptr<StatusSource> statusSource;          // absent: derived from the sources
        std::shared_ptr<BackgroundRunner> backgroundRunner;  // absent: one task per job
        std::shared_ptr<SleepProvider> sleeper;              // absent: real waits
        NowFunction now = systemNow;
        std::shared_ptr<UnknownEligibilityReasonReporter> reasonReporter;  // absent: the log
        // The frontmost application's load and the owner's setting for its pause.
        std::shared_ptr<HeavyAppDetector::Sampling> heavyAppSampler;
        std::function<bool()> pauseOnHeavyApp;
        // The volume of the model weights; absent: the home directory's, read from the system.
        std::function<std::optional<VolumeInfo>()> volumeInfo;
    };

    // What the model asks of the application; each may be left empty.
    struct Requests {
        std::function<void()> requestOnboarding;
        std::function<void()> onSignedOut;
        std::function<void()> requestDashboardShow;
        std::function<void()> requestWorkerStart;
        std::function<void()> requestWorkerStop;
        std::function<void()> requestModelDownloadRetry;
        std::function<void()> requestModelCacheReset;
        std::function<void(const ModelIdentifier&)> requestModelInstall;
        std::function<std::uint64_t(const ModelIdentifier&)> requestModelRemove;  // bytes freed
    };

    AppModel(Executor& mainSequence, Dependencies dependencies);
    ~AppModel();
    AppModel(const AppModel&) = delete;
    AppModel& operator=(const AppModel&) = delete;

    // Called once per batch of changes, with the parts that changed in it.
    [[nodiscard]] Subscription observe(std::function<void(ModelParts)> onChange) {
        return changes_.observe(std::move(onChange));
    }

    // Edits made while a batch of it lives are told as one change.
    ModelChanges& changes() { return changes_; }

    void setRequests(Requests requests) { requests_ = std::move(requests); }
    const Requests& requests() const { return requests_; }
    // The worker's snapshot as the bridge last copied it; empty while no worker is built.
    void setWorkerSnapshotSource(std::function<std::optional<WorkerControllerSnapshot>()> source);

    // --- Commands
    void refreshLocalState(bool sampleNow);
    void refreshStatus(bool preservePausedState);
    // One account refresh, off the main sequence. A refresh already in flight is not doubled.
    void refreshFromAPI();
    void refreshFromAPIIfStale(double maxAgeSeconds);
    void togglePause(std::function<void()> startWorker = {});
    bool isPauseActionEnabled() const;
    void didCompleteOnboarding();
    void signOut();
    // One refresh per selection; a newer selection drops an older one's late answer.
    void selectEarningsRange(EarningsRange range);
    void retryDownload();
    // Measures the weights' volume off the main sequence; modelInstall().volume() follows.
    void refreshVolumeInfo();
    // Asks for the published version now ("Check for updates"); `done` on the main sequence with
    // whether an answer came. A newer version is only stored: there is no installer.
    void refreshAppVersion(std::function<void(bool answered)> done);
    // Delivered on the main sequence; `error` says why there is no answer. A newer request
    // replaces one still in flight, whose answer is dropped.
    void loadActivityHistogram(int days,
                               std::function<void(std::optional<ActivityHistogramResponse>,
                                                  std::optional<std::string> error)>
                                   done);

    // --- The parts, observable through `observe`
    AccountState& account() { return account_; }
    const AccountState& account() const { return account_; }
    EarningsState& earnings() { return earnings_; }
    const EarningsState& earnings() const { return earnings_; }
    ResourceHistory& resources() { return resources_; }
    const ResourceHistory& resources() const { return resources_; }
    PauseControl& pauseControl() { return pause_; }
    const PauseControl& pauseControl() const { return pause_; }
    ModelInstallState& modelInstall() { return modelInstall_; }
    const ModelInstallState& modelInstall() const { return modelInstall_; }

    // --- Status, navigation and the machine
    AppPhase phase() const { return phase_; }
    const WorkerStatusPresentation& presentation() const { return presentation_; }
    WorkerStatus status() const { return presentation_.status; }
    const std::string& statusLabel() const { return presentation_.label; }
    const std::string& statusSub() const { return presentation_.sub; }
    const std::string& statusTooltip() const { return presentation_.tooltip; }
    void setStatusPresentation(const WorkerStatusPresentation& presentation);
    const std::optional<std::string>& requestedPage() const { return requestedPage_; }
    void setRequestedPage(std::optional<std::string> page);
    const MachineInfo& machine() const { return machine_; }
    void setMachine(MachineInfo machine);
    // Demo and screenshot overrides of the worker's state and of the clock.
    void setWorkerOverrides(std::optional<bool> isWorkerRunning, std::optional<bool> hasActiveJob);
    void setCurrentDateOverride(std::optional<Date> date);
    bool hasAPI() const { return api_ != nullptr; }
    // The account client: the model's own once enrolled, else whatever the enrolment gives now
    // (null while not enrolled).
    std::shared_ptr<const CoordinatorAPIProtocol> coordinatorAPI() const;
    // Where the model runs its network calls; a page's own calls go there too.
    const std::shared_ptr<BackgroundRunner>& backgroundRunner() const {
        return deps_.backgroundRunner;
    }
    bool isRefreshing() const { return refresher_.isRefreshing(); }
    const std::string& appVersion() const { return deps_.appVersion; }

    // --- Derived values
    bool isWorkerRunning() const;
    bool hasActiveJob() const;
    Date currentDate() const;
    std::optional<WorkerControllerSnapshot> workerSnapshot() const;
    // The runtime-state file's reading when it is at most 900 seconds old.
    std::optional<RuntimeState> activeRuntimeState() const;
    // When the runtime-state file was last read, whatever its age; absent when never.
    std::optional<Date> lastRuntimeStateReadAt() const;
    std::optional<LiveShardSnapshot> liveShardSnapshot() const;
    std::optional<std::string> sidebarShardIndicator() const;
    // The line under the status: a pause's own reason when someone other than the owner paused.
    std::string statusSubtitle() const;
    std::optional<std::string> inlineStatusExplanation() const;
    double todayProgress() const;
    double currentHourProgress() const;
    std::optional<double> estimatedRecentUnpaidCompletedWork() const;
    std::string estimatedRecentUnpaidSummary() const;

  private:
    void syncEnrollmentState();
    void startRefreshLoop();
    void stopRefreshLoop();
    void finishRefresh(const AccountRefresher::Outcome& outcome);
    void resetLiveData();
    WorkerStatusInputs statusInputs(bool preservePausedState) const;

    Executor& main_;
    Dependencies deps_;
    Requests requests_;
    ModelChanges changes_;
    AccountState account_{changes_};
    EarningsState earnings_{changes_};
    ResourceHistory resources_{changes_};
    ModelInstallState modelInstall_{changes_};
    PauseControl pause_;
    AccountRefresher refresher_;
    std::function<std::optional<WorkerControllerSnapshot>()> workerSnapshotSource_;

    AppPhase phase_ = AppPhase::notEnrolled;
    WorkerStatusPresentation presentation_ =
        WorkerStatusPresentation::defaultFor(WorkerStatus::idle);
    bool shouldRunRefreshLoop_;
    bool refreshLoopRunning_ = false;
    std::optional<std::string> requestedPage_;
    MachineInfo machine_;
    std::optional<bool> isWorkerRunningOverride_, hasActiveJobOverride_;
    std::optional<Date> currentDateOverride_;
    std::shared_ptr<const CoordinatorAPIProtocol> api_;
    TimerHandle localTimer_;
    TimerHandle refreshTimer_;
    std::unique_ptr<BackgroundJob> volumeJob_;
    // Lets a measurement that ends after the model is gone find that out.
    std::shared_ptr<AppModel*> alive_ = std::make_shared<AppModel*>(this);
};

}  // namespace corvane
