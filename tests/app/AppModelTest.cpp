// The app model driven by hand: a fake clock and executor, account answers scripted per call,
// background bodies run when the test says, and the worker's snapshot set as its events would.

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/AppModelDateParser.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualBackgroundRunner.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using S = WorkerStatus;
using Kind = CoordinatorAPIError::Kind;

WorkerDashboard dashboardWith(std::string workerStatus, double held) {
    WorkerDashboard dashboard;
    dashboard.workerId = "wk_1";
    dashboard.workerState = WorkerDashboard::WorkerState{std::move(workerStatus), {}, {}};
    dashboard.earningsUSD = {held, 1.0, held + 1};
    dashboard.payoutSummary.totalEarnedUSD = 42.5;
    return dashboard;
}

// Each call takes the next scripted answer, or gives a plain default when none is left.
class FakeAPI final : public CoordinatorAPIProtocol {
  public:
    template <typename T>
    using Script = std::deque<std::function<T()>>;
    mutable Script<WorkerDashboard> dashboards;
    mutable Script<std::vector<JobRecord>> topJobAnswers;
    mutable int dashboardCalls = 0;
    std::vector<DailyEarning> rows{{"2026-06-01", 1.0}};

    template <typename T>
    static T next(Script<T>& script, T fallback) {
        if (script.empty()) return fallback;
        auto answer = script.front();
        script.pop_front();
        return answer();
    }
    WorkerDashboard dashboard(std::stop_token) const override {
        ++dashboardCalls;
        return next(dashboards, dashboardWith("idle", 5));
    }
    EarningsSummary earningsSummary(std::stop_token) const override {
        EarningsSummary summary;
        summary.todayUSD = 3.456;
        summary.jobsCompletedToday = 4;
        return summary;
    }
    std::vector<DailyEarning> dailyEarnings(std::optional<int>, bool,
                                            std::stop_token) const override {
        return rows;
    }
    EarningsByHour hourlyEarnings(std::optional<int>, bool, std::stop_token) const override {
        return {{1, 2, 3}};
    }
    std::vector<JobRecord> topJobs(std::stop_token) const override {
        return next(topJobAnswers, {{"job-1", 60, 0.5, {}, {}}});
    }
    WorkerPayoutMethodsResponse payoutMethods(std::stop_token) const override { return {}; }
    void addPayoutMethod(const AddPayoutMethodRequest&, std::stop_token) const override {}
    void setPrimaryPayoutMethod(const std::string&, std::stop_token) const override {}
    void removePayoutMethod(const std::string&, std::stop_token) const override {}
    PayoutPreferences putPayoutPrefs(const std::string&, const std::string&,
                                     std::stop_token) const override {
        return {};
    }
    ActivityHistogramResponse activityHistogram(const std::string&, int,
                                                std::stop_token) const override {
        return {};
    }
};

// Records each wait and lets the fake clock pass it at once.
class RecordingSleeper final : public SleepProvider {
  public:
    explicit RecordingSleeper(testing::FakeClock& clock) : clock_(clock) {}
    bool sleep(double seconds, std::stop_token stop) override {
        waits.push_back(seconds);
        clock_.advance(seconds);
        return !stop.stop_requested();
    }
    std::vector<double> waits;

  private:
    testing::FakeClock& clock_;
};

class AppModelTest : public ::testing::Test {
  protected:
    AppModelTest() {
        setenv("TZ", "UTC", 1);  // calendar days of the fixtures are UTC days
        tzset();
        clock.set(dateFromUnixSeconds(1'780'300'800));  // 2026-06-01 08:00 UTC
    }

    AppModel& makeModel() {
        AppModel::Dependencies deps;
        deps.eligibilityGate = gate;
        deps.runtimeState = [this]() -> std::optional<std::pair<RuntimeState, Date>> {
            if (!stateFile) return std::nullopt;
            return std::pair{*stateFile, clock.now()};
        };
        deps.enrollment.coordinatorAPIFactory = [this] { return enrolled ? api : nullptr; };
        deps.fetchAppVersion = [](std::stop_token) {
            return AppVersion{"0.3.0", {}, "https://d", {}};
        };
        deps.buildMachineInfo = [] { return MachineInfo{}; };
        deps.enrollment.clear = [this] { enrolled = false; };
        deps.backgroundRunner = runner;
        deps.sleeper = sleeper;
        deps.now = clock.function();
        deps.heavyAppSampler = heavySampler;
        deps.pauseOnHeavyApp = heavySetting;
        model.emplace(executor, std::move(deps));
        AppModel::Requests requests;
        requests.requestWorkerStart = [this] { ++workerStarts; };
        requests.onSignedOut = [this] { ++signOuts; };
        model->setRequests(std::move(requests));
        model->setWorkerSnapshotSource([this] { return worker; });
        subscription = model->observe([this](ModelParts) {
            if (labels.empty() || labels.back() != model->statusLabel())
                labels.push_back(model->statusLabel());
        });
        return *model;
    }

    // Runs the background refresh and lets its answer land on the main sequence.
    void runRefresh() {
        ASSERT_TRUE(runner->runNext());
        executor.runUntilIdle();
    }

    testing::FakeClock clock;
    testing::ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::shared_ptr<testing::ManualBackgroundRunner> runner =
        std::make_shared<testing::ManualBackgroundRunner>();
    std::shared_ptr<RecordingSleeper> sleeper = std::make_shared<RecordingSleeper>(clock);
    std::shared_ptr<FakeAPI> api = std::make_shared<FakeAPI>();
    bool enrolled = false;
    std::optional<WorkerControllerSnapshot> worker;
    std::optional<RuntimeState> stateFile;
    int workerStarts = 0;
    int signOuts = 0;
    std::vector<std::string> labels;
    std::shared_ptr<HeavyAppDetector::Sampling> heavySampler;  // none: no heavy-application pause
    std::function<bool()> heavySetting;
    std::optional<AppModel> model;
    Subscription subscription;
};

TEST_F(AppModelTest, AScriptedDayOfWorkerEventsAndAccountReplies) {
    testing::LogCapture logs;
    auto& m = makeModel();
    EXPECT_EQ(m.presentation(), WorkerStatusPresentation::defaultFor(S::notEnrolled));

    enrolled = true;  // onboarding wrote the config and the token
    executor.advance(2);
    EXPECT_EQ(m.phase(), AppPhase::enrolled);
    EXPECT_EQ(workerStarts, 1);
    EXPECT_EQ(runner->pendingCount(), 1u) << "the first account refresh starts at once";
    m.modelInstall().setModelDownloadProgress(
        ModelDownloadProgress{"Whisper large-v3 turbo", ModelDownloadProgress::Downloading{}});
    executor.advance(2);
    EXPECT_EQ(m.statusSub(), "Fetching weights — worker starts after download");

    m.modelInstall().setModelDownloadProgress(std::nullopt);
    worker = WorkerControllerSnapshot{};
    worker->isRunning = true;
    runRefresh();
    EXPECT_EQ(m.account().heldBalance(), 5);
    EXPECT_EQ(m.account().lifetimeEarnings(), 42.5);
    EXPECT_EQ(m.earnings().todayEarnings(), 3.46)
        << "the summary overrides the rows' fallback, in cents";
    EXPECT_EQ(m.earnings().earningsHourly().size(), 24u);
    EXPECT_EQ(m.account().topJobs().size(), 1u);
    EXPECT_EQ(m.account().lastRefreshAt(), clock.now());
    EXPECT_EQ(m.account().latestAppVersion()->version, "0.3.0");
    EXPECT_FALSE(m.account().updateAvailable()) << "no banner without an installer";
    EXPECT_EQ(m.statusLabel(), "Idle");

    worker->currentJobID = "job-1";  // shardClaimed
    executor.advance(2);
    worker->currentJobID.reset();  // shardCompleted, and the schedule closes right after
    gate->setScheduledOn(false, "schedule off");
    executor.advance(10);
    EXPECT_EQ(m.statusLabel(), "Earning") << "inside the 15 s grace";
    executor.advance(8);
    EXPECT_EQ(m.statusLabel(), "Outside schedule window");
    gate->setScheduledOn(true);

    // The next turn, 60 s after the last refresh ended: two 5xx, then an answer.
    api->dashboards = {[]() -> WorkerDashboard { throw CoordinatorAPIError::httpError(503); },
                       []() -> WorkerDashboard { throw CoordinatorAPIError::httpError(502); },
                       [] { return dashboardWith("busy", 6); }};
    executor.advance(44);
    runRefresh();
    EXPECT_EQ(sleeper->waits, (std::vector<double>{2, 4}));
    EXPECT_TRUE(logs.contains("API refresh succeeded (attempt 3)"));
    EXPECT_EQ(m.account().heldBalance(), 6);
    EXPECT_EQ(m.statusLabel(), "Earning") << "the coordinator says the worker is busy";

    // A lost network keeps every last good value and doesn't retry.
    const auto refreshedAt = m.account().lastRefreshAt();
    api->dashboards = {
        []() -> WorkerDashboard { throw CoordinatorAPIError::networkError("offline"); }};
    api->dashboardCalls = 0;
    executor.advance(60);
    runRefresh();
    EXPECT_EQ(api->dashboardCalls, 1);
    EXPECT_EQ(m.account().heldBalance(), 6);
    EXPECT_EQ(m.account().lastRefreshAt(), refreshedAt);
    EXPECT_TRUE(
        logs.contains("API refresh failed after retries: offline. Keeping last-good values."));

    // The owner pauses, then resumes while the state file still says paused.
    api->dashboards = {[] { return dashboardWith("idle", 6); }};
    executor.advance(60);
    runRefresh();
    executor.advance(16);
    EXPECT_EQ(m.statusLabel(), "Idle") << "once the busy grace has passed";
    m.togglePause();
    EXPECT_EQ(m.statusLabel(), "Paused");
    EXPECT_FALSE(gate->isEligible());
    stateFile = RuntimeState{};
    stateFile->eligibility = EligibilityState{};
    stateFile->eligibility->reason = " Paused ";
    m.togglePause();
    executor.advance(2);
    EXPECT_EQ(m.statusLabel(), "Idle");
    EXPECT_TRUE(gate->isEligible());

    // A rejected token on the dashboard signs out; the values of the session go.
    api->dashboards = {[]() -> WorkerDashboard { throw CoordinatorAPIError::unauthorized(); }};
    executor.advance(60);
    runRefresh();
    EXPECT_EQ(signOuts, 1);
    EXPECT_FALSE(enrolled) << "config and token were cleared";
    EXPECT_EQ(m.account().heldBalance(), std::nullopt);
    executor.advance(2);
    EXPECT_EQ(m.phase(), AppPhase::notEnrolled);

    EXPECT_EQ(labels, (std::vector<std::string>{"Offline", "Downloading model", "Idle", "Earning",
                                                "Outside schedule window", "Idle", "Earning",
                                                "Idle", "Paused", "Idle", "Not enrolled"}));
}

TEST_F(AppModelTest, RefreshesNeverOverlapAndSupplementalFailuresLeaveDataStale) {
    enrolled = true;
    auto& m = makeModel();
    ASSERT_EQ(runner->pendingCount(), 1u);
    // The reply takes minutes; neither the loop nor a screen asks again meanwhile.
    executor.advance(300);
    m.refreshFromAPIIfStale(15);
    m.refreshFromAPI();
    EXPECT_EQ(runner->pendingCount(), 1u);
    EXPECT_TRUE(m.isRefreshing());

    api->topJobAnswers = {
        []() -> std::vector<JobRecord> { throw CoordinatorAPIError::unauthorized(); }};
    runRefresh();
    EXPECT_EQ(signOuts, 0) << "a 401 on a supplemental endpoint is only its own failure";
    EXPECT_EQ(m.account().heldBalance(), 5) << "the dashboard's values still land";
    EXPECT_EQ(m.account().lastRefreshAt(), std::nullopt) << "but the data stays marked stale";
    EXPECT_EQ(runner->pendingCount(), 0u);
    executor.advance(59);
    EXPECT_EQ(runner->pendingCount(), 0u);
    executor.advance(1);
    EXPECT_EQ(runner->pendingCount(), 1u) << "the next turn comes 60 s after the last one ended";

    api->dashboards = {
        []() -> WorkerDashboard { throw CoordinatorAPIError::httpError(404, "gone"); }};
    runRefresh();
    EXPECT_EQ(api->dashboardCalls, 2) << "a 4xx is not retried";
    EXPECT_TRUE(sleeper->waits.empty());

    // Three 5xx keep the last good values.
    for (int i = 0; i < 3; ++i)
        api->dashboards.push_back(
            []() -> WorkerDashboard { throw CoordinatorAPIError::httpError(500); });
    executor.advance(60);
    runRefresh();
    EXPECT_EQ(sleeper->waits, (std::vector<double>{2, 4}));
    EXPECT_EQ(m.account().heldBalance(), 5);

    // A refresh still out when the owner signs out is dropped with its answer.
    executor.advance(60);
    ASSERT_EQ(runner->pendingCount(), 1u);
    m.signOut();
    EXPECT_TRUE(runner->nextIsCancelled());
    runRefresh();
    EXPECT_EQ(m.account().heldBalance(), std::nullopt);
}

// Screens re-render per part: a refresh that brings new balances and nothing else must name
// exactly that part, once.
TEST_F(AppModelTest, ARefreshThatChangesOnlyBalancesNotifiesTheAccountPartOnce) {
    enrolled = true;
    auto& m = makeModel();
    runRefresh();
    std::vector<ModelParts> notifications;
    auto watch = m.observe([&](ModelParts parts) { notifications.push_back(parts); });
    executor.advance(60);
    EXPECT_TRUE(notifications.empty()) << "local refreshes changed nothing";
    api->dashboards = {[] { return dashboardWith("idle", 9); }};
    runRefresh();
    EXPECT_EQ(notifications, std::vector<ModelParts>{{ModelPart::account}});
    EXPECT_EQ(m.account().heldBalance(), 9);

    notifications.clear();  // the same answers at the same moment: nothing to tell
    api->dashboards = {[] { return dashboardWith("idle", 9); }};
    m.refreshFromAPI();
    runRefresh();
    EXPECT_TRUE(notifications.empty());
}

// The frontmost application as the test sets it.
class ScriptedForeground final : public HeavyAppDetector::Sampling {
  public:
    std::optional<HeavyAppDetector::ForegroundAppSample> sample;
    std::optional<HeavyAppDetector::ForegroundAppSample> sampleForegroundApp() override {
        return sample;
    }
};

TEST_F(AppModelTest, AHeavyFrontApplicationPausesTheWorkerUntilTheOwnerSaysOtherwise) {
    auto foreground = std::make_shared<ScriptedForeground>();
    foreground->sample = HeavyAppDetector::ForegroundAppSample{4242, "blender", "Blender", 80, 10};
    bool pauseOnHeavyApp = true;
    enrolled = true;
    heavySampler = foreground;
    heavySetting = [&] { return pauseOnHeavyApp; };
    AppModel& m = makeModel();
    const std::string reason = HeavyAppDetector::pauseDescription(*foreground->sample);
    const double window = HeavyAppDetector::sampleInterval * (HeavyAppDetector::windowSize - 1);

    m.togglePause();  // while the owner's own pause holds, nothing is sampled
    executor.advance(window);
    EXPECT_EQ(gate->pauseReasons(), std::vector<std::string>{"manual pause"});
    m.togglePause();
    executor.advance(window);
    EXPECT_EQ(gate->pauseReasons(), std::vector<std::string>{reason});
    EXPECT_EQ(m.pauseControl().temporaryPauseStatusSubtitle(), reason);
    EXPECT_EQ(m.statusSubtitle(), reason);
    EXPECT_FALSE(m.isPauseActionEnabled()) << "someone else's pause is not the owner's to lift";

    pauseOnHeavyApp = false;  // switched off in the settings: released at the next local refresh
    executor.advance(AppModel::localRefreshSeconds);
    EXPECT_FALSE(gate->isTemporarilyPaused());
    EXPECT_EQ(m.pauseControl().temporaryPauseStatusSubtitle(), std::nullopt);
}

TEST_F(AppModelTest, EarningsFiguresCaptionsAndRanges) {
    enrolled = true;
    auto& m = makeModel();
    EarningsSummary summary;
    summary.recentHourlyUSD = 1.234;
    summary.recentCompletedShards = 0;
    m.earnings().applyEarningsSummary(summary);
    EXPECT_EQ(m.earnings().hourlyEstimate(), std::nullopt);
    EXPECT_TRUE(m.earnings().hourlyEstimateUsesRecentWindow());
    EXPECT_EQ(m.earnings().hourlyEstimateCaption(),
              "Waiting for the last 15 min of completed work");
    summary.recentCompletedShards = 2;
    summary.recentWindowMinutes = 0;
    m.earnings().applyEarningsSummary(summary);
    EXPECT_EQ(m.earnings().hourlyEstimate(), 1.23);
    EXPECT_EQ(m.earnings().hourlyEstimateShortCaption(), "Last 1 min")
        << "the window is at least a minute";
    summary.recentHourlyUSD.reset();
    summary.todayHourlyUSD = 0.5;
    summary.todayWorkMinutes = -3;
    m.earnings().applyEarningsSummary(summary);
    EXPECT_EQ(m.earnings().hourlyEstimateCaption(), "Estimated from today's completed work");
    EXPECT_EQ(m.earnings().activeMinutesToday(), 0);

    // Rows of May and June; "today" is 2026-06-01.
    m.earnings().applyDerivedEarningsSummaryFallback(
        {{"2026-05-30", 2}, {"2026-05-31", 1.005}, {"2026-06-01", 3.333}}, m.currentDate());
    EXPECT_EQ(m.earnings().todayEarnings(), 3.33);
    EXPECT_EQ(m.earnings().deltaVsYesterday(), 2.33);
    EXPECT_EQ(m.earnings().monthEarnings(), 3.33);
    EXPECT_EQ(m.earnings().monthProjection(), 99.99) << "3.333 x 30 days / day 1";

    EXPECT_EQ(EarningsState::normalizeHourly(std::vector<double>(23, 1)).front(), 0);
    auto thirty = std::vector<double>(30, 0);
    thirty[6] = 7;
    EXPECT_EQ(EarningsState::normalizeHourly(thirty).front(), 7);
    EXPECT_EQ(EarningsState::normalizeHourly({}), std::vector<double>(24, 0));

    // The week is picked, then the quarter; the week's late answer is dropped.
    runRefresh();
    m.selectEarningsRange(EarningsRange::week);
    m.selectEarningsRange(EarningsRange::quarter);
    EXPECT_TRUE(m.earnings().earningsRangeLoading());
    ASSERT_TRUE(runner->runNext());
    executor.runUntilIdle();
    EXPECT_EQ(m.earnings().earningsVisibleRange(), EarningsRange::month);
    runRefresh();
    EXPECT_EQ(m.earnings().earningsVisibleRange(), EarningsRange::quarter);
    EXPECT_FALSE(m.earnings().earningsRangeLoading());
    EXPECT_EQ(m.earnings().weekEarnings(), 1.0);
}

TEST(AppModelDates, CoordinatorTimestampsInTheirAcceptedForms) {
    const auto base = dateFromUnixSeconds(1'780'300'800);  // 2026-06-01 08:00:00 UTC
    const std::vector<std::pair<const char*, std::optional<Date>>> rows{
        {"2026-06-01T08:00:00Z", base},
        {"2026-06-01T08:00:00.250Z", addSeconds(base, 0.25)},
        {"2026-06-01T10:00:00+02:00", base},
        {"2026-06-01 08:00:00", base},
        {"2026-06-01 09:30:00+0130", base},
        {"2026-06-01 00:00:00-0800", base},
        {"2026-06-01", std::nullopt},
        {"2026-02-30 08:00:00", std::nullopt},
        {"2026-06-01 08:00:00+01:00", std::nullopt},
        {"2026-06-01 08:00:00 UTC", std::nullopt},
        {"01/06/2026 08:00", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [text, expected] : rows) {
        EXPECT_EQ(AppModelDateParser::parseCoordinatorTimestamp(text), expected) << text;
    }
    EXPECT_TRUE(AccountState::isVersionNewer("1.10", "1.9.9"));
    EXPECT_FALSE(AccountState::isVersionNewer("1.2", "1.2.0"));
    EXPECT_FALSE(AccountState::isVersionNewer("1.2", "1.10"));
}

}  // namespace
}  // namespace corvane
