// The frame's words and numbers as the windows show them, from the sample session at a fixed
// moment, in two time zones; and the small formatters every page shares.

#include <gtest/gtest.h>

#include <cstdlib>

#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/Formatting.h"
#include "CorvaneApp/dashboard/PopoverState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

TEST(Formatting, TheSharedTextsAtTheirEdges) {
    const std::vector<std::pair<std::optional<std::int64_t>, std::string>> active{
        {std::nullopt, "—"},
        {0, "0 min"},
        {59, "59 min"},
        {60, "1 hr"},
        {61, "1 hr 1 min"},
        {1440, "1 day"},
        {1440 + 125, "1 day 2 hr"},
        {-5, "0 min"}};
    for (const auto& [minutes, text] : active) EXPECT_EQ(formatActiveTime(minutes), text);
    EXPECT_EQ(formattedDelta(0), "+$0.00");
    EXPECT_EQ(formattedDelta(-0.25), "−$0.25");
    EXPECT_EQ(formattedDelta(12.345), "+$12.35");
    EXPECT_EQ(formatUSD(1234.5), "$1,234.50");
    EXPECT_EQ(formatUSD(-0.004), "$0.00") << "no minus on a rounded zero";
    EXPECT_EQ(formatUSD(std::optional<double>()), "—");
    EXPECT_EQ(byteProgressSubtitle(655'000'000, 1'600'000'000, 0.409), "40% · 655 MB / 1.6 GB");
    EXPECT_EQ(byteProgressSubtitle(655'000'000, std::nullopt, 0.5), "655 MB")
        << "no total: the bytes alone";
    EXPECT_EQ(byteProgressSubtitle(0, 0, std::nullopt), "0 MB");
    EXPECT_EQ(footerActions(false).size(), 1u);
    EXPECT_EQ(footerActions(true).front().title, "Open dashboard");
    EXPECT_EQ(footerActions(false).front(),
              (FooterAction{FooterAction::Kind::quit, "power", "Quit"}));
}

TEST(CSVExporterTest, QuotesOnlyWhatMustAndKeepsAPointInEveryLocale) {
    EXPECT_EQ(CSVExporter::csvField("ACH, primary"), "\"ACH, primary\"");
    EXPECT_EQ(CSVExporter::csvField("a\"b"), "\"a\"\"b\"");
    EXPECT_EQ(CSVExporter::csvField("line\nbreak"), "\"line\nbreak\"");
    EXPECT_EQ(CSVExporter::csvField("plain"), "plain");

    ::setenv("TZ", "UTC", 1);
    ::tzset();
    const char* previous = std::setlocale(LC_NUMERIC, "de_DE.UTF-8");
    const Date today = dateFromUnixSeconds(1'781'796'600);  // 2026-06-18
    EXPECT_EQ(CSVExporter::earningsCSV({1.5, 0.12345}, today),
              "Date,Amount USD\r\n2026-06-17,1.5000\r\n2026-06-18,0.1235\r\n");
    WorkerDashboard::PayoutDisbursement payout;
    payout.payoutEventId = "a\"b";
    payout.amountCents = 1234;
    payout.method = "ACH, primary";
    EXPECT_EQ(CSVExporter::payoutsCSV({payout, {}}),
              "Date,Settled,Method,Reference,Amount USD,Status\r\n"
              ",,\"ACH, primary\",\"a\"\"b\",12.3400,\r\n,,,,,\r\n");
    if (previous) std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(CSVExporter::suggestedFileName("earnings", today), "corvane-earnings-20260618.csv");
}

// The popover of every popover scene, and the frame's states, in two time zones.
class ShellStateTest : public ::testing::TestWithParam<const char*> {
  protected:
    ShellStateTest() {
        ::setenv("TZ", GetParam(), 1);
        ::tzset();
        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(1'781'796'600);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        options.sessionElapsed = [] { return 10.0; };
        session.emplace(executor, std::move(options));
        session->launch();
    }
    ~ShellStateTest() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    AppModel& apply(std::string_view id) {
        applyScreenshotScenario(*findScreenshotScenario(id), *session);
        executor.runUntilIdle();
        return session->model();
    }

    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
};

TEST_P(ShellStateTest, ThePopoverSaysWhatTheStatusIsAndOffersWhatItAllows) {
    struct Row {
        const char* scene;
        const char* label;
        const char* line;
        std::vector<std::string> actions;
    };
    const std::vector<Row> rows{
        {"popover-earning", "Earning", "Processing work", {"Pause"}},
        {"popover-paused", "Paused", "Paused by you", {"Resume"}},
        {"popover-scheduled",
         "Off-hours",
         "Outside schedule window",
         {"Pause", "Schedule & limits…"}},
        {"popover-throttled", "Throttled", "CPU cap reached", {"Pause", "Schedule & limits…"}},
        {"popover-offline", "Offline", "No internet connection", {"Pause"}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.scene);
        const auto state = popoverState(apply(row.scene));
        EXPECT_FALSE(state.preOnboarding);
        EXPECT_EQ(state.statusLabel, row.label);
        EXPECT_EQ(state.statusLine, row.line);
        std::vector<std::string> titles;
        for (const auto& action : state.actions) titles.push_back(action.title);
        EXPECT_EQ(titles, row.actions);
        EXPECT_EQ(state.footer, footerActions(true));
    }
    // The demo machine: 12 cores and 32 GB, Corvane at 42% of the machine's CPU at most.
    const auto state = popoverState(session->model());
    ASSERT_EQ(state.cpuBars.size(), 2u);
    EXPECT_EQ(state.cpuBars[0].label, "Corvane");
    EXPECT_GT(state.cpuBars[0].fraction, 0.3);
    EXPECT_LT(state.cpuBars[0].fraction, 0.6);
    EXPECT_EQ(state.barsNote,
              "CPU bars use process CPU (100% = one core). RAM bars show Corvane resident memory "
              "and the measured machine memory remainder out of 32 GB.");
    EXPECT_EQ(state.todayEarnings.substr(0, 1), "$");
}

TEST_P(ShellStateTest, DownloadsPausesAndTheWelcomeReachTheFrame) {
    AppModel& model = apply("models-downloading");
    const auto downloading = downloadRowState(model);
    ASSERT_TRUE(downloading);
    EXPECT_EQ(downloading->title, "Whisper large-v3 turbo");
    // The scene stands at 41% of the catalogue size in whole bytes, a hair under 41%: progress is
    // truncated, never ahead.
    EXPECT_TRUE(downloading->subtitle.starts_with("40% · ")) << downloading->subtitle;
    EXPECT_FALSE(downloading->failed);
    apply("models-download-failed");
    const auto failed = popoverState(model);
    ASSERT_TRUE(failed.download);
    EXPECT_EQ(failed.download->subtitle, "Model download failed: The network connection was lost.");
    EXPECT_EQ(failed.actions.back().kind, StatusAction::Kind::retryDownload);
    apply("models-ready");
    EXPECT_FALSE(downloadRowState(model)) << "a ready model shows no row";

    // Someone else's pause can't be lifted from the tray.
    session->eligibilityGate().pause("Paused — meeting in progress");
    model.refreshStatus(true);
    const auto tray = trayMenuState(model);
    EXPECT_EQ(tray.statusLine, "Paused — Paused — meeting in progress");
    ASSERT_TRUE(tray.pauseAction);
    EXPECT_FALSE(tray.pauseAction->enabled);

    model.signOut();
    const auto welcome = popoverState(model);
    ASSERT_TRUE(welcome.preOnboarding);
    EXPECT_EQ(welcome.preOnboarding->title, "Welcome to Corvane");
    EXPECT_EQ(trayMenuState(model).pauseAction, std::nullopt);
    const auto sidebar = sidebarState(model, DashPage::schedule);
    ASSERT_EQ(sidebar.pages.size(), 6u);
    EXPECT_EQ(sidebar.pages[3].title, "Schedule & limits");
    EXPECT_TRUE(sidebar.pages[3].selected);
    EXPECT_EQ(dashboardWindowTitle(DashPage::models), "Corvane — Models");
    EXPECT_EQ(dashPageFromDefault("payouts"), DashPage::payouts);
    EXPECT_EQ(dashPageFromDefault("bogus"), DashPage::overview);
}

INSTANTIATE_TEST_SUITE_P(Zones, ShellStateTest, ::testing::Values("UTC", "America/Los_Angeles"),
                         [](const auto& info) {
                             return std::string(info.param[0] == 'U' ? "UTC" : "LosAngeles");
                         });

}  // namespace
}  // namespace corvane
