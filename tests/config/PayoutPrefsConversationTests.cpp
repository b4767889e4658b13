// The payout-preference sync talking to the local coordinator over loopback: accepted pairs,
// both refusals and the rollback to a baseline, a lost connection, a time-out and the one-deep
// queue.

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "CorvaneApp/platform/Http.h"
#include "tests/config/ConfigStoreFixture.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

// What the account client does with the coordinator's answers to a payout-preference PUT,
// reduced to the cases the store acts on.
void putPayoutPrefs(const http::Session& session, const std::string& baseURL,
                    const PayoutPrefsSyncPayload& pair, std::stop_token stop) {
    http::Request request;
    request.method = "PUT";
    request.url = baseURL + "/api/v1/workers/me/payout-prefs";
    request.headers.add("Authorization", "Bearer dev-token");
    request.headers.add("X-Worker-ID", "w-1");
    request.headers.add("Content-Type", "application/json");
    request.body = nlohmann::json{{"method", pair.method}, {"schedule", pair.schedule}}.dump();
    request.timeoutSeconds = 1;
    auto response = session.send(request, stop);
    auto body = nlohmann::json::parse(response.body, nullptr, false);
    auto text = [&](const char* key) -> std::optional<std::string> {
        if (body.is_object() && body.contains(key) && body[key].is_string())
            return body[key].get<std::string>();
        return std::nullopt;
    };
    if (response.status == 400 && text("required_setup")) {
        throw PayoutPrefsSyncError::setupRequired(*text("required_setup"), text("detail"));
    }
    if (response.status == 409) throw PayoutPrefsSyncError::payoutCycleConflict(text("detail"));
    if (response.status < 200 || response.status > 299) {
        throw std::runtime_error("HTTP " + std::to_string(response.status) + " from payout-prefs");
    }
}

class PayoutPrefsConversationTest : public testing::ConfigStoreFixture {
  protected:
    void SetUp() override {
        ConfigStoreFixture::SetUp();
        store_->setPayoutPrefsHooks({
            [this](const PayoutPrefsSyncPayload& pair, std::stop_token stop) {
                putPayoutPrefs(session_, coordinator_.baseURL(), pair, stop);
            },
            // What the dashboard summary would say, or nothing with the network down.
            [this](std::stop_token) -> std::optional<PayoutPrefsSyncPayload> {
                ++fetches_;
                if (networkDown_) return std::nullopt;
                return PayoutPrefsSyncPayload{coordinator_.payoutPrefs().method,
                                              coordinator_.payoutPrefs().schedule};
            },
        });
    }

    std::pair<std::string, std::string> onScreen() const {
        return {store_->payoutMethod(), store_->payoutSchedule()};
    }
    std::pair<std::string, std::string> onDiskPair() const {
        return {onDisk("payout_method").value_or("<none>"),
                onDisk("payout_schedule").value_or("<none>")};
    }
    std::pair<std::string, std::string> atCoordinator() const {
        auto prefs = coordinator_.payoutPrefs();
        return {prefs.method, prefs.schedule};
    }
    auto putCount() const {
        return std::ranges::count_if(coordinator_.requests(),
                                     [](const auto& request) { return request.method == "PUT"; });
    }

    const std::string baselineKey = "worker-config-store.payout-prefs.method.https://c.example|w-1";
    dev::DevCoordinator coordinator_{dev::DevCoordinator::Options{}};
    bool networkDown_ = false;
    int fetches_ = 0;
    http::Session session_{http::SessionConfig{1, 2, 1}};
};

TEST_F(PayoutPrefsConversationTest, OwnerSessionAgainstTheLocalCoordinator) {
    const std::pair<std::string, std::string> accepted{"paypal", "weekly"};
    choose("paypal", "weekly");
    finishBackground();
    EXPECT_EQ(atCoordinator(), accepted);
    EXPECT_EQ(defaults_.string(baselineKey), "paypal");
    // The accepted pair again, or a save without payout fields, sends nothing.
    store_->setPayoutSchedule("monthly");
    choose("paypal", "weekly");
    store_->setIdleMinutes(4);
    executor_.advance(0.5);
    EXPECT_EQ(runner_.pendingCount(), 0u);

    // A method that isn't set up: the hint names the setup, the screen and file go back.
    coordinator_.requirePayoutSetup("usdc", "wallet_address");
    choose("usdc", "monthly");
    EXPECT_EQ(onDiskPair(), (std::pair<std::string, std::string>{"usdc", "monthly"}));
    finishBackground();
    EXPECT_EQ(store_->payoutPrefsRequiredSetup(), "wallet_address");
    EXPECT_EQ(onScreen(), accepted);
    EXPECT_EQ(onDiskPair(), accepted);
    EXPECT_EQ(runner_.pendingCount(), 0u) << "the rollback sends nothing";
    store_->setPayoutMethod("ach");
    EXPECT_FALSE(store_->payoutPrefsRequiredSetup()) << "the next choice clears the hint";

    // A payout cycle in progress refuses any change, with the coordinator's own detail.
    coordinator_.setPayoutCycleInProgress(true);
    choose("ach", "monthly");
    finishBackground();
    EXPECT_EQ(store_->payoutPrefsSyncBannerText(),
              "Wait until the current payout cycle completes before changing payout settings.");
    EXPECT_EQ(onScreen(), accepted);
    EXPECT_EQ(onDiskPair(), accepted);
    coordinator_.setPayoutCycleInProgress(false);

    // A dropped connection and a late answer: the choice and the queue stay for a retry.
    coordinator_.enqueueReply("/api/v1/workers/me/payout-prefs", {.closeWithoutReply = true});
    coordinator_.enqueueReply("/api/v1/workers/me/payout-prefs", {.delaySeconds = 3});
    choose("ach", "biweekly");
    finishBackground();
    EXPECT_EQ(onScreen(), (std::pair<std::string, std::string>{"ach", "biweekly"}));
    ASSERT_TRUE(store_->queuedPayoutPrefsSync());
    EXPECT_EQ(runner_.pendingCount(), 0u) << "no retry loop: the retry waits for its trigger";
    store_->retryPendingPayoutPrefsSyncIfNeeded();
    finishBackground();
    EXPECT_TRUE(
        logs_.contains("WorkerConfigStore payout prefs sync failed: The request timed out."));
    EXPECT_EQ(onScreen(), (std::pair<std::string, std::string>{"ach", "biweekly"}));
    EXPECT_TRUE(store_->queuedPayoutPrefsSync());
    store_->retryPendingPayoutPrefsSyncIfNeeded();
    finishBackground();
    EXPECT_EQ(atCoordinator(), (std::pair<std::string, std::string>{"ach", "biweekly"}));
    EXPECT_FALSE(store_->queuedPayoutPrefsSync());

    // Two changes while a push is on the wire: only the newest follows it.
    const auto putsBefore = putCount();
    choose("paypal", "monthly");
    choose("usdc", "weekly");
    choose("paypal", "weekly");
    EXPECT_EQ(runner_.pendingCount(), 1u);
    finishBackground();
    finishBackground();
    EXPECT_EQ(runner_.pendingCount(), 0u);
    EXPECT_EQ(putCount() - putsBefore, 2);
    EXPECT_EQ(atCoordinator(), accepted);
}

TEST_F(PayoutPrefsConversationTest, RefusalWithoutABaselineFetchesOneOrFallsBackToDefaults) {
    choose("wire", "monthly");
    finishBackground();
    defaults_.remove(baselineKey);
    coordinator_.requirePayoutSetup("usdc", "wallet_address");
    choose("usdc", "weekly");
    finishBackground();
    finishBackground();  // the baseline fetch
    EXPECT_EQ(fetches_, 1);
    EXPECT_EQ(onScreen(), (std::pair<std::string, std::string>{"wire", "monthly"}));
    EXPECT_EQ(store_->lastSyncedPayoutPrefs("https://c.example|w-1"),
              (PayoutPrefsSyncPayload{"wire", "monthly"}));

    defaults_.remove(baselineKey);
    networkDown_ = true;
    choose("usdc", "monthly");
    finishBackground();
    finishBackground();
    EXPECT_EQ(onDiskPair(), (std::pair<std::string, std::string>{"ach", "weekly"}));
    EXPECT_EQ(
        store_->payoutPrefsSyncBannerText(),
        "Couldn’t restore payout settings from the coordinator. Reverted to ACH weekly defaults.");
    EXPECT_EQ(store_->lastSyncedPayoutPrefs("https://c.example|w-1"),
              (PayoutPrefsSyncPayload{"ach", "weekly"}));
}

}  // namespace
}  // namespace corvane
