// `corvane earnings` against the local coordinator on 127.0.0.1: what it prints, the CSV it writes,
// and how it tells an owner that the computer is not enrolled, offline, refused or answered badly.

#include <gtest/gtest.h>

#include <sstream>

#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/EarningsCommand.h"
#include "tests/support/ScratchFolder.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

constexpr double kReference = 1'781'796'600;  // 2026-06-18 15:30 UTC

class EarningsCommandTest : public ::testing::Test {
  protected:
    EarningsCommandTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }

    struct Run {
        int status;
        std::string out, err;
    };
    Run run(std::vector<std::string> arguments, std::string baseURL = "") {
        EarningsCommandDependencies dependencies;
        if (baseURL.empty()) baseURL = coordinator.baseURL();
        dependencies.coordinatorAPI = [baseURL]() -> std::shared_ptr<const CoordinatorAPIProtocol> {
            CoordinatorAPIOptions options;
            options.session = std::make_shared<const http::Session>(http::SessionConfig{2, 5, 2});
            options.timeZoneIdentifier = [] { return std::string("UTC"); };
            return std::make_shared<CoordinatorAPI>(baseURL, "dev-token", "wk_1", options);
        };
        dependencies.now = [] { return dateFromUnixSeconds(kReference); };
        std::ostringstream out, err;
        const int status = runEarningsCommand(arguments, out, err, dependencies);
        return {status, out.str(), err.str()};
    }
    // The account the coordinator reports for this test.
    void script() {
        coordinator.enqueueReply("/api/v1/workers/me/dashboard", {200, {}, R"({
            "worker_id": "wk_1", "jobs_completed": {"today": 3, "this_week": 9, "all_time": 40},
            "earnings_usd": {"held": 5.5, "available": 1234.5, "total": 1240},
            "payout_summary": {"total_earned_usd": 1500.25, "released_usd": 0,
                               "disbursed_usd": 0, "pending_usd": 0},
            "payout_history": [], "trust_tier": "new", "hold_schedule": [], "activity": []})"});
        coordinator.enqueueReply("/api/v1/workers/me/earnings/summary", {200, {}, R"({
            "today_usd": 2.456, "today_active_minutes": 185, "today_hourly_usd": 0.8,
            "recent_hourly_usd": 1.5, "recent_window_minutes": 15, "recent_completed_shards": 2,
            "jobs_completed_today": 3, "delta_vs_yesterday_usd": -0.25,
            "month_to_date_usd": 48.1, "month_projection_usd": 141.6})"});
        coordinator.enqueueReply("/api/v1/workers/me/earnings/daily", {200, {}, R"([
            {"date": "2026-06-12", "amount_usd": 4.1}, {"date": "2026-06-13", "amount_usd": -0.5},
            {"date": "2026-06-14", "amount_usd": 5.4}, {"date": "2026-06-15", "amount_usd": 3},
            {"date": "2026-06-16", "amount_usd": 0}, {"date": "2026-06-17", "amount_usd": 2.7},
            {"date": "2026-06-18", "amount_usd": 2.456}])"});
        coordinator.enqueueReply("/api/v1/workers/me/jobs/top", {200, {}, R"([
            {"job_id": "job_9", "duration_seconds": 307.4, "amount_usd": 0.71,
             "completed_at": "2026-06-18T14:05:00Z", "client_display_name": "Acme, Inc."},
            {"job_id": "job_8", "duration_seconds": 60, "amount_usd": 0.1,
             "completed_at": "not a date", "client_display_name": null}])"});
    }

    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    testing::ScratchFolder folder;
};

TEST_F(EarningsCommandTest, PrintsTheAccountAndWritesThePagesCSV) {
    script();
    const auto csv = folder / "week.csv";
    const auto result = run({"--range", "7d", "--csv", csv.string()});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out,
              "Corvane earnings, 2026-06-18\n"
              "Balances\n"
              "  Available         $1,234.50\n"
              "  Held              $5.50\n"
              "  Lifetime          $1,500.25\n"
              "Today\n"
              "  Earned            $2.46 (−$0.25 vs yesterday)\n"
              "  Pace              $1.50/hr last 15 min pace\n"
              "  Jobs              3 · 3 hr 5 min active\n"
              "  This month        $48.10 so far, projected total: $142 this month\n"
              "Last 7 days\n"
              "  Total             $17.16\n"
              "  Days              7\n"
              "  Average           $2.45 a day\n"
              "  Best day          2026-06-14 $5.40\n"
              "Recent jobs (model · audio size · earnings)\n"
              "  2026-06-18 14:05  Acme, Inc.            5:07 audio   $0.71\n"
              "  not a date        job_8                 1:00 audio   $0.10\n"
              "Wrote " +
                  csv.string() + "\n");
    EXPECT_EQ(readFile(csv), CSVExporter::earningsCSV({4.1, -0.5, 5.4, 3, 0, 2.7, 2.456},
                                                      dateFromUnixSeconds(kReference)));
    const auto daily = coordinator.requests();
    const auto asked = std::find_if(daily.begin(), daily.end(), [](const auto& request) {
        return request.path == "/api/v1/workers/me/earnings/daily";
    });
    ASSERT_NE(asked, daily.end());
    EXPECT_EQ(asked->query, "days=7&tz=UTC");
}

TEST_F(EarningsCommandTest, NothingEarnedYetReadsAsZeros) {
    // The local coordinator's own answers: an empty account.
    const auto csv = folder / "all.csv";
    const auto result = run({"--range=ALL", "--csv=" + csv.string()});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("  Pace              waiting for last 15 min pace\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("All time\n  Total             $0.00\n"), std::string::npos);
    EXPECT_NE(result.out.find("  No jobs in the selected window.\n"), std::string::npos);
    const auto written = readFile(csv).value_or("");
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 31) << "30 zero days";
}

TEST_F(EarningsCommandTest, SaysPlainlyWhyItCannotShowAnything) {
    struct Row {
        const char* what;
        std::vector<std::string> arguments;
        int status;
        std::string error;
    };
    const std::vector<Row> usage{
        {"unknown range", {"--range", "week"}, 2, "corvane earnings: unknown range \"week\"\n"},
        {"missing value", {"--csv"}, 2, "corvane earnings: --csv needs a value\n"},
        {"unknown argument", {"--json"}, 2, "corvane earnings: unknown argument --json\n"},
    };
    for (const auto& row : usage) {
        const auto result = run(row.arguments);
        EXPECT_EQ(result.status, row.status) << row.what;
        EXPECT_TRUE(result.err.starts_with(row.error)) << row.what << ": " << result.err;
        EXPECT_NE(result.err.find("usage: corvane earnings"), std::string::npos);
    }
    EXPECT_EQ(run({"--help"}).status, 0);

    EarningsCommandDependencies notEnrolled;
    notEnrolled.coordinatorAPI = [] { return nullptr; };
    std::ostringstream out, err;
    EXPECT_EQ(runEarningsCommand({}, out, err, notEnrolled), 3);
    EXPECT_EQ(err.str(),
              "corvane earnings: this computer is not enrolled with a coordinator.\n"
              "Enrol it once with: corvane enroll --coordinator <URL> --token-stdin\n");
    EXPECT_EQ(out.str(), "");

    const auto offline = run({}, "http://127.0.0.1:1");
    EXPECT_EQ(offline.status, 1);
    EXPECT_TRUE(
        offline.err.starts_with("corvane earnings: cannot reach the coordinator (offline?): "))
        << offline.err;
    EXPECT_EQ(offline.out, "");

    coordinator.enqueueReply("/api/v1/workers/me/dashboard", {401, {}, "{}"});
    const auto refused = run({});
    EXPECT_EQ(refused.status, 1);
    EXPECT_EQ(refused.err,
              "corvane earnings: the coordinator refused this computer's credential.\n"
              "Enrol it again with: corvane enroll --coordinator <URL> --token-stdin\n");

    coordinator.enqueueReply("/api/v1/workers/me/earnings/summary", {200, {}, "{\"today_usd\": "});
    const auto garbled = run({});
    EXPECT_EQ(garbled.status, 1);
    EXPECT_TRUE(
        garbled.err.starts_with("corvane earnings: the coordinator's answer could not be used: "))
        << garbled.err;
    EXPECT_EQ(garbled.out, "") << "nothing half-printed";

    // The file can't be written: the report is shown, the error named, an old file kept.
    script();
    folder.write("blocked", "x");
    const auto unwritable = run({"--csv", (folder / "blocked" / "e.csv").string()});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_NE(unwritable.err.find("corvane earnings: cannot write " +
                                  (folder / "blocked" / "e.csv").string()),
              std::string::npos);
    EXPECT_NE(unwritable.out.find("Balances\n"), std::string::npos);
}

}  // namespace
}  // namespace corvane
