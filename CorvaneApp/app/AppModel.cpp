#include "CorvaneApp/app/AppModel.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <ctime>
#include <numeric>
#include <thread>

#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

const std::shared_ptr<spdlog::logger>& logger() {
    static const auto instance = log::get("AppModel");
    return instance;
}

std::string lowerTrimmed(const std::optional<std::string>& text) {
    auto trimmed = corvaneTrimmed(text);
    if (!trimmed) return {};
    std::string out = *trimmed;
    for (auto& c : out) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string dayKey(Date date) {
    const std::tm parts = localParts(date);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

// "yyyy-MM-dd" as local midnight; absent for anything else.
std::optional<std::tm> parseDayKey(std::string_view text) {
    std::tm parts{};
    const std::string copy(text);
    const char* end = strptime(copy.c_str(), "%Y-%m-%d", &parts);
    if (!end || *end != '\0' || copy.size() != 10) return std::nullopt;
    return parts;
}

int daysInMonth(const std::tm& parts) {
    std::tm next{};
    next.tm_year = parts.tm_year;
    next.tm_mon = parts.tm_mon + 1;
    next.tm_mday = 0;  // the last day of parts' month
    next.tm_hour = 12;
    return localParts(fromLocalParts(next)).tm_mday;
}

std::string countWord(std::size_t count) {
    return count == 1 ? "shard" : "shards";
}

struct ChangeBatchGuard {
    int& depth;
    std::function<void()> atEnd;
    explicit ChangeBatchGuard(int& d, std::function<void()> end) : depth(d), atEnd(std::move(end)) {
        ++depth;
    }
    ~ChangeBatchGuard() {
        if (--depth == 0) atEnd();
    }
};

}  // namespace

// What one account refresh brought back, gathered off the main sequence and applied on it.
struct AppModel::AccountRefresh {
    std::optional<AppVersion> appVersion;
    std::optional<WorkerDashboard> dashboard;
    std::optional<EarningsRangeSnapshot> month;
    std::optional<std::pair<EarningsRange, EarningsRangeSnapshot>> visible;
    std::optional<EarningsSummary> summary;
    std::optional<std::vector<JobRecord>> topJobs;
    bool succeeded = false;
    bool signOut = false;
};

std::string_view rawValue(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return "day";
        case EarningsRange::week:
            return "week";
        case EarningsRange::month:
            return "month";
        case EarningsRange::quarter:
            return "quarter";
        case EarningsRange::all:
            return "all";
    }
    return "month";
}

std::optional<int> earningsRangeDays(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return 1;
        case EarningsRange::week:
            return 7;
        case EarningsRange::month:
            return 30;
        case EarningsRange::quarter:
            return 90;
        case EarningsRange::all:
            return std::nullopt;
    }
    return 30;
}

std::optional<Date> AppModelDateParser::parseCoordinatorTimestamp(std::string_view text) {
    if (auto date = RuntimeStateDateParser::parse(text)) return date;
    // "yyyy-MM-dd HH:mm:ss" in GMT, optionally followed by a "+hhmm" or "-hhmm" offset.
    if (text.size() != 19 && text.size() != 24) return std::nullopt;
    const std::string copy(text);
    std::tm parts{};
    const char* end = strptime(copy.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
    if (!end || end != copy.c_str() + 19) return std::nullopt;
    const std::tm asParsed = parts;
    const std::time_t seconds = timegm(&parts);
    if (parts.tm_mday != asParsed.tm_mday || parts.tm_mon != asParsed.tm_mon)
        return std::nullopt;  // Feb 30
    long offset = 0;
    if (copy.size() == 24) {
        const char sign = copy[19];
        if ((sign != '+' && sign != '-') || !std::all_of(copy.begin() + 20, copy.end(), [](char c) {
                return std::isdigit(static_cast<unsigned char>(c));
            })) {
            return std::nullopt;
        }
        const long hours = std::stol(copy.substr(20, 2));
        const long minutes = std::stol(copy.substr(22, 2));
        if (hours > 23 || minutes > 59) return std::nullopt;
        offset = (sign == '+' ? 1 : -1) * (hours * 3600 + minutes * 60);
    }
    return std::chrono::system_clock::from_time_t(seconds - offset);
}

AppModel::MachineInfo AppModel::MachineInfo::current(std::string appVersion) {
    MachineInfo info;
    char host[256] = {};
    if (::gethostname(host, sizeof host - 1) == 0) info.name = host;
    info.totalCores = std::max(1, static_cast<int>(std::thread::hardware_concurrency()));
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGESIZE);
    if (pages > 0 && pageSize > 0)
        info.totalRAM_GB = double(pages) * double(pageSize) / double(1ULL << 30);
    if (!appVersion.empty()) info.appVersion = std::move(appVersion);
    if (const passwd* user = ::getpwuid(::getuid())) {
        std::string gecos = user->pw_gecos ? user->pw_gecos : "";
        gecos = gecos.substr(0, gecos.find(','));
        info.signedInAs = gecos.empty() ? user->pw_name : gecos;
    }
    return info;
}

AppModel::AppModel(Executor& mainSequence, Dependencies dependencies)
    : main_(mainSequence),
      deps_(std::move(dependencies)),
      reporter_(
          *(deps_.reasonReporter
                ? deps_.reasonReporter
                : (deps_.reasonReporter = std::make_shared<UnknownEligibilityReasonReporter>()))),
      tracker_(reporter_),
      shouldRunRefreshLoop_(deps_.startBackgroundTasks),
      alive_(std::make_shared<AppModel*>(this)) {
    if (!deps_.backgroundRunner) deps_.backgroundRunner = std::make_shared<TaskBackgroundRunner>();
    if (!deps_.sleeper) deps_.sleeper = std::make_shared<TaskSleepProvider>();
    if (!deps_.now) deps_.now = systemNow;
    if (!deps_.buildMachineInfo)
        deps_.buildMachineInfo = [version = deps_.appVersion] {
            return MachineInfo::current(version);
        };
    machine_ = deps_.buildMachineInfo();
    if (deps_.dataMode == DataMode::real && deps_.heavyAppSampler) {
        auto enabled = deps_.pauseOnHeavyApp ? deps_.pauseOnHeavyApp : [] { return true; };
        std::weak_ptr<AppModel*> alive = alive_;
        heavyAppDetector_ = std::make_unique<HeavyAppDetector>(
            deps_.eligibilityGate, main_, std::move(enabled), deps_.heavyAppSampler,
            [this, alive](const std::optional<std::string>& subtitle) {
                setTemporaryPauseStatusSubtitle(subtitle);
                // Not from inside the detector's own call: the refresh may reset the detector.
                main_.post([alive] {
                    if (auto self = alive.lock()) (*self)->refreshLocalState(false);
                });
            });
    }
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    if (deps_.startBackgroundTasks) {
        localTimer_ =
            main_.scheduleRepeating(localRefreshSeconds, [this] { refreshLocalState(false); });
        refreshLocalState(false);
        if (heavyAppDetector_) heavyAppDetector_->start();
    } else {
        syncEnrollmentState();
        if (heavyAppDetector_) heavyAppDetector_->syncConfiguration();
        refreshStatus(true);
    }
}

AppModel::~AppModel() {
    alive_.reset();
    localTimer_.cancel();
    refreshTimer_.cancel();
    heavyAppDetector_.reset();  // releases its pause, if it holds one
    // Cancelling joins: a body still waiting on the network is stopped first.
    refreshJob_.reset();
    earningsRangeJob_.reset();
    histogramJob_.reset();
}

template <typename T>
void AppModel::assign(T& field, T value) {
    if (field == value) return;
    field = std::move(value);
    changed_ = true;
}

void AppModel::notifyIfChanged() {
    if (!changed_) return;
    changed_ = false;
    observers_.notify();
}

void AppModel::setWorkerSnapshotSource(
    std::function<std::optional<WorkerControllerSnapshot>()> source) {
    workerSnapshotSource_ = std::move(source);
}

// --- Local state

void AppModel::refreshLocalState(bool sampleNow) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    syncEnrollmentState();
    if (deps_.dataMode == DataMode::real) {
        if (heavyAppDetector_) heavyAppDetector_->syncConfiguration();
        refreshStatus(true);
        if (sampleNow && deps_.sampleNow) deps_.sampleNow();
        if (deps_.samplerSnapshot) applySamplerSnapshot(deps_.samplerSnapshot());
        return;
    }
    if (phase_ == AppPhase::notEnrolled) {
        setStatusPresentation(WorkerStatusPresentation::defaultFor(WorkerStatus::notEnrolled));
    }
}

void AppModel::applySamplerSnapshot(const ResourceSampler::Snapshot& snapshot) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    auto last = [](const std::vector<double>& series) {
        return series.empty() ? std::nullopt : std::optional<double>(series.back());
    };
    assign(liveCpuCorvane_, last(snapshot.cpuCorvane));
    assign(liveCpuOther_, last(snapshot.cpuOther));
    assign(liveRamCorvane_, last(snapshot.ramCorvane));
    assign(liveRamOther_, last(snapshot.ramOther));
    if (!snapshot.cpuCorvane.empty()) assign(history_, snapshot);
}

void AppModel::syncEnrollmentState() {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    const AppPhase old = phase_;
    if (deps_.dataMode == DataMode::dummy) {
        assign(phase_, isDummySessionSignedOut_ ? AppPhase::notEnrolled : AppPhase::enrolled);
        if (phase_ != old) {
            resetPauseControlState();
            if (phase_ == AppPhase::enrolled) assign(machine_, deps_.buildMachineInfo());
        }
        return;
    }
    auto api = deps_.coordinatorAPIFactory ? deps_.coordinatorAPIFactory() : nullptr;
    assign(phase_, api ? AppPhase::enrolled : AppPhase::notEnrolled);
    if (phase_ == AppPhase::notEnrolled && old == AppPhase::enrolled) resetPauseControlState();
    if (phase_ == AppPhase::enrolled && !api_) {
        api_ = std::move(api);  // kept once made; a later factory result doesn't replace it
        resetPauseControlState();
        assign(machine_, deps_.buildMachineInfo());
        if (requests_.requestWorkerStart) requests_.requestWorkerStart();
        if (shouldRunRefreshLoop_) startRefreshLoop();
    }
}

void AppModel::setStatusPresentation(const WorkerStatusPresentation& presentation) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(presentation_, presentation);
}

void AppModel::refreshStatus(bool preservePausedState) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    const auto paused = WorkerStatusPresentation::defaultFor(WorkerStatus::paused);
    if (phase_ == AppPhase::enrolled && deps_.dataMode == DataMode::dummy) {
        if (preservePausedState && isManuallyPaused_) setStatusPresentation(paused);
        return;
    }
    const auto& gate = *deps_.eligibilityGate;
    WorkerStatusInputs inputs;
    inputs.enrolled = phase_ == AppPhase::enrolled;
    inputs.paused = preservePausedState && (isManuallyPaused_ || gate.isTemporarilyPaused());
    inputs.modelDownloading =
        modelDownloadProgress_ &&
        std::holds_alternative<ModelDownloadProgress::Downloading>(modelDownloadProgress_->phase);
    inputs.workerRunning = isWorkerRunning();
    inputs.busy = hasActiveJob() || coordinatorReportsBusy();
    inputs.gateEligible = gate.isEligible();
    inputs.gateReason = gate.reason();
    if (auto state = activeRuntimeState()) inputs.eligibility = state->eligibility;
    setStatusPresentation(tracker_.refresh(inputs, deps_.now()));
}

// --- Pause

bool AppModel::isPauseActionEnabled() const {
    if (phase_ != AppPhase::enrolled) return false;
    if (isManuallyPaused_) return true;
    return !deps_.eligibilityGate->isTemporarilyPaused();
}

void AppModel::togglePause(std::function<void()> startWorker) {
    if (phase_ != AppPhase::enrolled || !isPauseActionEnabled()) return;
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    using P = WorkerStatusPresentation;
    if (deps_.dataMode == DataMode::dummy) {
        assign(isManuallyPaused_, !isManuallyPaused_);
        setStatusPresentation(isManuallyPaused_ ? P::defaultFor(WorkerStatus::paused)
                                                : P{WorkerStatus::earning, "Earning",
                                                    "Demo session · processing queued audio",
                                                    "Corvane · Demo data"});
        return;
    }
    if (isManuallyPaused_) {
        assign(isManuallyPaused_, false);
        if (auto handle = std::exchange(manualPauseHandle_, nullptr)) handle->release();
        if (startWorker) {
            startWorker();
        } else if (requests_.requestWorkerStart) {
            requests_.requestWorkerStart();
        }
        if (shouldRunRefreshLoop_ && heavyAppDetector_) heavyAppDetector_->start();
        tracker_.setAwaitingFreshEligibilityAfterManualResume(isWorkerRunning());
        const auto status = deps_.eligibilityGate->isTemporarilyPaused() ? WorkerStatus::paused
                            : isWorkerRunning()                          ? WorkerStatus::idle
                                                                         : WorkerStatus::offline;
        setStatusPresentation(P::defaultFor(status));
        return;
    }
    tracker_.setAwaitingFreshEligibilityAfterManualResume(false);
    assign(isManuallyPaused_, true);
    manualPauseHandle_ = deps_.eligibilityGate->pause("manual pause");
    // The owner's pause stands alone: no other hold to lift behind it.
    if (heavyAppDetector_) heavyAppDetector_->stop();
    setStatusPresentation(P::defaultFor(WorkerStatus::paused));
}

void AppModel::resetPauseControlState() {
    assign(isManuallyPaused_, false);
    tracker_.setAwaitingFreshEligibilityAfterManualResume(false);
    assign(temporaryPauseStatusSubtitle_, std::optional<std::string>{});
    if (auto handle = std::exchange(manualPauseHandle_, nullptr)) handle->release();
    if (heavyAppDetector_) heavyAppDetector_->stop();  // forgets the tracked application
    if (heavyAppDetector_ && shouldRunRefreshLoop_) heavyAppDetector_->start();
}

// --- Enrolment

void AppModel::didCompleteOnboarding() {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    if (deps_.dataMode == DataMode::dummy) setDummySessionSignedOut(false);
    syncEnrollmentState();
    refreshStatus(true);
}

void AppModel::signOut() {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    const bool dummy = deps_.dataMode == DataMode::dummy;
    logger()->info(dummy ? "signOut: clearing dummy session state only"
                         : "signOut: stopping worker, removing config, clearing credentials");
    resetPauseControlState();
    if (!dummy) {
        if (requests_.requestWorkerStop) requests_.requestWorkerStop();
        if (deps_.clearEnrollment) deps_.clearEnrollment();
        assign(machine_, deps_.buildMachineInfo());
        api_.reset();
        stopRefreshLoop();
        earningsRangeJob_.reset();
    }
    resetLiveData();
    if (dummy) {
        assign(isDummySessionSignedOut_, true);
        assign(dummyDataLoaded_, false);
    }
    assign(phase_, AppPhase::notEnrolled);
    setStatusPresentation(WorkerStatusPresentation::defaultFor(WorkerStatus::notEnrolled));
    if (!dummy)
        logger()->info("signOut complete — worker stopped, config removed, credentials cleared");
    if (requests_.onSignedOut) requests_.onSignedOut();
}

void AppModel::resetLiveData() {
    assign(todayEarnings_, std::optional<double>{});
    assign(monthEarnings_, std::optional<double>{});
    assign(monthProjection_, std::optional<double>{});
    assign(lifetimeEarnings_, std::optional<double>{});
    assign(heldBalance_, std::optional<double>{});
    assign(availableBalance_, std::optional<double>{});
    assign(hourlyEstimate_, std::optional<double>{});
    assign(deltaVsYesterday_, std::optional<double>{});
    assign(activeMinutesToday_, std::optional<std::int64_t>{});
    assign(jobsCompletedToday_, std::int64_t{0});
    assign(recentCompletedShards_, std::int64_t{0});
    assign(earningsLast30_, std::vector<double>{});
    assign(earningsLast30Rows_, std::vector<DailyEarning>{});
    assign(earningsHourly_, std::vector<double>(24, 0.0));
    assign(payoutHistory_, std::vector<WorkerDashboard::PayoutDisbursement>{});
    assign(recentActivity_, std::vector<WorkerDashboard::ActivityItem>{});
    assign(history_, ResourceSampler::Snapshot{});
    assign(liveCpuCorvane_, std::optional<double>{});
    assign(liveCpuOther_, std::optional<double>{});
    assign(liveRamCorvane_, std::optional<double>{});
    assign(liveRamOther_, std::optional<double>{});
    assign(lastRefreshAt_, std::optional<Date>{});
    assign(isWorkerRunningOverride_, std::optional<bool>{});
    assign(hasActiveJobOverride_, std::optional<bool>{});
    assign(hourlyEstimateWindowMinutes_, std::int64_t{15});
    assign(earningsVisibleRange_, EarningsRange::month);
    earningsRangeSnapshots_.clear();
    tracker_.reset();
}

// --- Account refresh

void AppModel::startRefreshLoop() {
    refreshLoopRunning_ = true;
    refreshFromAPI();
}

void AppModel::stopRefreshLoop() {
    refreshLoopRunning_ = false;
    refreshTimer_.cancel();
    refreshJob_.reset();
}

void AppModel::refreshFromAPIIfStale(double maxAgeSeconds) {
    if (lastRefreshAt_ && secondsBetween(*lastRefreshAt_, currentDate()) < maxAgeSeconds) return;
    refreshFromAPI();
}

namespace {

std::optional<EarningsRangeSnapshot> loadEarningsSnapshot(const CoordinatorAPIProtocol& api,
                                                          EarningsRange range,
                                                          std::stop_token stop) {
    try {
        const auto days = earningsRangeDays(range);
        const bool allTime = !days;
        EarningsRangeSnapshot snapshot;
        snapshot.dailyRows = api.dailyEarnings(days, allTime, stop);
        snapshot.hourly = AppModel::normalizeHourly(api.hourlyEarnings(days, allTime, stop).hours);
        for (const auto& row : snapshot.dailyRows) snapshot.daily.push_back(row.amountUSD);
        if (!snapshot.dailyRows.empty()) {
            if (auto parts = parseDayKey(snapshot.dailyRows.front().date))
                snapshot.startDate = fromLocalParts(*parts);
        }
        return snapshot;
    } catch (const std::exception& error) {
        logger()->error("Supplemental earnings fetch failed for {}: {}", rawValue(range),
                        error.what());
        return std::nullopt;
    }
}

}  // namespace

void AppModel::refreshFromAPI() {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    syncEnrollmentState();
    if (deps_.dataMode == DataMode::dummy) {
        if (phase_ == AppPhase::enrolled && !dummyDataLoaded_) {
            if (deps_.loadDummyData) deps_.loadDummyData(*this);
            assign(dummyDataLoaded_, true);
        }
        return;
    }
    // One refresh at a time: a slow one is not joined by another, and the loop's next turn is
    // counted from its end.
    if (refreshJob_) return;
    refreshTimer_.cancel();
    auto api = api_;
    auto fetchVersion = deps_.fetchAppVersion;
    auto sleeper = deps_.sleeper;
    const EarningsRange visible = earningsVisibleRange_;
    std::weak_ptr<AppModel*> alive = alive_;
    Executor* main = &main_;
    refreshJob_ = deps_.backgroundRunner->run([=](std::stop_token stop) {
        AccountRefresh outcome;
        if (fetchVersion) {
            try {
                outcome.appVersion = fetchVersion(stop);
            } catch (const std::exception&) {  // the version check never gets in the way
            }
        }
        if (!api) {
            logger()->info(
                "No coordinator API client (worker not enrolled), skipping authenticated refresh");
        }
        for (int attempt = 1; api && attempt <= dashboardAttempts && !stop.stop_requested();
             ++attempt) {
            std::string failure;
            try {
                outcome.dashboard = api->dashboard(stop);
                bool supplementalFailed = false;
                outcome.month = loadEarningsSnapshot(*api, EarningsRange::month, stop);
                supplementalFailed = !outcome.month;
                if (visible != EarningsRange::month) {
                    if (auto snapshot = loadEarningsSnapshot(*api, visible, stop))
                        outcome.visible = {visible, *snapshot};
                }
                try {
                    outcome.summary = api->earningsSummary(stop);
                } catch (const std::exception& error) {
                    logger()->error("Supplemental dashboard fetch failed for /earnings/summary: {}",
                                    error.what());
                    supplementalFailed = true;
                }
                try {
                    outcome.topJobs = api->topJobs(stop);
                } catch (const std::exception& error) {
                    logger()->error("Supplemental dashboard fetch failed for /jobs/top: {}",
                                    error.what());
                    supplementalFailed = true;
                }
                if (supplementalFailed) {
                    logger()->info(
                        "API refresh completed with supplemental endpoint failures; leaving "
                        "stale-data indicator active");
                } else {
                    outcome.succeeded = true;
                    logger()->info("API refresh succeeded (attempt {})", attempt);
                }
                break;
            } catch (const CoordinatorAPIError& error) {
                if (error.kind() == CoordinatorAPIError::Kind::unauthorized) {
                    logger()->error("401 from coordinator — signing out");
                    outcome.signOut = true;
                    break;
                }
                if (error.isServerError()) {
                    logger()->error("5xx ({}) on attempt {}/{}", error.statusCode(), attempt,
                                    dashboardAttempts);
                    if (attempt < dashboardAttempts) {
                        if (!sleeper->sleep(std::pow(2.0, attempt), stop)) break;
                        continue;
                    }
                } else {
                    logger()->error("Network error refreshing from coordinator: {}", error.what());
                }
                failure = error.what();
            } catch (const std::exception& error) {
                logger()->error("Network error refreshing from coordinator: {}", error.what());
                failure = error.what();
            }
            logger()->error("API refresh failed after retries: {}. Keeping last-good values.",
                            failure);
            break;
        }
        if (stop.stop_requested()) return;
        main->post([alive, outcome = std::move(outcome)] {
            if (auto self = alive.lock()) (*self)->finishRefresh(outcome);
        });
    });
}

void AppModel::finishRefresh(const AccountRefresh& outcome) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    refreshJob_.reset();
    if (outcome.appVersion) applyLatestAppVersion(*outcome.appVersion);
    if (outcome.signOut) {
        signOut();
        return;
    }
    if (!api_) return;  // signed out while the answers were on their way
    if (outcome.dashboard) applyDashboard(*outcome.dashboard);
    if (outcome.month) {
        applyEarningsSnapshot(*outcome.month, EarningsRange::month, true);
        applyDerivedEarningsSummaryFallback(outcome.month->dailyRows, std::nullopt);
    }
    if (outcome.visible) earningsRangeSnapshots_[outcome.visible->first] = outcome.visible->second;
    if (outcome.summary) applyEarningsSummary(*outcome.summary);
    if (outcome.topJobs) setTopJobs(*outcome.topJobs);
    if (outcome.succeeded) assign(lastRefreshAt_, std::optional<Date>(currentDate()));
    refreshStatus(true);  // the coordinator's "busy" counts at once
    if (refreshLoopRunning_) {
        refreshTimer_ = main_.scheduleOnce(accountRefreshSeconds, [this] { refreshFromAPI(); });
    }
}

void AppModel::applyDashboard(const WorkerDashboard& dashboard) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(coordinatorWorkerStatus_,
           dashboard.workerState ? dashboard.workerState->status : std::nullopt);
    assign(heldBalance_, std::optional<double>(dashboard.earningsUSD.held));
    assign(availableBalance_, std::optional<double>(dashboard.earningsUSD.available));
    assign(lifetimeEarnings_, std::optional<double>(dashboard.payoutSummary.totalEarnedUSD));
    assign(payoutHistory_, dashboard.payoutHistory);
    assign(recentActivity_, dashboard.activity);
}

void AppModel::applyEarningsSnapshot(const EarningsRangeSnapshot& snapshot, EarningsRange range,
                                     bool updateCanonicalSeries) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    if (earningsRangeSnapshots_[range] != snapshot) changed_ = true;
    earningsRangeSnapshots_[range] = snapshot;
    if (!updateCanonicalSeries) return;
    assign(earningsLast30Rows_, snapshot.dailyRows);
    assign(earningsLast30_, snapshot.daily);
    assign(earningsHourly_, normalizeHourly(snapshot.hourly));
}

void AppModel::applyDerivedEarningsSummaryFallback(const std::vector<DailyEarning>& rows,
                                                   std::optional<Date> referenceDate) {
    if (rows.empty()) return;
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    const Date ref = referenceDate.value_or(currentDate());
    const std::tm refParts = localParts(ref);
    std::tm yesterdayParts = refParts;
    yesterdayParts.tm_mday -= 1;
    const std::string todayKey = dayKey(ref);
    const std::string yesterdayKey = dayKey(fromLocalParts(yesterdayParts));
    std::optional<double> today, yesterday;
    double month = 0;
    for (auto row = rows.rbegin(); row != rows.rend(); ++row) {
        if (!today && row->date == todayKey) today = row->amountUSD;
        if (!yesterday && row->date == yesterdayKey) yesterday = row->amountUSD;
    }
    for (const auto& row : rows) {
        auto parts = parseDayKey(row.date);
        if (parts && parts->tm_year == refParts.tm_year && parts->tm_mon == refParts.tm_mon)
            month += row.amountUSD;
    }
    const double todayValue = today.value_or(0);
    assign(todayEarnings_, std::optional<double>(roundedToCents(todayValue)));
    assign(deltaVsYesterday_,
           std::optional<double>(roundedToCents(todayValue - yesterday.value_or(0))));
    assign(monthEarnings_, std::optional<double>(roundedToCents(month)));
    assign(monthProjection_, std::optional<double>(roundedToCents(month * daysInMonth(refParts) /
                                                                  std::max(refParts.tm_mday, 1))));
}

void AppModel::applyEarningsSummary(const EarningsSummary& summary) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(todayEarnings_, std::optional<double>(roundedToCents(summary.todayUSD)));
    assign(hourlyEstimateWindowMinutes_,
           summary.recentWindowMinutes ? std::max<std::int64_t>(*summary.recentWindowMinutes, 1)
                                       : std::int64_t{15});
    assign(recentCompletedShards_, summary.recentCompletedShards.value_or(0));
    const std::int64_t minutes = summary.todayWorkMinutes.value_or(summary.todayActiveMinutes);
    std::optional<double> estimate;
    if (summary.recentHourlyUSD) {
        if (recentCompletedShards_ > 0) estimate = roundedToCents(*summary.recentHourlyUSD);
    } else if (recentCompletedShards_ > 0 || minutes > 0) {
        estimate = roundedToCents(summary.todayHourlyUSD);
    }
    assign(hourlyEstimate_, estimate);
    assign(hourlyEstimateUsesRecentWindow_, summary.recentHourlyUSD.has_value());
    assign(activeMinutesToday_, std::optional<std::int64_t>(std::max<std::int64_t>(minutes, 0)));
    assign(jobsCompletedToday_, summary.jobsCompletedToday);
    assign(deltaVsYesterday_, std::optional<double>(roundedToCents(summary.deltaVsYesterdayUSD)));
    assign(monthEarnings_, std::optional<double>(roundedToCents(summary.monthToDateUSD)));
    assign(monthProjection_, std::optional<double>(roundedToCents(summary.monthProjectionUSD)));
}

void AppModel::applyLatestAppVersion(const AppVersion& version) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(latestAppVersion_, std::optional<AppVersion>(version));
    // The banner waits for an installer; nothing is downloaded or replaced.
    assign(updateAvailable_, false);
    if (isVersionNewer(version.version, deps_.appVersion)) {
        logger()->info(
            "update available: {} (running {}) — banner suppressed until auto-update pipeline "
            "lands",
            version.version, deps_.appVersion);
    }
}

void AppModel::setTopJobs(std::vector<JobRecord> jobs) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(topJobs_, std::move(jobs));
}

// --- Earnings ranges and the histogram

void AppModel::selectEarningsRange(EarningsRange range) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    const std::uint64_t generation = ++earningsRangeRequestGeneration_;
    assign(earningsRangeLoading_, true);
    auto finish = [this, range, generation](std::optional<EarningsRangeSnapshot> snapshot) {
        // An older selection answering after a newer one is dropped.
        if (generation != earningsRangeRequestGeneration_) return;
        ChangeBatchGuard inner(batchDepth_, [this] { notifyIfChanged(); });
        if (snapshot) applyEarningsSnapshot(*snapshot, range, range == EarningsRange::month);
        assign(earningsVisibleRange_, range);
        assign(earningsRangeLoading_, false);
    };
    if (deps_.dataMode == DataMode::dummy) {
        finish(deps_.dummyEarningsSnapshot ? deps_.dummyEarningsSnapshot(range) : std::nullopt);
        return;
    }
    if (!api_) {
        finish(std::nullopt);
        return;
    }
    std::weak_ptr<AppModel*> alive = alive_;
    Executor* main = &main_;
    auto previous = std::move(earningsRangeJob_);  // cancelled once the new one is in place
    earningsRangeJob_ =
        deps_.backgroundRunner->run([api = api_, range, alive, main, finish](std::stop_token stop) {
            auto snapshot = loadEarningsSnapshot(*api, range, stop);
            main->post([alive, finish, snapshot = std::move(snapshot)] {
                if (alive.lock()) finish(snapshot);
            });
        });
}

void AppModel::loadActivityHistogram(
    int days,
    std::function<void(std::optional<ActivityHistogramResponse>, std::optional<std::string>)>
        done) {
    if (deps_.dataMode == DataMode::dummy && deps_.dummyActivityHistogram) {
        done(deps_.dummyActivityHistogram(machine_.workerID, days), std::nullopt);
        return;
    }
    auto api =
        api_ ? api_ : (deps_.coordinatorAPIFactory ? deps_.coordinatorAPIFactory() : nullptr);
    if (!api) {
        done(std::nullopt, "Corvane is not enrolled on this computer.");
        return;
    }
    std::weak_ptr<AppModel*> alive = alive_;
    Executor* main = &main_;
    histogramJob_ =
        deps_.backgroundRunner->run([api, workerID = machine_.workerID, days, alive, main,
                                     done = std::move(done)](std::stop_token stop) {
            std::optional<ActivityHistogramResponse> response;
            std::optional<std::string> error;
            try {
                response = api->activityHistogram(workerID, days, stop);
            } catch (const std::exception& failure) {
                error = failure.what();
            }
            if (stop.stop_requested()) return;
            main->post([alive, done, response = std::move(response), error = std::move(error)] {
                if (alive.lock()) done(response, error);
            });
        });
}

void AppModel::retryDownload() {
    if (requests_.requestModelDownloadRetry) requests_.requestModelDownloadRetry();
}

// --- Simple setters

void AppModel::setLastRefreshAt(std::optional<Date> date) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(lastRefreshAt_, std::move(date));
}

void AppModel::setModelDownloadProgress(std::optional<ModelDownloadProgress> progress) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(modelDownloadProgress_, std::move(progress));
}

void AppModel::setInstalledModelIDs(std::unordered_set<ModelIdentifier> identifiers) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(installedModelIDs_, std::move(identifiers));
}

void AppModel::setTemporaryPauseStatusSubtitle(std::optional<std::string> subtitle) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(temporaryPauseStatusSubtitle_, std::move(subtitle));
}

void AppModel::setMachine(MachineInfo machine) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(machine_, std::move(machine));
}

void AppModel::setRequestedPage(std::optional<std::string> page) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(requestedPage_, std::move(page));
}

void AppModel::setWorkerOverrides(std::optional<bool> isWorkerRunning,
                                  std::optional<bool> hasActiveJob) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(isWorkerRunningOverride_, isWorkerRunning);
    assign(hasActiveJobOverride_, hasActiveJob);
}

void AppModel::setCurrentDateOverride(std::optional<Date> date) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(currentDateOverride_, date);
}

void AppModel::setDummySessionSignedOut(bool signedOut) {
    ChangeBatchGuard batch(batchDepth_, [this] { notifyIfChanged(); });
    assign(isDummySessionSignedOut_, signedOut);
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

bool AppModel::coordinatorReportsBusy() const {
    return lowerTrimmed(coordinatorWorkerStatus_) == "busy";
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
    if (presentation_.status == WorkerStatus::paused && !isManuallyPaused_) {
        if (temporaryPauseStatusSubtitle_) return *temporaryPauseStatusSubtitle_;
        const auto& entries = deps_.eligibilityGate->pauseEntries();
        if (!entries.empty()) return entries.front().reason;
    }
    return presentation_.sub;
}

std::optional<std::string> AppModel::inlineStatusExplanation() const {
    return inlineExplanation(presentation_.status, presentation_.label, presentation_.sub);
}

std::optional<double> AppModel::weekEarnings() const {
    if (earningsLast30Rows_.empty()) return std::nullopt;
    const std::size_t count = std::min<std::size_t>(7, earningsLast30Rows_.size());
    return std::accumulate(earningsLast30Rows_.end() - static_cast<std::ptrdiff_t>(count),
                           earningsLast30Rows_.end(), 0.0,
                           [](double sum, const DailyEarning& row) { return sum + row.amountUSD; });
}

EarningsRangeSnapshot AppModel::currentEarningsSnapshot() const {
    if (auto it = earningsRangeSnapshots_.find(earningsVisibleRange_);
        it != earningsRangeSnapshots_.end())
        return it->second;
    if (earningsVisibleRange_ != EarningsRange::month) return {};
    EarningsRangeSnapshot canonical{earningsLast30_, earningsLast30Rows_, earningsHourly_,
                                    std::nullopt};
    if (!earningsLast30Rows_.empty()) {
        if (auto parts = parseDayKey(earningsLast30Rows_.front().date))
            canonical.startDate = fromLocalParts(*parts);
    }
    return canonical;
}

int AppModel::earningsChartTodayIndex() const {
    if (earningsVisibleRange_ == EarningsRange::day)
        return std::min(localParts(currentDate()).tm_hour, 23);
    const auto daily = currentEarningsSnapshot().daily;
    return daily.empty() ? 0 : static_cast<int>(daily.size()) - 1;
}

double AppModel::todayProgress() const {
    const std::tm parts = localParts(currentDate());
    return (parts.tm_hour * 3600 + parts.tm_min * 60 + parts.tm_sec) / 86400.0;
}

double AppModel::currentHourProgress() const {
    const std::tm parts = localParts(currentDate());
    return (parts.tm_min * 60 + parts.tm_sec) / 3600.0;
}

std::vector<WorkerDashboard::ActivityItem> AppModel::recentEstimatedActivity() const {
    const Date now = currentDate();
    const Date from = addSeconds(now, -double(hourlyEstimateWindowMinutes_) * 60);
    std::vector<WorkerDashboard::ActivityItem> out;
    for (const auto& item : recentActivity_) {
        if (item.status != "estimated") continue;
        auto created = AppModelDateParser::parseCoordinatorTimestamp(item.createdAt);
        if (created && *created >= from && *created <= now) out.push_back(item);
    }
    return out;
}

std::optional<double> AppModel::estimatedRecentUnpaidCompletedWork() const {
    const auto items = recentEstimatedActivity();
    double sum = 0;
    for (const auto& item : items) sum += item.payoutUSD;
    if (items.empty() || sum <= 0) return std::nullopt;
    return roundedToCents(sum);
}

std::string AppModel::estimatedRecentUnpaidSummary() const {
    const auto count = recentEstimatedActivity().size();
    if (count == 0) return "Waiting for recent estimated unpaid work";
    return "Estimated from the last " + std::to_string(count) + " completed " + countWord(count) +
           " over " + std::to_string(hourlyEstimateWindowMinutes_) + " min";
}

std::string AppModel::hourlyEstimateCaption() const {
    const std::string minutes = std::to_string(hourlyEstimateWindowMinutes_);
    if (!hourlyEstimate_) return "Waiting for the last " + minutes + " min of completed work";
    if (hourlyEstimateUsesRecentWindow_)
        return "Projected from the last " + minutes + " min of completed work";
    return "Estimated from today's completed work";
}

std::string AppModel::hourlyEstimateShortCaption() const {
    if (!hourlyEstimate_) return "Waiting for recent work";
    if (hourlyEstimateUsesRecentWindow_)
        return "Last " + std::to_string(hourlyEstimateWindowMinutes_) + " min";
    return "Today";
}

std::vector<double> AppModel::normalizeHourly(std::vector<double> hours) {
    if (hours.size() == 24) return hours;
    if (hours.size() < 24) hours.insert(hours.begin(), 24 - hours.size(), 0.0);
    if (hours.size() > 24) hours.erase(hours.begin(), hours.end() - 24);
    return hours;
}

bool AppModel::isVersionNewer(std::string_view version, std::string_view current) {
    auto parse = [](std::string_view text) {
        std::vector<long> parts;
        while (true) {
            const auto dot = text.find('.');
            const std::string piece(text.substr(0, dot));
            char* end = nullptr;
            const long value = std::strtol(piece.c_str(), &end, 10);
            parts.push_back(end && *end == '\0' && !piece.empty() ? value : 0);
            if (dot == std::string_view::npos) break;
            text.remove_prefix(dot + 1);
        }
        return parts;
    };
    const auto a = parse(version);
    const auto b = parse(current);
    for (std::size_t i = 0; i < std::max(a.size(), b.size()); ++i) {
        const long x = i < a.size() ? a[i] : 0;
        const long y = i < b.size() ? b[i] : 0;
        if (x != y) return x > y;
    }
    return false;
}

}  // namespace corvane
