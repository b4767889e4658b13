// The earnings range selection (remembered, a refresh only for a range not already in force), and
// the CSV export: quoting, CR LF, a point under a locale that writes a comma, and a save that
// fails without touching the file that was there.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/EarningsPageState.h"
#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/dashboard/Formatting.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

constexpr double kReference = 1'781'796'600;  // 2026-06-18 15:30 UTC

class EarningsExportTest : public ::testing::Test {
  protected:
    EarningsExportTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(kReference);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        session.emplace(executor, std::move(options));
        session->launch();
        applyScreenshotScenario(*findScreenshotScenario("earnings-default"), *session);
        executor.runUntilIdle();
    }
    AppModel& model() { return session->model(); }
    std::string read(const std::filesystem::path& path) {
        return readFile(path).value_or("<none>");
    }

    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
    testing::ScratchFolder folder;
};

TEST_F(EarningsExportTest, ARangeAlreadyInForceStartsNoRefresh) {
    UserDefaults& defaults = session->userDefaults();
    EarningsRangeSelection selection(model(), defaults);
    EXPECT_EQ(selection.read(), "30d");
    EXPECT_FALSE(selection.write("30d")) << "the month is in force from the start";
    EXPECT_FALSE(model().earnings().earningsRangeLoading());
    EXPECT_EQ(defaults.string("cvn.earnings.range"), "30d");

    EXPECT_TRUE(selection.write("7d"));
    EXPECT_TRUE(model().earnings().earningsRangeLoading());
    EXPECT_EQ(selection.read(), "7d") << "the range asked is in force while it loads";
    EXPECT_FALSE(selection.write("7d")) << "asked again before its answer: nothing new";
    executor.runUntilIdle();
    EXPECT_EQ(model().earnings().earningsVisibleRange(), EarningsRange::week);
    EXPECT_FALSE(selection.write("7d"));
    EXPECT_EQ(defaults.string("cvn.earnings.range"), "7d");

    EXPECT_TRUE(selection.write("bogus")) << "an unknown label is the month";
    executor.runUntilIdle();
    EXPECT_EQ(selection.read(), "30d");
    EXPECT_EQ(defaults.string("cvn.earnings.range"), "30d");

    // A page shown again brings the remembered range back, once.
    defaults.setString("cvn.earnings.range", "90d");
    EarningsRangeSelection fresh(model(), defaults);
    EXPECT_TRUE(fresh.restore());
    EXPECT_FALSE(fresh.restore());
    executor.runUntilIdle();
    EXPECT_EQ(model().earnings().earningsVisibleRange(), EarningsRange::quarter);
    defaults.remove("cvn.earnings.range");
    EXPECT_FALSE(EarningsRangeSelection(model(), defaults).restore()) << "nothing remembered";
}

TEST_F(EarningsExportTest, TheExportWritesTheChartsDaysAndSaysWhere) {
    const auto path = folder / "corvane-earnings-20260618.csv";
    const auto outcome = exportEarningsCSV(model(), path);
    EXPECT_EQ(outcome, (ExportOutcome{"Saved 30 days to " + path.string() + ".", false}));
    const auto days = model().earnings().currentEarningsSnapshot().daily;
    ASSERT_EQ(days.size(), 30u);
    const std::string csv = read(path);
    EXPECT_EQ(csv, CSVExporter::earningsCSV(days, dateFromUnixSeconds(kReference)));
    EXPECT_TRUE(csv.starts_with("Date,Amount USD\r\n2026-05-20,")) << csv.substr(0, 40);
    EXPECT_TRUE(csv.ends_with("\r\n"));
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 31);
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\r'), 31) << "every line ends in CR LF";

    // A folder that is a file: the page says so.
    folder.write("not-a-folder", "x");
    const auto refused = exportEarningsCSV(model(), folder / "not-a-folder" / "e.csv");
    EXPECT_EQ(refused, (ExportOutcome{"Couldn't save e.csv: Not a directory.", true}));
}

TEST_F(EarningsExportTest, AFailedSaveLeavesTheOldFileAsItWas) {
    const auto path = folder.write("earnings.csv", "Date,Amount USD\r\n2026-01-01,1.0000\r\n");
    // The file system refuses more than 40 bytes per file, as a full disk would (root ignores
    // permissions, a size limit it does not).
    struct sigaction ignore {
    }, previousAction{};
    ignore.sa_handler = SIG_IGN;
    ::sigaction(SIGXFSZ, &ignore, &previousAction);
    rlimit previous{};
    ::getrlimit(RLIMIT_FSIZE, &previous);
    rlimit small = previous;
    small.rlim_cur = 40;
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
    const auto outcome = exportEarningsCSV(model(), path);
    ::setrlimit(RLIMIT_FSIZE, &previous);
    ::sigaction(SIGXFSZ, &previousAction, nullptr);
    EXPECT_EQ(outcome, (ExportOutcome{"Couldn't save earnings.csv: File too large.", true}));
    EXPECT_EQ(read(path), "Date,Amount USD\r\n2026-01-01,1.0000\r\n");
    int entries = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path()))
        ++entries;
    EXPECT_EQ(entries, 1) << "no part of the new file is left behind";
}

// Under a locale whose decimal separator is a comma (generated for the tests: no system locale
// needs installing), amounts in the files and on the pages keep their point.
class CommaLocaleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ::setenv("LOCPATH", CORVANE_TEST_LOCPATH, 1);
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        ASSERT_NE(std::setlocale(LC_ALL, "de_DE.UTF-8"), nullptr)
            << "the generated locale is missing from " << CORVANE_TEST_LOCPATH;
        char text[16];
        std::snprintf(text, sizeof text, "%.2f", 1.5);
        ASSERT_STREQ(text, "1,50") << "printf does write a comma here";
    }
    void TearDown() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(CommaLocaleTest, FilesAndTextsKeepTheirPoint) {
    const Date today = dateFromUnixSeconds(kReference);
    EXPECT_EQ(
        CSVExporter::earningsCSV({1.5, 0.12345, -0.25}, today),
        "Date,Amount USD\r\n2026-06-16,1.5000\r\n2026-06-17,0.1235\r\n2026-06-18,-0.2500\r\n");
    std::vector<WorkerDashboard::PayoutDisbursement> payouts(3);
    payouts[0].createdAt = "2026-06-15T17:00:00Z";
    payouts[0].method = "ACH, primary";
    payouts[0].payoutEventId = "a\"b";
    payouts[0].amountUSD = 1234.5;
    payouts[0].status = "settled";
    payouts[1].amountCents = 1999;
    payouts[1].method = "multi\nline";
    payouts[1].settledAt = "carriage\rreturn";
    EXPECT_EQ(CSVExporter::payoutsCSV(payouts),
              "Date,Settled,Method,Reference,Amount USD,Status\r\n"
              "2026-06-15T17:00:00Z,,\"ACH, primary\",\"a\"\"b\",1234.5000,settled\r\n"
              ",\"carriage\rreturn\",\"multi\nline\",,19.9900,\r\n"
              ",,,,,\r\n");
    EXPECT_EQ(formatUSD(1234.5), "$1,234.50");
    EXPECT_EQ(formatGB(3.25), "3.2 GB");
    EXPECT_EQ(formattedDelta(-0.25), "−$0.25");
    EXPECT_EQ(recentUnpaidLagNote(0.5, 15),
              "About $0.50 of recent completed work from the last 15 min may not appear here yet.");
    EXPECT_EQ(monthProjectionLine(141.6), "projected total: $142 this month");
}

}  // namespace
}  // namespace corvane
