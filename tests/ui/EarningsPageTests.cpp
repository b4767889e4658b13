// The earnings and overview pages as widgets in the dashboard: a click on a range asks the
// coordinator once and the range in force asks nothing; the export button writes where the save
// dialog points or says on the page why it could not; the retry of a failed download reaches the
// model; a status tick that changes no earnings builds no chart again.

#include <gtest/gtest.h>

#include <QLabel>
#include <QPushButton>

#include <map>

#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/ui/dashboard/DashboardWindow.h"
#include "CorvaneApp/ui/dashboard/pages/EarningsPage.h"
#include "CorvaneApp/ui/dashboard/pages/OverviewPage.h"
#include "CorvaneApp/ui/widgets/ChartView.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/PageTestSession.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

constexpr double kReference = 1'781'796'600;  // 2026-06-18 15:30 UTC

// Answers every range with a few days and counts the daily-earnings requests per range.
class CountingAPI final : public CoordinatorAPIProtocol {
  public:
    mutable std::map<std::string, int> dailyRequests;  // "7", "30", "all"

    WorkerDashboard dashboard(std::stop_token) const override { return {}; }
    EarningsSummary earningsSummary(std::stop_token) const override { return {}; }
    std::vector<DailyEarning> dailyEarnings(std::optional<int> days, bool,
                                            std::stop_token) const override {
        ++dailyRequests[days ? std::to_string(*days) : "all"];
        return {{"2026-06-17", 1.25}, {"2026-06-18", 0.5}};
    }
    EarningsByHour hourlyEarnings(std::optional<int>, bool, std::stop_token) const override {
        return {{1, 2, 3}};
    }
    std::vector<JobRecord> topJobs(std::stop_token) const override { return {}; }
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

// An enrolled session over the counting client; settings and defaults in memory.
class TestSession final : public testing::PageTestSession {
  public:
    TestSession(Executor& main, std::shared_ptr<CountingAPI> api)
        : PageTestSession(main),
          store_(main, defaults_, runner_,
                 {{}, [] { return std::optional<double>(0.0); }, DataMode::dummy}) {
        AppModel::Dependencies deps;
        deps.eligibilityGate = EligibilityGate::create(main, true);
        deps.enrollment.coordinatorAPIFactory = [api] { return api; };
        deps.startBackgroundTasks = false;
        deps.backgroundRunner = std::make_shared<InlineBackgroundRunner>();
        deps.now = [] { return dateFromUnixSeconds(kReference); };
        model_ = std::make_unique<AppModel>(main, std::move(deps));
        model_->setCurrentDateOverride(dateFromUnixSeconds(kReference));
    }
    ~TestSession() override { dropNotifications(); }
    void launch() override {}
    void terminate() override { store_.cancelPendingSave(); }
    AppModel& model() override { return *model_; }
    WorkerConfigStore& configStore() override { return store_; }
    UserDefaults& userDefaults() override { return defaults_; }
    WorkerStatusRecord statusRecord() override { return {}; }

  private:
    UserDefaults defaults_;
    InlineBackgroundRunner runner_;
    WorkerConfigStore store_;
    std::unique_ptr<AppModel> model_;
};

class DashboardPagesTest : public ::testing::Test {
  protected:
    DashboardPagesTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        window.setAttribute(Qt::WA_DontShowOnScreen);
        subscription =
            session.model().observe([this](ModelParts parts) { window.modelChanged(parts); });
    }
    ~DashboardPagesTest() override { session.terminate(); }

    EarningsPage& earnings() { return static_cast<EarningsPage&>(window.page(DashPage::earnings)); }
    OverviewPage& overview() { return static_cast<OverviewPage&>(window.page(DashPage::overview)); }
    template <typename T>
    T& find(const char* name) {
        auto* widget = window.findChild<T*>(QString::fromLatin1(name));
        if (!widget) throw std::runtime_error(std::string("no widget ") + name);
        return *widget;
    }
    void show(DashPage page) {
        window.showPage(page);
        window.show();
        executor.runUntilIdle();
    }

    QApplication& app = testing::qtTestApp();  // before any widget of the fixture
    std::shared_ptr<CountingAPI> api = std::make_shared<CountingAPI>();
    testing::ManualExecutor executor;
    TestSession session{executor, api};
    PageContext context{session, executor, [](DashPage) {}, [] {}};
    DashboardWindow window{context};
    Subscription subscription;
};

TEST_F(DashboardPagesTest, ARangeClickAsksOnceAndTheRangeInForceAsksNothing) {
    show(DashPage::earnings);
    EXPECT_TRUE(api->dailyRequests.empty()) << "the month is in force from the start";

    auto& week = find<QPushButton>("earningsRange7d");
    week.click();
    EXPECT_EQ(api->dailyRequests, (std::map<std::string, int>{{"7", 1}}));
    EXPECT_TRUE(week.isChecked());
    EXPECT_FALSE(find<QLabel>("rangeLoading").isHidden()) << "its answer is on its way";
    week.click();  // the same range again, before its answer landed
    EXPECT_EQ(api->dailyRequests["7"], 1);
    executor.runUntilIdle();
    EXPECT_TRUE(find<QLabel>("rangeLoading").isHidden());
    week.click();
    EXPECT_EQ(api->dailyRequests, (std::map<std::string, int>{{"7", 1}}));
    EXPECT_EQ(session.userDefaults().string("cvn.earnings.range"), "7d");
    EXPECT_EQ(session.model().earnings().earningsVisibleRange(), EarningsRange::week);

    find<QPushButton>("earningsRangeAll").click();
    executor.runUntilIdle();
    EXPECT_EQ(api->dailyRequests, (std::map<std::string, int>{{"7", 1}, {"all", 1}}));

    // The remembered range comes back when a new window shows the page: one request.
    session.userDefaults().setString("cvn.earnings.range", "90d");
    DashboardWindow again(context);
    again.setAttribute(Qt::WA_DontShowOnScreen);
    again.showPage(DashPage::earnings);
    again.show();
    executor.runUntilIdle();
    EXPECT_EQ(api->dailyRequests["90"], 1);
    EXPECT_EQ(api->dailyRequests.size(), 3u);
}

TEST_F(DashboardPagesTest, ExportWritesWhereTheDialogPointsOrSaysWhyNot) {
    show(DashPage::earnings);
    testing::ScratchFolder folder;
    std::string offered;
    std::optional<std::string> answer = (folder / "mine.csv").string();
    earnings().setSavePathPicker([&](const std::string& suggested) {
        offered = suggested;
        return answer;
    });
    find<QPushButton>("exportEarningsCSV").click();
    EXPECT_EQ(offered, "corvane-earnings-20260618.csv");
    const auto days = session.model().earnings().currentEarningsSnapshot().daily;
    EXPECT_EQ(readFile(folder / "mine.csv"),
              CSVExporter::earningsCSV(days.empty() ? std::vector<double>(30, 0.0) : days,
                                       dateFromUnixSeconds(kReference)));
    auto& outcome = find<QLabel>("exportOutcome");
    EXPECT_FALSE(outcome.isHidden());
    EXPECT_EQ(outcome.text().toStdString(),
              "Saved 30 days to " + (folder / "mine.csv").string() + ".");

    folder.write("file", "x");
    answer = (folder / "file" / "e.csv").string();
    find<QPushButton>("exportEarningsCSV").click();
    EXPECT_EQ(outcome.text().toStdString(), "Couldn't save e.csv: Not a directory.");
    EXPECT_EQ(outcome.property("role").toString(), QStringLiteral("error"));

    answer.reset();  // cancelled: nothing written, nothing said
    outcome.clear();
    find<QPushButton>("exportEarningsCSV").click();
    EXPECT_TRUE(outcome.text().isEmpty());
}

TEST_F(DashboardPagesTest, AStatusTickBuildsNoChartAndRetryReachesTheModel) {
    int retries = 0;
    AppModel::Requests requests;
    requests.requestModelDownloadRetry = [&] { ++retries; };
    session.model().setRequests(std::move(requests));
    show(DashPage::overview);
    const int memory = overview().memoryChart().rebuildCount();
    const int cpu = overview().cpuChart().rebuildCount();
    EXPECT_GE(memory, 1);

    for (auto status : {WorkerStatus::earning, WorkerStatus::idle, WorkerStatus::paused})
        session.model().setStatusPresentation(WorkerStatusPresentation::defaultFor(status));
    EXPECT_EQ(find<QLabel>("statusLabel").text(), QStringLiteral("Paused"));
    EXPECT_EQ(overview().memoryChart().rebuildCount(), memory);
    EXPECT_EQ(overview().cpuChart().rebuildCount(), cpu);

    session.model().modelInstall().setModelDownloadProgress(
        ModelDownloadProgress{"Whisper large-v3 turbo", ModelDownloadProgress::Failed{"lost"}});
    auto& retry = find<QPushButton>("retryDownload");
    ASSERT_FALSE(retry.isHidden());
    retry.click();
    EXPECT_EQ(retries, 1);
    session.model().modelInstall().setModelDownloadProgress(std::nullopt);
    EXPECT_FALSE(retry.isVisibleTo(&window)) << "the card goes with the download";
    EXPECT_EQ(overview().memoryChart().rebuildCount(), memory);

    // The earnings page: a status tick redraws neither chart either.
    show(DashPage::earnings);
    const int area = earnings().areaChart().rebuildCount();
    const int bars = earnings().hourBars().rebuildCount();
    session.model().setStatusPresentation(WorkerStatusPresentation::defaultFor(WorkerStatus::idle));
    EXPECT_EQ(earnings().areaChart().rebuildCount(), area);
    EXPECT_EQ(earnings().hourBars().rebuildCount(), bars);
}

}  // namespace
}  // namespace corvane
