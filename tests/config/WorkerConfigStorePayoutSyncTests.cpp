#include <deque>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigScanners.h"
#include "tests/config/ConfigStoreFixture.h"

namespace corvane {
namespace {

const std::string kNamespace = "https://c.example|w-1";

class PayoutPrefsSyncTest : public testing::ConfigStoreFixture {
protected:
    void SetUp() override {
        writeConfig(testing::kEnrolled);
        makeStore();
        store_->setPayoutPrefsHooks({
            [this](const PayoutPrefsSyncPayload& payload, std::stop_token) {
                pushed_.push_back(payload);
                if (!pushResults_.empty()) {
                    auto result = pushResults_.front();
                    pushResults_.pop_front();
                    if (result) result();
                }
            },
            [this](std::stop_token) { ++fetches_; return baseline_; },
        });
    }

    // Changes the pair and lets the debounced save run.
    void choose(const std::string& method, const std::string& schedule = "weekly") {
        store_->setPayoutMethod(method);
        store_->setPayoutSchedule(schedule);
        executor_.advance(WorkerConfigStore::saveDebounceSeconds);
    }
    // Runs the next background call and its completion on the main sequence.
    void finishBackground() {
        ASSERT_TRUE(runner_.runNext());
        executor_.runUntilIdle();
    }

    std::vector<PayoutPrefsSyncPayload> pushed_;
    std::deque<std::function<void()>> pushResults_;  // empty function: success
    std::optional<PayoutPrefsSyncPayload> baseline_;
    int fetches_ = 0;
};

TEST_F(PayoutPrefsSyncTest, AcceptedPairBecomesTheBaselineAndIsNotSentAgain) {
    choose("paypal");
    EXPECT_EQ(runner_.pendingCount(), 1u);
    finishBackground();
    EXPECT_EQ(pushed_, (std::vector<PayoutPrefsSyncPayload>{{"paypal", "weekly"}}));
    EXPECT_EQ(store_->lastSyncedPayoutPrefs(kNamespace), (PayoutPrefsSyncPayload{"paypal", "weekly"}));
    EXPECT_EQ(defaults_.string("worker-config-store.payout-prefs.method." + kNamespace), "paypal");
    EXPECT_FALSE(store_->queuedPayoutPrefsSync());
    EXPECT_FALSE(store_->payoutPrefsSyncRunning());
    EXPECT_TRUE(logs_.contains("WorkerConfigStore synced payout prefs to coordinator"));

    store_->setPayoutSchedule("monthly");
    store_->setPayoutSchedule("weekly");
    executor_.advance(0.5);
    EXPECT_EQ(store_->saveCount(), 2);
    EXPECT_EQ(runner_.pendingCount(), 0u) << "the saved pair equals the accepted one";

    // A save that touched no payout field doesn't enqueue at all.
    store_->setIdleMinutes(4);
    executor_.advance(0.5);
    EXPECT_EQ(runner_.pendingCount(), 0u);
}

TEST_F(PayoutPrefsSyncTest, RefusalRollsBackToTheLastAcceptedPairOnScreenAndOnDisk) {
    store_->storeLastSyncedPayoutPrefs({"ach", "weekly"}, kNamespace);
    pushResults_.push_back([] { throw PayoutPrefsSyncError::setupRequired("paypal_email"); });
    choose("paypal", "monthly");
    ASSERT_EQ(configyaml::scalarFlat("payout_method", configText()), "paypal");
    finishBackground();
    EXPECT_EQ(store_->payoutMethod(), "ach");
    EXPECT_EQ(store_->payoutSchedule(), "weekly");
    EXPECT_EQ(store_->payoutPrefsRequiredSetup(), "paypal_email");
    EXPECT_EQ(configyaml::scalarFlat("payout_method", configText()), "ach");
    EXPECT_EQ(configyaml::scalarFlat("payout_schedule", configText()), "weekly");
    EXPECT_TRUE(store_->dirtyFields().empty());
    EXPECT_FALSE(store_->hasPendingSave());
    EXPECT_FALSE(store_->queuedPayoutPrefsSync());
    EXPECT_EQ(runner_.pendingCount(), 0u) << "the rollback sends nothing";
    EXPECT_TRUE(logs_.contains("WorkerConfigStore payout prefs sync blocked: paypal_email"));
    EXPECT_TRUE(logs_.contains("WorkerConfigStore rolled back rejected payout prefs to last synced values"));

    // The owner's next choice clears the setup hint at once.
    store_->setPayoutMethod("wire");
    EXPECT_FALSE(store_->payoutPrefsRequiredSetup());
}

TEST_F(PayoutPrefsSyncTest, RefusalAfterTheOwnerMovedOnKeepsTheNewChoice) {
    pushResults_.push_back([] { throw PayoutPrefsSyncError::payoutCycleConflict(); });
    choose("paypal");
    store_->setPayoutMethod("wire");
    finishBackground();
    EXPECT_EQ(store_->payoutMethod(), "wire");
    EXPECT_EQ(store_->payoutPrefsSyncBannerText(),
              "Wait until the current payout cycle completes before changing payout settings.");
    EXPECT_TRUE(logs_.contains(
        "WorkerConfigStore payout prefs sync blocked by payout cycle conflict: queued payout already exists"));
    EXPECT_EQ(fetches_, 0);
    executor_.advance(0.5);
    finishBackground();
    EXPECT_EQ(pushed_.back(), (PayoutPrefsSyncPayload{"wire", "weekly"}));
}

TEST_F(PayoutPrefsSyncTest, RefusalWithoutABaselineFetchesOneOrFallsBackToDefaults) {
    pushResults_.push_back([] { throw PayoutPrefsSyncError::setupRequired("usdc_wallet_address"); });
    baseline_ = PayoutPrefsSyncPayload{"wire", "monthly"};
    choose("usdc");
    finishBackground();
    EXPECT_EQ(runner_.pendingCount(), 1u) << "the baseline fetch";
    finishBackground();
    EXPECT_EQ(fetches_, 1);
    EXPECT_EQ(store_->payoutMethod(), "wire");
    EXPECT_EQ(store_->payoutSchedule(), "monthly");
    EXPECT_EQ(store_->lastSyncedPayoutPrefs(kNamespace), baseline_);

    // With the network down the pair falls back to ACH weekly, with the banner.
    defaults_.remove("worker-config-store.payout-prefs.method." + kNamespace);
    pushResults_.push_back([] { throw PayoutPrefsSyncError::setupRequired("paypal_email"); });
    baseline_.reset();
    choose("paypal");
    finishBackground();
    finishBackground();
    EXPECT_EQ(store_->payoutMethod(), "ach");
    EXPECT_EQ(store_->payoutSchedule(), "weekly");
    EXPECT_EQ(configyaml::scalarFlat("payout_method", configText()), "ach");
    EXPECT_EQ(store_->payoutPrefsSyncBannerText(),
              "Couldn’t restore payout settings from the coordinator. Reverted to ACH weekly defaults.");
    EXPECT_EQ(store_->lastSyncedPayoutPrefs(kNamespace), (PayoutPrefsSyncPayload{"ach", "weekly"}));
    EXPECT_TRUE(logs_.contains("rollback fell back to app defaults after baseline fetch failed"));
}

TEST_F(PayoutPrefsSyncTest, AChangedFileCancelsTheRunningSync) {
    choose("paypal");
    writeConfig("coordinator_url: 'https://other.example'\nworker_id: 'w-9'\n");
    store_->reload();
    EXPECT_FALSE(store_->queuedPayoutPrefsSync());
    EXPECT_TRUE(runner_.nextIsCancelled());
    finishBackground();
    EXPECT_TRUE(logs_.contains("WorkerConfigStore payout prefs sync cancelled"));
    EXPECT_FALSE(store_->lastSyncedPayoutPrefs(kNamespace)) << "a cancelled push records nothing";
    EXPECT_FALSE(store_->payoutPrefsSyncRunning());
}

TEST_F(PayoutPrefsSyncTest, ActivationEstablishesAMissingBaselineOnly) {
    baseline_ = PayoutPrefsSyncPayload{"wire", "monthly"};
    store_->refreshPayoutPrefsBaselineOnActivation();
    finishBackground();
    EXPECT_EQ(store_->lastSyncedPayoutPrefs(kNamespace), baseline_);
    EXPECT_EQ(store_->payoutMethod(), "ach") << "local values stay";
    EXPECT_TRUE(logs_.contains("WorkerConfigStore established payout prefs baseline from coordinator on activation"));
    store_->refreshPayoutPrefsBaselineOnActivation();
    EXPECT_EQ(runner_.pendingCount(), 0u);
    EXPECT_EQ(fetches_, 1);
}

TEST(PayoutPrefsNamespaceTest, NamesTheEnrolment) {
    EXPECT_EQ(WorkerConfigStore::payoutPrefsDefaultsNamespace("coordinator_url: 'https://c'\n"), "https://c|unknown-worker");
    EXPECT_EQ(WorkerConfigStore::payoutPrefsDefaultsNamespace("worker_id: w # x\n"), "unknown-url|w");
}

TEST_F(PayoutPrefsSyncTest, WithoutHooksNothingIsSent) {
    store_->setPayoutPrefsHooks({});
    choose("paypal");
    EXPECT_EQ(runner_.pendingCount(), 0u);
    EXPECT_TRUE(logs_.contains("payout prefs sync skipped — coordinator API unavailable"));
    EXPECT_TRUE(store_->queuedPayoutPrefsSync());
}

}  // namespace
}  // namespace corvane
