// The account client against the local coordinator: what goes on the wire, and how each kind of
// answer becomes a record or a CoordinatorAPIError.

#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "tests/support/LogCapture.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

using Kind = CoordinatorAPIError::Kind;
using dev::ScriptedReply;

class CoordinatorAPITest : public ::testing::Test {
  protected:
    CoordinatorAPI api(std::string zone = "America/New_York", std::string base = "") {
        CoordinatorAPIOptions options;
        options.session = std::make_shared<const http::Session>(http::SessionConfig{2, 5, 2});
        options.timeZoneIdentifier = [zone] { return zone; };
        return CoordinatorAPI(base.empty() ? coordinator.baseURL() : base, "dev-token", "w 1",
                              options);
    }

    template <typename Call>
    static CoordinatorAPIError errorOf(Call call) {
        try {
            call();
        } catch (const CoordinatorAPIError& error) {
            return error;
        }
        ADD_FAILURE() << "no CoordinatorAPIError was thrown";
        return CoordinatorAPIError::unauthorized();
    }

    dev::RecordedRequest lastRequest() const { return coordinator.requests().back(); }

    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
};

TEST_F(CoordinatorAPITest, RequestsCarryTheirPathsQueriesAndHeaders) {
    const auto client = api();
    coordinator.enqueueReply("/api/v1/workers/me/earnings/daily",
                             {200, {}, R"([{"date": "2026-11-22", "amount_usd": 1.5}])"});
    EXPECT_EQ(client.dailyEarnings(30, false), (std::vector<DailyEarning>{{"2026-11-22", 1.5}}));
    auto request = lastRequest();
    EXPECT_EQ(request.query, "days=30&tz=America/New_York") << "the zone keeps its slash";
    EXPECT_EQ(request.headers["authorization"], "Bearer dev-token");
    EXPECT_EQ(request.headers["x-worker-id"], "w 1");
    EXPECT_EQ(request.headers["accept"], "application/json");
    EXPECT_EQ(request.headers.count("content-type"), 0u);

    coordinator.enqueueReply("/api/v1/workers/me/earnings/by-hour",
                             {200, {}, R"({"hours": [0, 1.25]})"});
    EXPECT_EQ(api("Bad\xff").hourlyEarnings(std::nullopt, true).hours,
              (std::vector<double>{0, 1.25}));
    EXPECT_EQ(lastRequest().query, "all_time=true&tz=UTC")
        << "a zone that can't be encoded is sent as UTC";

    coordinator.enqueueReply("/api/v1/workers/",
                             {200, {}, R"({"worker_id": "a/b", "days": 14, "sample_count": 0,
        "active_minutes_total": 0, "histogram": []})"});
    client.activityHistogram("a/b c", 14);
    EXPECT_EQ(lastRequest().path, "/api/v1/workers/a/b%20c/activity-histogram");
    EXPECT_EQ(lastRequest().query, "days=14");

    coordinator.enqueueReply("/api/v1/workers/me/payout-methods", {201, {}, "ignored"});
    AddPayoutMethodRequest paypal;
    paypal.method = PayoutMethodType::paypal;
    paypal.email = "a@b.c";
    client.addPayoutMethod(paypal);
    EXPECT_EQ(lastRequest().method, "POST");
    EXPECT_EQ(lastRequest().headers["content-type"], "application/json");
    EXPECT_EQ(lastRequest().body, R"({"email":"a@b.c","make_primary":false,"method":"paypal"})");
    coordinator.enqueueReply("/api/v1/workers/me/payout-methods/", {204});
    client.setPrimaryPayoutMethod("pm 7");
    EXPECT_EQ(lastRequest().method + " " + lastRequest().path,
              "PUT /api/v1/workers/me/payout-methods/pm%207/primary");
    coordinator.enqueueReply("/api/v1/workers/me/payout-methods/", {200});
    client.removePayoutMethod("pm7");
    EXPECT_EQ(lastRequest().method + " " + lastRequest().path,
              "DELETE /api/v1/workers/me/payout-methods/pm7");

    coordinator.enqueueReply("/api/v1/app/latest-version",
                             {200, {}, R"({"version": "1.3.0", "download_url": "https://d"})"});
    EXPECT_EQ(CoordinatorAPI::fetchAppVersion(coordinator.baseURL() + "/ignored/path").version,
              "1.3.0");
    EXPECT_EQ(lastRequest().headers.count("authorization"), 0u)
        << "the version check needs no credentials";
    EXPECT_EQ(errorOf([] { CoordinatorAPI::fetchAppVersion("not a url"); }).errorDescription(),
              "Invalid base URL for app-version check");
}

TEST_F(CoordinatorAPITest, AnswersBecomeTheirErrors) {
    testing::LogCapture logs;
    const auto client = api();
    coordinator.enqueueReply("/api/v1/workers/me/dashboard", {401, {}, R"({"detail": "expired"})"});
    EXPECT_EQ(errorOf([&] { client.dashboard(); }).kind(), Kind::unauthorized);
    EXPECT_TRUE(logs.contains("401 from /api/v1/workers/me/dashboard — token rejected"));

    coordinator.enqueueReply("/api/v1/workers/me/dashboard",
                             {503, {}, R"({"detail": "busy", "code": "E_BUSY", "field": "x"})"});
    auto busy = errorOf([&] { client.dashboard(); });
    EXPECT_EQ(busy.kind(), Kind::httpError);
    EXPECT_EQ(busy.statusCode(), 503);
    EXPECT_TRUE(busy.isServerError());
    EXPECT_EQ(busy.code(), "E_BUSY");
    EXPECT_TRUE(logs.contains("HTTP 503 from /api/v1/workers/me/dashboard: busy"));

    coordinator.enqueueReply("/api/v1/workers/me/jobs/top", {404, {}, "<html>gone</html>"});
    auto gone = errorOf([&] { client.topJobs(); });
    EXPECT_EQ(gone.detail(), std::nullopt);
    EXPECT_FALSE(gone.isServerError());
    EXPECT_TRUE(logs.contains("HTTP 404 from /api/v1/workers/me/jobs/top?week=true"));

    coordinator.enqueueReply("/api/v1/workers/me/earnings/summary",
                             {200, {}, R"({"today_usd": "1.00"})"});
    EXPECT_EQ(errorOf([&] { client.earningsSummary(); }).kind(), Kind::decodingError);
    EXPECT_TRUE(
        logs.contains("Decode error for /api/v1/workers/me/earnings/summary?tz=America/New_York"));
    coordinator.enqueueReply("/api/v1/workers/me/jobs/top", {200, {}, R"({"jobs": []})"});
    EXPECT_EQ(errorOf([&] { client.topJobs(); }).kind(), Kind::decodingError)
        << "top jobs come as a list";

    coordinator.enqueueReply("/api/v1/workers/me/payout-methods",
                             {200, {}, "", "application/json", 0, false, true});
    EXPECT_EQ(errorOf([&] { client.payoutMethods(); }).kind(), Kind::networkError);
    EXPECT_TRUE(logs.contains("Network error fetching /api/v1/workers/me/payout-methods"));
    coordinator.enqueueReply("/api/v1/workers/me/dashboard",
                             {200, {}, "{}", "application/json", 4.0});
    EXPECT_EQ(errorOf([&] { client.dashboard(); }).kind(), Kind::networkError)
        << "slower than the request time-out";

    EXPECT_EQ(errorOf([&] { api("UTC", "nowhere").dashboard(); }).errorDescription(),
              "Invalid URL path: /api/v1/workers/me/dashboard");
}

TEST_F(CoordinatorAPITest, PayoutPreferencesHaveTheirOwnRefusals) {
    testing::LogCapture logs;
    const auto client = api();
    const auto accepted = client.putPayoutPrefs("paypal", "monthly");
    EXPECT_EQ(accepted.method, "paypal");
    EXPECT_EQ(coordinator.payoutPrefs().schedule, "monthly");
    EXPECT_EQ(lastRequest().body, R"({"method":"paypal","schedule":"monthly"})");
    const auto summary = client.dashboard().payoutSummary;  // the baseline a later sync starts from
    EXPECT_EQ(summary.method, "paypal");
    EXPECT_EQ(summary.schedule, "monthly");
    // The rest of the account a local run asks for each minute answers, empty, instead of 404.
    EXPECT_EQ(client.earningsSummary().monthToDateUSD, 0);
    EXPECT_TRUE(client.dailyEarnings(30, false).empty());
    EXPECT_EQ(client.hourlyEarnings(30, false).hours, std::vector<double>(24, 0.0));
    EXPECT_TRUE(client.topJobs().empty());

    coordinator.requirePayoutSetup("usdc", "wallet_address");
    auto setup = errorOf([&] { client.putPayoutPrefs("usdc", "weekly"); });
    EXPECT_EQ(setup.kind(), Kind::payoutPrefsSetupRequired);
    EXPECT_EQ(setup.requiredSetup(), "wallet_address");
    EXPECT_TRUE(logs.contains("Payout prefs setup required: wallet_address"));

    coordinator.setPayoutCycleInProgress(true);
    auto conflict = errorOf([&] { client.putPayoutPrefs("ach", "weekly"); });
    EXPECT_EQ(conflict.kind(), Kind::payoutCycleConflict);
    EXPECT_EQ(conflict.detail(), "A payout is already queued for this cycle");

    const std::vector<std::pair<ScriptedReply, long>> plain{
        {{409, {}, R"({"detail": "Another edit is in progress"})"}, 409},
        {{400, {}, R"({"detail": "bad schedule"})"}, 400},
        {{500, {}, ""}, 500},
    };
    for (const auto& [reply, status] : plain) {
        coordinator.enqueueReply("/api/v1/workers/me/payout-prefs", reply);
        auto error = errorOf([&] { client.putPayoutPrefs("ach", "weekly"); });
        EXPECT_EQ(error.kind(), Kind::httpError) << status;
        EXPECT_EQ(error.statusCode(), status);
    }
    EXPECT_TRUE(logs.contains("HTTP 400 from payout-prefs: bad schedule"));
    EXPECT_TRUE(logs.contains("HTTP 500 from payout-prefs"));
    coordinator.enqueueReply("/api/v1/workers/me/payout-prefs", {401});
    EXPECT_EQ(errorOf([&] { client.putPayoutPrefs("ach", "weekly"); }).kind(), Kind::unauthorized);
    coordinator.enqueueReply("/api/v1/workers/me/payout-prefs", {200, {}, R"({"method": "ach"})"});
    EXPECT_EQ(errorOf([&] { client.putPayoutPrefs("ach", "weekly"); }).kind(), Kind::decodingError);
    EXPECT_EQ(errorOf([&] { client.putPayoutPrefs("ach\xff", "weekly"); }).kind(),
              Kind::encodingError);
}

}  // namespace
}  // namespace corvane
