// The account records as the coordinator has sent them over time: ids as numbers, alternative
// keys, nulls, missing and extra fields; and what must still fail.

#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/AccountRecords.h"

namespace corvane {
namespace {

constexpr const char* kDashboard = R"({
  "worker_id": "wk_1", "worker_state": {"status": "busy", "last_poll_at": null},
  "jobs_completed": {"today": 3, "this_week": 12.0, "all_time": 40},
  "earnings_usd": {"held": -1.25, "available": 2, "total": 0.75},
  "payout_summary": {"total_earned_usd": 10.5, "released_usd": 1, "disbursed_usd": 0, "pending_usd": 9.5, "method": "ach"},
  "payout_history": [{}, {"payout_event_id": 99, "amount_cents": 125, "status": "settled"}],
  "trust_tier": "bronze", "quality_score": null, "next_release": {"hold_until": "2026-11-30", "amount_usd": 1, "item_count": 2},
  "hold_schedule": [],
  "activity": [{"payout_id": 123, "job_id": 1.5, "payout_usd": 0.02, "status": "estimated", "created_at": "2026-11-23T07:00:00Z"}],
  "something_new": {"nested": [1, 2]}
})";

TEST(AccountRecords, DashboardDecodesTolerantlyAndRoundTrips) {
    const auto dashboard = WorkerDashboard::decode(parseJson(kDashboard));
    EXPECT_EQ(dashboard.workerState->status, "busy");
    EXPECT_EQ(dashboard.workerState->lastPollAt, std::nullopt);
    EXPECT_EQ(dashboard.jobsCompleted.thisWeek, 12) << "an integral float is an integer";
    EXPECT_EQ(dashboard.earningsUSD.held, -1.25)
        << "negative amounts are the coordinator's to send";
    EXPECT_EQ(dashboard.payoutSummary.schedule, std::nullopt);
    ASSERT_EQ(dashboard.payoutHistory.size(), 2u);
    EXPECT_EQ(dashboard.payoutHistory[0], WorkerDashboard::PayoutDisbursement{})
        << "every field is optional";
    EXPECT_EQ(dashboard.payoutHistory[1].payoutEventId, "99");
    EXPECT_EQ(dashboard.nextRelease->itemCount, 2);
    ASSERT_EQ(dashboard.activity.size(), 1u);
    EXPECT_EQ(dashboard.activity[0].payoutId, "123");
    EXPECT_EQ(dashboard.activity[0].jobId, "1.5");
    EXPECT_EQ(dashboard.activity[0].shardId, std::nullopt);
    EXPECT_EQ(WorkerDashboard::decode(dashboard.encode()), dashboard);

    // Each of these breaks one rule; the whole record fails and says which key.
    const std::vector<std::pair<std::string, std::string>> breaks{
        {R"("trust_tier": "bronze")", R"("trust_tier": 3)"},
        {R"("trust_tier": "bronze", )", ""},
        {R"("held": -1.25)", R"("held": "-1.25")"},
        {R"("today": 3)", R"("today": 3.5)"},
        {R"("hold_schedule": [])", R"("hold_schedule": null)"},
        {R"("payout_id": 123)", R"("payout_id": true)"},
        {R"("payout_usd": 0.02)", R"("payout_usd": "0.02")"},
        {R"("amount_cents": 125)", R"("amount_cents": "125")"},
    };
    for (const auto& [from, to] : breaks) {
        std::string text = kDashboard;
        text.replace(text.find(from), from.size(), to);
        SCOPED_TRACE(to);
        EXPECT_THROW(WorkerDashboard::decode(parseJson(text)), DecodingError);
    }
    try {
        WorkerDashboard::ActivityItem::decode(parseJson(R"({"payout_id": [1], "job_id": "j"})"));
        ADD_FAILURE() << "an array is not string-like";
    } catch (const DecodingError& error) {
        EXPECT_STREQ(error.what(), "Expected string-like value for payout_id");
    }
}

TEST(AccountRecords, PayoutMethodsTakeTheirAlternativeKeys) {
    auto method = WorkerPayoutMethod::decode(
        parseJson(R"({"payout_method_id": 7, "kind": "paypal", "email": "a@b.c"})"));
    EXPECT_EQ(method.id, "7");
    EXPECT_EQ(method.method, PayoutMethodType::paypal);
    EXPECT_FALSE(method.isPrimary);
    EXPECT_FALSE(method.isPlaceholder);
    EXPECT_EQ(method.displayDetail(), "a@b.c");
    EXPECT_EQ(
        WorkerPayoutMethod::decode(parseJson(R"({"id": "x", "method": "cheque", "type": "usdc"})"))
            .method,
        PayoutMethodType::usdc)
        << "a key whose value doesn't decode gives way to the next";

    auto failure = [](const char* text) {
        try {
            WorkerPayoutMethod::decode(parseJson(text));
        } catch (const DecodingError& error) {
            return std::string(error.what());
        }
        return std::string("decoded");
    };
    EXPECT_EQ(failure(R"({"kind": "paypal"})"), "Missing payout method id");
    EXPECT_EQ(failure(R"({"id": null, "method_id": null, "kind": "paypal"})"),
              "Missing payout method id");
    EXPECT_EQ(failure(R"({"id": "m", "kind": "bitcoin"})"), "Missing payout method type");

    WorkerPayoutMethod bare;
    bare.id = "m";
    bare.method = PayoutMethodType::usdc;
    EXPECT_EQ(bare.displayDetail(), "USDC on Base");
    bare.label = "Cold wallet";
    bare.detail = "";
    EXPECT_EQ(bare.displayDetail(), "Cold wallet") << "empty texts are skipped";
    bare.walletAddress = "0xabc";
    EXPECT_EQ(bare.displayDetail(), "0xabc");
    EXPECT_EQ(bare.encode()["walletAddress"], "0xabc") << "local copies keep the field names";

    auto list = WorkerPayoutMethodsResponse::decode(parseJson(
        R"({"items": [{"id": "a", "method": "ach", "is_primary": true}], "primary_payout_method_id": "a"})"));
    ASSERT_EQ(list.methods.size(), 1u);
    EXPECT_TRUE(list.methods[0].isPrimary);
    EXPECT_EQ(list.primaryMethodId, "a");
    try {
        WorkerPayoutMethodsResponse::decode(parseJson(R"({"data": []})"));
        ADD_FAILURE();
    } catch (const DecodingError& error) {
        EXPECT_STREQ(error.what(), "Missing payout methods array in coordinator response.");
    }

    AddPayoutMethodRequest add;
    add.routingNumber = "021000021";
    add.accountNumber = "1234";
    add.accountHolderName = "A. Owner";
    add.accountType = PayoutBankAccountType::savings;
    add.makePrimary = true;
    EXPECT_EQ(
        add.encode().dump(),
        R"({"account_holder_name":"A. Owner","account_number":"1234","account_type":"savings","make_primary":true,"method":"ach","routing_number":"021000021"})");
}

TEST(AccountRecords, SmallRecordsAndErrorBodies) {
    auto summary = EarningsSummary::decode(
        parseJson(R"({"today_usd": 1.234, "today_active_minutes": 30, "today_hourly_usd": 2,
        "jobs_completed_today": 4, "delta_vs_yesterday_usd": -0.5, "month_to_date_usd": 20, "month_projection_usd": 60,
        "recent_hourly_usd": null})"));
    EXPECT_EQ(summary.todayWorkMinutes, std::nullopt);
    EXPECT_EQ(summary.recentHourlyUSD, std::nullopt);
    EXPECT_EQ(EarningsSummary::decode(summary.encode()), summary);
    EXPECT_THROW(EarningsSummary::decode(parseJson(R"({"today_usd": 1})")), DecodingError);

    auto histogram = ActivityHistogramResponse::decode(parseJson(
        R"({"worker_id": "w", "days": 7, "sample_count": 2, "active_minutes_total": 5, "histogram": [[0, 1], [2.0]]})"));
    EXPECT_EQ(histogram.histogram, (std::vector<std::vector<std::int64_t>>{{0, 1}, {2}}));
    EXPECT_THROW(
        ActivityHistogramResponse::decode(parseJson(
            R"({"worker_id": "w", "days": 7, "sample_count": 2, "active_minutes_total": 5, "histogram": [[0.5]]})")),
        DecodingError);
    EXPECT_THROW(EarningsByHour::decode(parseJson(R"({"hours": [1, "2"]})")), DecodingError);
    EXPECT_EQ(AppVersion::decode(parseJson(R"({"version": "1.2", "download_url": "https://x"})"))
                  .minVersion,
              std::nullopt);

    EXPECT_EQ(CoordinatorAPIErrorPayload::decode(
                  R"({"detail": "no", "code": "E1", "field": "tz", "x": 1})"),
              (CoordinatorAPIErrorPayload{"no", "E1", "tz"}));
    EXPECT_EQ(CoordinatorAPIErrorPayload::decode(""), CoordinatorAPIErrorPayload{});
    EXPECT_EQ(CoordinatorAPIErrorPayload::decode("<html>502</html>"), CoordinatorAPIErrorPayload{});
    EXPECT_EQ(CoordinatorAPIErrorPayload::decode(R"(["detail"])"), CoordinatorAPIErrorPayload{});
}

}  // namespace
}  // namespace corvane
