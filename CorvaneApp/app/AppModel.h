#pragma once
// The one observable model behind every screen, the tray and the headless status line. It derives
// the worker status from local sources every 2 seconds (no network on that path), fetches the
// account from the coordinator every 60 seconds off the main sequence and keeps the last good
// values when that fails, copies the resource sampler's series, and carries out the interface's
// commands itself or hands them to the application through its request callbacks.
//
// Lives on the main sequence: every method is called there, and `observe` callbacks run there,
// once per batch of changes.

#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_set>
#include <vector>

#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/config/BackgroundRunner.h"
#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/eligibility/HeavyAppDetector.h"
#include "CorvaneApp/eligibility/ResourceSampler.h"
#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/worker/WorkerControllerEvent.h"

namespace corvane {

enum class AppPhase { notEnrolled, enrolled };

// Dollar amounts as the screens show and sum them.
inline double roundedToCents(double usd) {
    return std::round(usd * 100) / 100;
}

enum class EarningsRange { day, week, month, quarter, all };
std::string_view rawValue(EarningsRange range);
// Days asked of the coordinator; absent for `all`, which asks for all time instead.
std::optional<int> earningsRangeDays(EarningsRange range);

struct EarningsRangeSnapshot {
    std::vector<double> daily;
    std::vector<DailyEarning> dailyRows;
    std::vector<double> hourly;  // always 24 values
    std::optional<Date> startDate;
    bool operator==(const EarningsRangeSnapshot&) const = default;
};

struct LiveShardSnapshot {
    std::string shardID;
    std::optional<std::string> jobID;
    std::optional<double> elapsedSeconds;
    std::optional<double> expectedSeconds;
    bool operator==(const LiveShardSnapshot&) const = default;
};

// The coordinator's "yyyy-MM-dd HH:mm:ss" and internet date-times, as the account records carry
// them. Absent for anything else.
struct AppModelDateParser {
    static std::optional<Date> parseCoordinatorTimestamp(std::string_view text);
};

class AppModel {
  public:
    static constexpr double localRefreshSeconds = 2.0;
    static constexpr double accountRefreshSeconds = 60.0;
    static constexpr int dashboardAttempts = 3;
    static constexpr double runtimeStateMaxAgeSeconds = 900.0;

    struct MachineInfo {
        std::string name;
        std::string modelDisplay;
        std::string chipDisplay;
        int totalCores = 1;
        double totalRAM_GB = 0;
        std::string region = "us-west · Pacific";
        std::string workerID = "wk_local";
        std::string appVersion = "0.2.0";
        std::string buildNumber = "1";
        std::string signedInAs;
        bool operator==(const MachineInfo&) const = default;
        // This computer as the system describes it; the worker id is left to the caller.
        static MachineInfo current(std::string appVersion);
    };

    using CoordinatorAPIFactory = std::function<std::shared_ptr<const CoordinatorAPIProtocol>()>;

    struct Dependencies {
        std::shared_ptr<EligibilityGate> eligibilityGate;  // required
        // The runtime-state file's last reading and when it was read; absent when there is none.
        std::function<std::optional<std::pair<RuntimeState, Date>>()> runtimeState;
        std::function<ResourceSampler::Snapshot()> samplerSnapshot;
        std::function<void()> sampleNow;
        DataMode dataMode = DataMode::real;
        bool startBackgroundTasks = true;
        // A client when this computer is enrolled (config file and token), else null.
        CoordinatorAPIFactory coordinatorAPIFactory;
        // The published version, asked without credentials; absent: no version check.
        std::function<AppVersion(std::stop_token)> fetchAppVersion;
        std::function<MachineInfo()> buildMachineInfo;
        std::string appVersion = "0.2.0";
        // Removes the config file and the worker token: what signing out leaves behind is a
        // computer that is not enrolled.
        std::function<void()> clearEnrollment;
        // Fills the model with the demo session (dummy mode), and a range of its earnings.
        std::function<void(AppModel&)> loadDummyData;
        std::function<std::optional<EarningsRangeSnapshot>(EarningsRange)> dummyEarningsSnapshot;
        std::function<ActivityHistogramResponse(const std::string& workerID, int days)>
            dummyActivityHistogram;
        std::shared_ptr<BackgroundRunner> backgroundRunner;  // absent: one task per job
        std::shared_ptr<SleepProvider> sleeper;              // absent: real waits
        NowFunction now = systemNow;
        std::shared_ptr<UnknownEligibilityReasonReporter> reasonReporter;  // absent: the log
        // The frontmost application's load, for the pause under a heavy application, and the
        // owner's setting for it; without a sampler (or in dummy mode) there is no such pause.
        std::shared_ptr<HeavyAppDetector::Sampling> heavyAppSampler;
        std::function<bool()> pauseOnHeavyApp;
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

    // Called once per batch of changes to anything the model shows.
    [[nodiscard]] Subscription observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

    void setRequests(Requests requests) { requests_ = std::move(requests); }
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
    void selectEarningsRange(EarningsRange range);
    void retryDownload();
    // Delivered on the main sequence; `error` says why there is no answer. A newer request
    // replaces one still in flight, whose answer is dropped.
    void loadActivityHistogram(int days,
                               std::function<void(std::optional<ActivityHistogramResponse>,
                                                  std::optional<std::string> error)>
                                   done);

    // --- What the application and the demo session feed in
    void applyDashboard(const WorkerDashboard& dashboard);
    void applyEarningsSummary(const EarningsSummary& summary);
    void applyEarningsSnapshot(const EarningsRangeSnapshot& snapshot, EarningsRange range,
                               bool updateCanonicalSeries);
    void applyDerivedEarningsSummaryFallback(const std::vector<DailyEarning>& rows,
                                             std::optional<Date> referenceDate);
    void applyLatestAppVersion(const AppVersion& version);
    void applySamplerSnapshot(const ResourceSampler::Snapshot& snapshot);
    void setTopJobs(std::vector<JobRecord> jobs);
    void setModelDownloadProgress(std::optional<ModelDownloadProgress> progress);
    void setInstalledModelIDs(std::unordered_set<ModelIdentifier> identifiers);
    void setTemporaryPauseStatusSubtitle(std::optional<std::string> subtitle);
    void setMachine(MachineInfo machine);
    void setRequestedPage(std::optional<std::string> page);
    void setWorkerOverrides(std::optional<bool> isWorkerRunning, std::optional<bool> hasActiveJob);
    void setCurrentDateOverride(std::optional<Date> date);
    void setDummySessionSignedOut(bool signedOut);
    void setStatusPresentation(const WorkerStatusPresentation& presentation);
    void setLastRefreshAt(std::optional<Date> date);

    // --- Observable values
    AppPhase phase() const { return phase_; }
    const WorkerStatusPresentation& presentation() const { return presentation_; }
    WorkerStatus status() const { return presentation_.status; }
    const std::string& statusLabel() const { return presentation_.label; }
    const std::string& statusSub() const { return presentation_.sub; }
    const std::string& statusTooltip() const { return presentation_.tooltip; }
    bool updateAvailable() const { return updateAvailable_; }
    const std::optional<AppVersion>& latestAppVersion() const { return latestAppVersion_; }
    const std::optional<std::string>& coordinatorWorkerStatus() const {
        return coordinatorWorkerStatus_;
    }
    bool isManuallyPaused() const { return isManuallyPaused_; }
    const std::optional<std::string>& temporaryPauseStatusSubtitle() const {
        return temporaryPauseStatusSubtitle_;
    }
    DataMode dataMode() const { return deps_.dataMode; }
    bool dummyDataLoaded() const { return dummyDataLoaded_; }
    bool isDummySessionSignedOut() const { return isDummySessionSignedOut_; }
    const std::optional<std::string>& requestedPage() const { return requestedPage_; }
    const ResourceSampler::Snapshot& resourceHistory() const { return history_; }
    std::optional<double> liveCpuCorvanePercent() const { return liveCpuCorvane_; }
    std::optional<double> liveCpuOtherPercent() const { return liveCpuOther_; }
    std::optional<double> liveRamCorvanePercent() const { return liveRamCorvane_; }
    std::optional<double> liveRamOtherPercent() const { return liveRamOther_; }
    std::optional<double> todayEarnings() const { return todayEarnings_; }
    std::optional<double> hourlyEstimate() const { return hourlyEstimate_; }
    bool hourlyEstimateUsesRecentWindow() const { return hourlyEstimateUsesRecentWindow_; }
    std::int64_t hourlyEstimateWindowMinutes() const { return hourlyEstimateWindowMinutes_; }
    std::optional<double> monthEarnings() const { return monthEarnings_; }
    std::optional<double> monthProjection() const { return monthProjection_; }
    std::optional<double> lifetimeEarnings() const { return lifetimeEarnings_; }
    std::optional<double> heldBalance() const { return heldBalance_; }
    std::optional<double> availableBalance() const { return availableBalance_; }
    std::optional<double> deltaVsYesterday() const { return deltaVsYesterday_; }
    std::optional<std::int64_t> activeMinutesToday() const { return activeMinutesToday_; }
    std::int64_t jobsCompletedToday() const { return jobsCompletedToday_; }
    std::int64_t recentCompletedShards() const { return recentCompletedShards_; }
    const std::vector<DailyEarning>& earningsLast30Rows() const { return earningsLast30Rows_; }
    const std::vector<double>& earningsLast30() const { return earningsLast30_; }
    const std::vector<double>& earningsHourly() const { return earningsHourly_; }
    EarningsRange earningsVisibleRange() const { return earningsVisibleRange_; }
    bool earningsRangeLoading() const { return earningsRangeLoading_; }
    const std::vector<JobRecord>& topJobs() const { return topJobs_; }
    const std::vector<WorkerDashboard::PayoutDisbursement>& payoutHistory() const {
        return payoutHistory_;
    }
    const std::vector<WorkerDashboard::ActivityItem>& recentActivity() const {
        return recentActivity_;
    }
    const std::optional<Date>& lastRefreshAt() const { return lastRefreshAt_; }
    const MachineInfo& machine() const { return machine_; }
    const std::optional<ModelDownloadProgress>& modelDownloadProgress() const {
        return modelDownloadProgress_;
    }
    const std::unordered_set<ModelIdentifier>& installedModelIDs() const {
        return installedModelIDs_;
    }
    bool hasAPI() const { return api_ != nullptr; }
    bool isRefreshing() const { return refreshJob_ != nullptr; }
    const HeavyAppDetector* heavyAppDetector() const { return heavyAppDetector_.get(); }

    // --- Derived values
    bool isWorkerRunning() const;
    bool hasActiveJob() const;
    bool coordinatorReportsBusy() const;
    Date currentDate() const;
    std::optional<WorkerControllerSnapshot> workerSnapshot() const;
    // The runtime-state file's reading when it is at most 900 seconds old.
    std::optional<RuntimeState> activeRuntimeState() const;
    std::optional<LiveShardSnapshot> liveShardSnapshot() const;
    std::optional<std::string> sidebarShardIndicator() const;
    std::string statusSubtitle() const;
    std::optional<std::string> inlineStatusExplanation() const;
    std::optional<double> weekEarnings() const;
    EarningsRangeSnapshot currentEarningsSnapshot() const;
    int earningsChartTodayIndex() const;
    double todayProgress() const;
    double currentHourProgress() const;
    std::vector<WorkerDashboard::ActivityItem> recentEstimatedActivity() const;
    std::optional<double> estimatedRecentUnpaidCompletedWork() const;
    std::string estimatedRecentUnpaidSummary() const;
    std::string hourlyEstimateCaption() const;
    std::string hourlyEstimateShortCaption() const;

    // 24 values: padded with zeros in front, or the last 24 of a longer list.
    static std::vector<double> normalizeHourly(std::vector<double> hours);
    // Dotted integers compared position by position, missing positions as 0.
    static bool isVersionNewer(std::string_view version, std::string_view current);

  private:
    struct AccountRefresh;

    void syncEnrollmentState();
    void startRefreshLoop();
    void stopRefreshLoop();
    void finishRefresh(const AccountRefresh& outcome);
    void resetPauseControlState();
    void resetLiveData();
    void notifyIfChanged();
    template <typename T>
    void assign(T& field, T value);

    Executor& main_;
    Dependencies deps_;
    Requests requests_;
    UnknownEligibilityReasonReporter& reporter_;
    WorkerStatusTracker tracker_;
    std::function<std::optional<WorkerControllerSnapshot>()> workerSnapshotSource_;
    ObserverList<> observers_;
    bool changed_ = false;
    int batchDepth_ = 0;

    AppPhase phase_ = AppPhase::notEnrolled;
    WorkerStatusPresentation presentation_ =
        WorkerStatusPresentation::defaultFor(WorkerStatus::idle);
    bool updateAvailable_ = false;
    std::optional<AppVersion> latestAppVersion_;
    std::optional<std::string> coordinatorWorkerStatus_;
    bool isManuallyPaused_ = false;
    std::optional<std::string> temporaryPauseStatusSubtitle_;
    std::shared_ptr<PauseHandle> manualPauseHandle_;
    bool shouldRunRefreshLoop_;
    bool dummyDataLoaded_ = false;
    bool isDummySessionSignedOut_ = false;
    std::optional<std::string> requestedPage_;
    ResourceSampler::Snapshot history_;
    std::optional<double> liveCpuCorvane_, liveCpuOther_, liveRamCorvane_, liveRamOther_;
    std::optional<double> todayEarnings_;
    std::optional<double> hourlyEstimate_;
    bool hourlyEstimateUsesRecentWindow_ = false;
    std::int64_t hourlyEstimateWindowMinutes_ = 15;
    std::optional<double> monthEarnings_, monthProjection_, lifetimeEarnings_, heldBalance_,
        availableBalance_, deltaVsYesterday_;
    std::optional<std::int64_t> activeMinutesToday_;
    std::int64_t jobsCompletedToday_ = 0;
    std::int64_t recentCompletedShards_ = 0;
    std::vector<DailyEarning> earningsLast30Rows_;
    std::vector<double> earningsLast30_;
    std::vector<double> earningsHourly_ = std::vector<double>(24, 0.0);
    bool earningsRangeLoading_ = false;
    std::vector<JobRecord> topJobs_;
    std::optional<Date> currentDateOverride_;
    std::vector<WorkerDashboard::PayoutDisbursement> payoutHistory_;
    std::vector<WorkerDashboard::ActivityItem> recentActivity_;
    std::optional<Date> lastRefreshAt_;
    MachineInfo machine_;
    std::optional<bool> isWorkerRunningOverride_, hasActiveJobOverride_;
    std::optional<ModelDownloadProgress> modelDownloadProgress_;
    std::unordered_set<ModelIdentifier> installedModelIDs_;
    std::shared_ptr<const CoordinatorAPIProtocol> api_;
    std::map<EarningsRange, EarningsRangeSnapshot> earningsRangeSnapshots_;
    EarningsRange earningsVisibleRange_ = EarningsRange::month;
    std::uint64_t earningsRangeRequestGeneration_ = 0;

    std::unique_ptr<HeavyAppDetector> heavyAppDetector_;
    std::unique_ptr<BackgroundJob> refreshJob_;
    std::unique_ptr<BackgroundJob> earningsRangeJob_;
    std::unique_ptr<BackgroundJob> histogramJob_;
    TimerHandle localTimer_;
    TimerHandle refreshTimer_;
    bool refreshLoopRunning_ = false;
    std::shared_ptr<AppModel*> alive_;  // background jobs post back only while it lives
};

}  // namespace corvane
