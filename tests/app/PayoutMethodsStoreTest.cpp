// The payout methods store over real HTTP against the local coordinator: listing, adding, making
// primary and removing, what each kind of failure leaves behind, and that a retry after a lost
// answer never adds the same destination twice. Calls run inline; answers land when the test
// drains the main sequence.

#include <gtest/gtest.h>

#include "CorvaneApp/app/PayoutMethodsStore.h"
#include "tests/support/ManualExecutor.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

using dev::ScriptedReply;
constexpr const char* kMethods = "/api/v1/workers/me/payout-methods";

class PayoutMethodsStoreTest : public ::testing::Test {
  protected:
    PayoutMethodsStoreTest() {
        CoordinatorAPIOptions options;
        options.session = std::make_shared<const http::Session>(http::SessionConfig{2, 5, 2});
        api = std::make_shared<const CoordinatorAPI>(coordinator.baseURL(), "dev-token", "w1",
                                                     options);
    }

    static AddPayoutMethodRequest wallet(std::string address) {
        AddPayoutMethodRequest request;
        request.method = PayoutMethodType::usdc;
        request.walletAddress = std::move(address);
        return request;
    }

    // The answer the store gives `done`, after the main sequence ran.
    std::optional<CoordinatorAPIError> add(AddPayoutMethodRequest request) {
        std::optional<std::optional<CoordinatorAPIError>> answer;
        store.add(std::move(request), [&](const auto& error) { answer.emplace(error); });
        executor.runUntilIdle();
        EXPECT_TRUE(answer) << "every add is answered";
        return answer.value_or(std::nullopt);
    }

    int requestsTo(const std::string& method, const std::string& path) const {
        int count = 0;
        for (const auto& request : coordinator.requests())
            count += request.method == method && request.path == path;
        return count;
    }

    std::vector<std::string> listedIDs() const {
        std::vector<std::string> ids;
        for (const auto& method : store.state().methods) ids.push_back(method.id);
        return ids;
    }

    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    std::shared_ptr<const CoordinatorAPIProtocol> api;
    testing::ManualExecutor executor;
    PayoutMethodsStore store{executor, std::make_shared<InlineBackgroundRunner>(),
                             [this] { return api; }};
    const std::string address = "0x" + std::string(40, 'b');
};

TEST_F(PayoutMethodsStoreTest, AddsThenListsAndActsOnMethods) {
    int changes = 0;
    auto watch = store.observe([&] { ++changes; });
    store.refresh();
    EXPECT_TRUE(store.state().isRefreshing);
    executor.runUntilIdle();
    EXPECT_TRUE(store.state().hasLoaded);
    EXPECT_FALSE(store.state().isRefreshing);
    EXPECT_TRUE(store.state().methods.empty());
    EXPECT_EQ(changes, 2);

    EXPECT_EQ(add(wallet(address)), std::nullopt);
    AddPayoutMethodRequest bank;
    bank.method = PayoutMethodType::ach;
    bank.routingNumber = "021000021";
    bank.accountNumber = "000123456789";
    bank.accountHolderName = "Sam Rivera";
    bank.accountType = PayoutBankAccountType::savings;
    EXPECT_EQ(add(bank), std::nullopt);
    EXPECT_EQ(listedIDs(), (std::vector<std::string>{"pm_1", "pm_2"}))
        << "the list is fetched after each add";
    EXPECT_EQ(store.state().primaryMethodId, "pm_1") << "the first method becomes primary";
    EXPECT_EQ(store.state().methods[1].detail, "Savings ····6789");

    const auto shownBeforeSwitch = store.state().methods[1];
    store.makePrimary(shownBeforeSwitch);
    EXPECT_TRUE(store.state().isActing);
    executor.runUntilIdle();
    EXPECT_FALSE(store.state().isActing);
    EXPECT_EQ(store.state().primaryMethodId, "pm_2");

    // The fresh list marks the primary as not removable, and the store refuses it unasked.
    EXPECT_EQ(store.state().methods[1].canDelete, false);
    // A row shown before the switch still offers removal; the coordinator refuses it, and its
    // own words are kept.
    store.remove(shownBeforeSwitch);
    executor.runUntilIdle();
    ASSERT_TRUE(store.state().methodActionError);
    EXPECT_EQ(store.state().methodActionError->kind,
              PayoutMethodsStore::ActionFailure::Kind::remove);
    EXPECT_EQ(store.state().methodActionError->detail,
              "Make another method primary before removing this one.");
    EXPECT_EQ(listedIDs().size(), 2u);

    store.remove(store.state().methods[0]);
    executor.runUntilIdle();
    EXPECT_EQ(store.state().methodActionError, std::nullopt);
    EXPECT_EQ(listedIDs(), std::vector<std::string>{"pm_2"});
    EXPECT_EQ(coordinator.payoutMethods().size(), 1u);
}

TEST_F(PayoutMethodsStoreTest, ARowTheCoordinatorKeepsIsRefusedWithoutAsking) {
    WorkerPayoutMethod locked;
    locked.id = "pm_9";
    locked.canDelete = false;
    const auto before = coordinator.requests().size();
    store.remove(locked);
    executor.runUntilIdle();
    EXPECT_EQ(coordinator.requests().size(), before);
    ASSERT_TRUE(store.state().methodActionError);
    EXPECT_EQ(store.state().methodActionError->kind,
              PayoutMethodsStore::ActionFailure::Kind::cannotRemove);
}

TEST_F(PayoutMethodsStoreTest, LoadFailuresKeepTheLastListAndSayWhy) {
    EXPECT_EQ(add(wallet(address)), std::nullopt);
    ASSERT_EQ(listedIDs().size(), 1u);

    coordinator.enqueueReply(kMethods, {404, {}, R"({"detail": "Not Found"})"});
    store.refresh();
    executor.runUntilIdle();
    EXPECT_EQ(store.state().loadFailure, PayoutMethodsStore::LoadFailure::unavailable);
    EXPECT_EQ(listedIDs().size(), 1u) << "a failed load clears nothing";

    coordinator.enqueueReply(kMethods, {200, {}, "<html>maintenance</html>", "text/html"});
    store.refresh();
    executor.runUntilIdle();
    EXPECT_EQ(store.state().loadFailure, PayoutMethodsStore::LoadFailure::failed);
    coordinator.enqueueReply(kMethods, {500});
    store.refresh();
    executor.runUntilIdle();
    EXPECT_EQ(store.state().loadFailure, PayoutMethodsStore::LoadFailure::failed);
    EXPECT_EQ(listedIDs().size(), 1u);

    store.refresh();
    executor.runUntilIdle();
    EXPECT_EQ(store.state().loadFailure, std::nullopt) << "a good answer clears the failure";

    api = nullptr;
    store.refresh();
    EXPECT_EQ(store.state().loadFailure, PayoutMethodsStore::LoadFailure::noClient);
    EXPECT_EQ(add(wallet(address))->kind(), CoordinatorAPIError::Kind::unauthorized);
}

TEST_F(PayoutMethodsStoreTest, RefusalsOfAnAddComeBackAsTheirErrors) {
    using Kind = CoordinatorAPIError::Kind;
    coordinator.enqueueReply(kMethods, {401, {}, R"({"detail": "expired"})"});
    EXPECT_EQ(add(wallet(address))->kind(), Kind::unauthorized);

    coordinator.enqueueReply(
        kMethods, {422, {}, R"({"detail": "Wallet is blocked.", "field": "wallet_address"})"});
    auto refused = add(wallet(address));
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->statusCode(), 422);
    EXPECT_EQ(refused->field(), "wallet_address");
    EXPECT_EQ(refused->detail(), "Wallet is blocked.");

    coordinator.enqueueReply(kMethods, {500, {}, "not json at all", "text/plain"});
    refused = add(wallet(address));
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->statusCode(), 500);
    EXPECT_EQ(refused->detail(), std::nullopt);

    AddPayoutMethodRequest empty;
    empty.method = PayoutMethodType::paypal;
    refused = add(empty);  // the local coordinator checks too
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->field(), "email");
    EXPECT_TRUE(coordinator.payoutMethods().empty()) << "nothing refused was kept";
}

TEST_F(PayoutMethodsStoreTest, ARetryAfterALostAnswerAddsNothingTwice) {
    // The coordinator adds the wallet, and the connection drops before the answer.
    ScriptedReply lost;
    lost.dropAfterHandling = true;
    coordinator.enqueueReply(kMethods, lost);
    auto first = add(wallet(address));
    ASSERT_TRUE(first);
    EXPECT_EQ(first->kind(), CoordinatorAPIError::Kind::networkError);
    ASSERT_EQ(coordinator.payoutMethods().size(), 1u);

    // The retry finds it listed (in any letter case) and sends nothing.
    EXPECT_EQ(add(wallet(" 0x" + std::string(40, 'B'))), std::nullopt);
    EXPECT_EQ(coordinator.payoutMethods().size(), 1u);
    EXPECT_EQ(requestsTo("POST", kMethods), 1);
    EXPECT_EQ(listedIDs(), std::vector<std::string>{"pm_1"});

    // The next add is sent at once: nothing was in doubt.
    const auto gets = requestsTo("GET", kMethods);
    EXPECT_EQ(add(wallet("0x" + std::string(40, 'c'))), std::nullopt);
    EXPECT_EQ(requestsTo("GET", kMethods), gets + 1) << "only the list after the add";
}

TEST_F(PayoutMethodsStoreTest, ARetryAfterADropBeforeTheCoordinatorActedAddsOnce) {
    ScriptedReply dropped;
    dropped.closeWithoutReply = true;
    coordinator.enqueueReply(kMethods, dropped);
    EXPECT_EQ(add(wallet(address))->kind(), CoordinatorAPIError::Kind::networkError);
    EXPECT_TRUE(coordinator.payoutMethods().empty());

    // Still in doubt after the check itself fails: the next retry checks again.
    coordinator.enqueueReply(kMethods, dropped);
    EXPECT_EQ(add(wallet(address))->kind(), CoordinatorAPIError::Kind::networkError);
    EXPECT_EQ(requestsTo("POST", kMethods), 1);

    EXPECT_EQ(add(wallet(address)), std::nullopt);
    EXPECT_EQ(coordinator.payoutMethods().size(), 1u);
    EXPECT_EQ(requestsTo("POST", kMethods), 2);
}

TEST(PayoutMethodsStoreDestination, SameDestinationByWhatDecidesWhereMoneyGoes) {
    WorkerPayoutMethod bank;
    bank.method = PayoutMethodType::ach;
    bank.routingNumber = "021000021";
    bank.accountNumber = "000123456789";
    AddPayoutMethodRequest request;
    request.method = PayoutMethodType::ach;
    request.routingNumber = "021-000-021";
    request.accountNumber = "000123456789";
    EXPECT_TRUE(PayoutMethodsStore::sameDestination(bank, request));
    request.accountNumber = "000123456780";
    EXPECT_FALSE(PayoutMethodsStore::sameDestination(bank, request));
    bank.accountNumber.reset();  // a coordinator that hides the number can't be matched
    EXPECT_FALSE(PayoutMethodsStore::sameDestination(bank, request));

    WorkerPayoutMethod paypal;
    paypal.method = PayoutMethodType::paypal;
    paypal.email = "Owner@Example.com";
    AddPayoutMethodRequest email;
    email.method = PayoutMethodType::paypal;
    email.email = "owner@example.com";
    EXPECT_TRUE(PayoutMethodsStore::sameDestination(paypal, email));
    email.method = PayoutMethodType::usdc;
    EXPECT_FALSE(PayoutMethodsStore::sameDestination(paypal, email));
}

}  // namespace
}  // namespace corvane
