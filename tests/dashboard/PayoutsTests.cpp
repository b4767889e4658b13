// The payouts page below the toolkit: every check a new destination passes before it is sent,
// the request built from it, the words for each refusal, the sheet's submit, and the page's own
// texts from the sample account in two time zones.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "CorvaneApp/dashboard/AddPayoutMethodForm.h"
#include "CorvaneApp/dashboard/PayoutsPageState.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using F = ValidationField;
const std::string kWallet = "0x" + std::string(40, 'a');

constexpr const char* kWalletError = "Enter a valid 42-character 0x wallet address.";
constexpr const char* kEmailError = "Enter a valid email address.";
constexpr const char* kRoutingError = "Routing numbers must be 9 digits and pass the checksum.";
constexpr const char* kAccountError = "Account numbers must be 4 to 17 digits.";
constexpr const char* kHolderError = "Enter the account holder name.";

struct ValidationRow {
    ValidationField field;
    std::string input;
    const char* error;  // null: passes
};

TEST(AddPayoutMethodValidation, EveryFieldAgainstItsRule) {
    const std::vector<ValidationRow> rows{
        {F::walletAddress, kWallet, nullptr},
        {F::walletAddress, "0x4B1e2F9a7C3d5E6f8A9b0C1d2E3f4A5b6C7d8E9f", nullptr},
        {F::walletAddress, "  " + kWallet + "\n", nullptr},
        {F::walletAddress, "0x" + std::string(39, 'a'), kWalletError},  // 41 characters
        {F::walletAddress, "0x" + std::string(41, 'a'), kWalletError},  // 43 characters
        {F::walletAddress, "0x" + std::string(39, 'a') + "g", kWalletError},
        {F::walletAddress, "0X" + std::string(40, 'a'), kWalletError},
        {F::walletAddress, "", kWalletError},
        {F::email, "owner@example.com", nullptr},
        {F::email, "first.last+pay%1@mail.example-host.co", nullptr},
        {F::email, " owner@example.com\n", nullptr},
        {F::email, "owner@examplecom", kEmailError},  // no dot after the @
        {F::email, "owner.example.com", kEmailError},
        {F::email, "owner@example.c", kEmailError},
        {F::email, "own er@example.com", kEmailError},
        {F::email, "owner@home@example.com", kEmailError},
        {F::email, "owner@example.c0m", kEmailError},
        {F::email, "", kEmailError},
        {F::routingNumber, "021000021", nullptr},
        {F::routingNumber, "021-000-021", nullptr},
        {F::routingNumber, " 021 000 021 ", nullptr},
        {F::routingNumber, "011000015", nullptr},
        {F::routingNumber, "021000022", kRoutingError},  // checksum
        {F::routingNumber, "02100002", kRoutingError},
        {F::routingNumber, "0210000210", kRoutingError},
        {F::routingNumber, "routing", kRoutingError},
        {F::routingNumber, "", kRoutingError},
        {F::accountNumber, "1234", nullptr},
        {F::accountNumber, "12345678901234567", nullptr},
        {F::accountNumber, " 000123456789 ", nullptr},
        {F::accountNumber, "123", kAccountError},
        {F::accountNumber, "123456789012345678", kAccountError},
        {F::accountNumber, "1234-5678", kAccountError},
        {F::accountNumber, "12a4", kAccountError},
        {F::accountHolderName, "Sam Rivera", nullptr},
        {F::accountHolderName, "   ", kHolderError},
        {F::accountHolderName, "\n\t", kHolderError},
        {F::accountHolderName, "", kHolderError},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("field " + std::to_string(int(row.field)) + ", input '" + row.input + "'");
        const auto error = validationError(row.field, row.input);
        if (row.error) {
            EXPECT_EQ(error, std::optional<std::string>(row.error));
        } else {
            EXPECT_EQ(error, std::nullopt);
        }
    }
    EXPECT_TRUE(isValidRoutingNumber("021-000-021"));
    EXPECT_FALSE(isValidRoutingNumber("021000022"));
    EXPECT_TRUE(isValidRoutingNumber("\t021 000 021"));
}

TEST(AddPayoutMethodValidation, ServerFieldNamesInBothCases) {
    const std::vector<std::pair<std::string, std::optional<ValidationField>>> names{
        {"wallet_address", F::walletAddress},
        {"walletAddress", F::walletAddress},
        {"usdc_wallet_address", F::walletAddress},
        {"email", F::email},
        {"routing_number", F::routingNumber},
        {"routingNumber", F::routingNumber},
        {"account_number", F::accountNumber},
        {"accountNumber", F::accountNumber},
        {"account_holder_name", F::accountHolderName},
        {"accountHolderName", F::accountHolderName},
        {"nickname", std::nullopt},
        {"", std::nullopt}};
    for (const auto& [name, field] : names) EXPECT_EQ(validationField(name), field) << name;
}

TEST(AddPayoutMethodRequestBuilding, EachTabSendsOnlyItsOwnCheckedFields) {
    AddPayoutMethodForm form;
    form.walletAddress = " " + kWallet + " ";
    form.email = "not an email";  // another tab's field: not checked, not sent
    form.makePrimary = true;
    auto built = buildRequest(form);
    ASSERT_TRUE(built.request);
    EXPECT_EQ(built.request->encode().dump(),
              R"({"make_primary":true,"method":"usdc","wallet_address":")" + kWallet + R"("})");

    form.selectedTab = PayoutMethodType::paypal;
    built = buildRequest(form);
    EXPECT_FALSE(built.request);
    EXPECT_EQ(built.errors, (ValidationErrors{{F::email, kEmailError}}));

    form.selectedTab = PayoutMethodType::ach;
    form.routingNumber = "021-000-021";
    form.accountNumber = " 000123456789";
    form.accountHolderName = " Sam Rivera\n";
    form.accountType = PayoutBankAccountType::savings;
    form.makePrimary = false;
    built = buildRequest(form);
    ASSERT_TRUE(built.request);
    EXPECT_EQ(built.request->encode().dump(),
              R"({"account_holder_name":"Sam Rivera","account_number":"000123456789",)"
              R"("account_type":"savings","make_primary":false,"method":"ach",)"
              R"("routing_number":"021000021"})");

    form.routingNumber = "021000022";
    form.accountNumber = "123";
    form.accountHolderName = "  ";
    EXPECT_EQ(buildRequest(form).errors, (ValidationErrors{
                                             {F::routingNumber, kRoutingError},
                                             {F::accountNumber, kAccountError},
                                             {F::accountHolderName, kHolderError},
                                         }));
}

TEST(AddPayoutMethodRefusals, EachErrorInTheOwnersWords) {
    using E = CoordinatorAPIError;
    const std::vector<std::pair<E, FriendlyMessage>> table{
        {E::httpError(422, "That wallet is blocked.", "E_WALLET", "usdc_wallet_address"),
         {"That wallet is blocked.", F::walletAddress}},
        {E::httpError(422, "Unknown bank.", {}, "routingNumber"),
         {"Unknown bank.", F::routingNumber}},
        {E::httpError(422, std::nullopt, {}, "account_number"), {kAccountError, F::accountNumber}},
        {E::httpError(422, "Nickname taken.", {}, "nickname"), {"Nickname taken.", std::nullopt}},
        {E::httpError(409, "Already added.", {}, ""), {"Already added.", std::nullopt}},
        {E::httpError(500), {"Coordinator rejected the change (HTTP 500).", std::nullopt}},
        {E::httpError(502, ""), {"Coordinator rejected the change (HTTP 502).", std::nullopt}},
        {E::encodingError("x"), {"Could not serialize the payout request.", std::nullopt}},
        {E::decodingError("x"), {"The coordinator returned an unexpected response.", std::nullopt}},
        {E::unauthorized(), {"Sign in again to save payout methods.", std::nullopt}},
        {E::payoutPrefsSetupRequired("paypal_email"),
         {"Finish payout destination setup before changing payout preferences.", std::nullopt}},
        {E::payoutCycleConflict(),
         {"Wait until the current payout cycle completes before changing payout preferences.",
          std::nullopt}},
        {E::networkError("Connection reset"),
         {"Couldn't reach the coordinator. Check your connection and try again.", std::nullopt}},
    };
    for (const auto& [error, message] : table)
        EXPECT_EQ(friendlyMessage(error), message) << error.errorDescription();
}

TEST(AddPayoutMethodSubmit, SendsOnlyWhenValidOnceAndKeepsTheTextOnARefusal) {
    AddPayoutMethodSheetData sheet;
    sheet.form.selectedTab = PayoutMethodType::ach;
    editField(sheet, F::routingNumber, "021000022");
    editField(sheet, F::accountNumber, "000123456789");
    editField(sheet, F::accountHolderName, "Sam Rivera");
    EXPECT_EQ(beginSubmit(sheet), std::nullopt);
    EXPECT_FALSE(sheet.isSubmitting);
    EXPECT_EQ(sheet.validationErrors, (ValidationErrors{{F::routingNumber, kRoutingError}}));
    EXPECT_EQ(addPayoutMethodSheetState(sheet).fields.front().error,
              std::optional<std::string>(kRoutingError));

    editField(sheet, F::routingNumber, "021000021");
    EXPECT_TRUE(sheet.validationErrors.empty()) << "typing clears the field's error";
    ASSERT_TRUE(beginSubmit(sheet));
    EXPECT_TRUE(sheet.isSubmitting);
    EXPECT_EQ(beginSubmit(sheet), std::nullopt) << "no second request while one is on its way";
    EXPECT_EQ(addPayoutMethodSheetState(sheet).submitTitle, "Adding…");
    EXPECT_FALSE(addPayoutMethodSheetState(sheet).editable);

    EXPECT_FALSE(finishSubmit(sheet, CoordinatorAPIError::networkError("dropped")));
    EXPECT_EQ(sheet.submitError,
              "Couldn't reach the coordinator. Check your connection and try again.");
    EXPECT_EQ(sheet.form.routingNumber, "021000021") << "what was typed stays";
    EXPECT_FALSE(sheet.isSubmitting);

    ASSERT_TRUE(beginSubmit(sheet));
    EXPECT_EQ(sheet.submitError, std::nullopt) << "a new attempt clears the old refusal";
    EXPECT_FALSE(finishSubmit(
        sheet, CoordinatorAPIError::httpError(422, "Closed account.", {}, "account_number")));
    EXPECT_EQ(sheet.validationErrors, (ValidationErrors{{F::accountNumber, "Closed account."}}));
    EXPECT_EQ(sheet.submitError, std::nullopt);

    ASSERT_TRUE(beginSubmit(sheet));
    EXPECT_FALSE(
        finishSubmit(sheet, CoordinatorAPIError::httpError(422, "Bad e-mail.", {}, "email")))
        << "a field of another tab";
    EXPECT_EQ(sheet.submitError, "Bad e-mail.");

    ASSERT_TRUE(beginSubmit(sheet));
    EXPECT_TRUE(finishSubmit(sheet, std::nullopt));
}

TEST(AddPayoutMethodSheetTexts, TabsFieldsAndToggle) {
    AddPayoutMethodSheetData sheet;
    auto state = addPayoutMethodSheetState(sheet);
    ASSERT_EQ(state.tabs.size(), 3u);
    EXPECT_EQ(state.tabs[0].title, "USDC on Base");
    EXPECT_TRUE(state.tabs[0].selected);
    ASSERT_EQ(state.fields.size(), 1u);
    EXPECT_EQ(state.fields[0].hint, "Must be a 42-character 0x-prefixed hex address.");
    EXPECT_FALSE(state.showsAccountType);
    EXPECT_EQ(state.makePrimaryHint,
              "If this is your first payout method, the coordinator will make it primary "
              "automatically.");
    sheet.form.selectedTab = PayoutMethodType::paypal;
    EXPECT_EQ(addPayoutMethodSheetState(sheet).fields[0].hint,
              "Use the email that receives PayPal payouts.");
    sheet.form.selectedTab = PayoutMethodType::ach;
    state = addPayoutMethodSheetState(sheet);
    std::vector<std::string> hints;
    for (const auto& field : state.fields) hints.push_back(field.hint);
    EXPECT_EQ(hints, (std::vector<std::string>{"Nine digits with the standard checksum.",
                                               "Four to seventeen digits.",
                                               "Use the legal name on the bank account."}));
    EXPECT_TRUE(state.showsAccountType);
}

WorkerPayoutMethod method(std::string id, PayoutMethodType type, bool primary = false) {
    WorkerPayoutMethod m;
    m.id = std::move(id);
    m.method = type;
    m.isPrimary = primary;
    return m;
}

std::vector<std::string> primaries(const std::vector<WorkerPayoutMethod>& methods) {
    std::vector<std::string> ids;
    for (const auto& m : methods) {
        if (m.isPrimary) ids.push_back(m.id);
    }
    return ids;
}

TEST(ResolvedMethods, ExactlyOnePrimaryByTheRulesInOrder) {
    using T = PayoutMethodType;
    const std::vector<WorkerPayoutMethod> rows{method("a", T::ach), method("b", T::usdc, true),
                                               method("c", T::paypal)};
    EXPECT_TRUE(resolvedMethods({}, "a", T::ach).empty());
    EXPECT_EQ(primaries(resolvedMethods(rows, "c", T::ach)), std::vector<std::string>{"c"})
        << "the flag on b is cleared";
    EXPECT_EQ(primaries(resolvedMethods(rows, std::nullopt, T::paypal)),
              std::vector<std::string>{"b"});
    const std::vector<WorkerPayoutMethod> unflagged{method("a", T::ach), method("c", T::paypal)};
    EXPECT_EQ(primaries(resolvedMethods(unflagged, std::nullopt, T::paypal)),
              std::vector<std::string>{"c"})
        << "the store's method";
    EXPECT_EQ(primaries(resolvedMethods(unflagged, std::nullopt, T::usdc)),
              std::vector<std::string>{"a"});
    EXPECT_EQ(primaries(resolvedMethods(unflagged, std::nullopt, std::nullopt)),
              std::vector<std::string>{"a"});
}

TEST(PayoutTexts, BannersRefusalsAndConfirmation) {
    EXPECT_EQ(payoutSetupBannerText("usdc_wallet_address"),
              "Add a USDC wallet address before making USDC your payout method.");
    EXPECT_EQ(payoutSetupBannerText("paypal_email"),
              "Add a PayPal email before making PayPal your payout method.");
    EXPECT_EQ(payoutSetupBannerText("bank_kyc"),
              "Complete payout destination setup (bank_kyc) before using this method.");
    using K = PayoutMethodsStore::ActionFailure::Kind;
    auto wallet = method("pm_1", PayoutMethodType::usdc);
    wallet.walletAddress = kWallet;
    EXPECT_EQ(methodActionErrorText({K::makePrimary, wallet, std::nullopt}),
              "Couldn't make USDC on Base primary right now.");
    EXPECT_EQ(methodActionErrorText({K::remove, wallet, "Make another method primary first."}),
              "Couldn't remove USDC on Base. Make another method primary first.");
    EXPECT_EQ(methodActionErrorText({K::cannotRemove, wallet, std::nullopt}),
              "This payout method cannot be removed.");
    EXPECT_EQ(
        removalConfirmation(wallet).text,
        "Remove USDC on Base (" + kWallet + ")? Released earnings will no longer be paid to it.");
}

// The page from the sample account as of 2026-06-18 15:30 UTC, in the zone of the parameter.
class PayoutsPageStateTest : public ::testing::TestWithParam<const char*> {
  protected:
    PayoutsPageStateTest() {
        ::setenv("TZ", GetParam(), 1);
        ::tzset();
        DemoSession::Options options;
        options.version = "0.2.0";
        options.referenceDate = dateFromUnixSeconds(1'781'796'600);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        options.now = [at = options.referenceDate] { return at; };
        session.emplace(executor, std::move(options));
        session->launch();
    }
    ~PayoutsPageStateTest() override {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
    }
    void loadAccount() {
        session->model().refreshFromAPI();
        executor.runUntilIdle();
    }
    PayoutsPageState state(const PayoutMethodsStore::State& methods = {}) {
        return payoutsPageState(session->model(), methods, session->configStore());
    }
    void setAvailable(double available) {
        WorkerDashboard dashboard;
        dashboard.earningsUSD = {2.0, available, 2.0 + available};
        session->model().account().applyDashboard(dashboard);
    }

    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
};

TEST_P(PayoutsPageStateTest, HistoryInLocalDaysWithMethodNamesAndAmounts) {
    testing::LogCapture logs;
    EXPECT_EQ(state().historyEmpty, "No payout history yet.");
    EXPECT_FALSE(state().exportEnabled);
    loadAccount();
    const auto page = state();
    ASSERT_EQ(page.history.size(), 5u);
    const bool tokyo = std::string(GetParam()) == "Asia/Tokyo";
    // Sent 2026-06-15 15:30 UTC, settled a day later: already the next day in Tokyo.
    EXPECT_EQ(page.history[0].date, tokyo ? "Jun 16, 2026" : "Jun 15, 2026");
    EXPECT_EQ(page.history[0].settled, tokyo ? "Jun 17, 2026" : "Jun 16, 2026");
    EXPECT_EQ(page.history[0].method, "USDC on Base");
    EXPECT_EQ(page.history[0].reference, "payout_demo_0418");
    EXPECT_EQ(page.history[0].status, "Settled");
    EXPECT_EQ(page.history[4].reference, "payout_demo_0414");
    EXPECT_TRUE(page.exportEnabled);
    EXPECT_EQ(page.historyEmpty, std::nullopt);

    WorkerDashboard odd;
    WorkerDashboard::PayoutDisbursement payout;
    payout.createdAt = "last Friday";
    payout.amountCents = 1234;
    payout.method = "wire";
    odd.payoutHistory = {payout, {}};
    session->model().account().applyDashboard(odd);
    const auto rows = state().history;
    EXPECT_EQ(rows[0], (PayoutHistoryRow{"last Friday", "—", "wire", "—", "$12.34", "—"}));
    EXPECT_EQ(rows[1], (PayoutHistoryRow{"—", "—", "—", "—", "—", "—"}));
    EXPECT_TRUE(logs.contains("Failed to parse payout date: last Friday"));
}

TEST_P(PayoutsPageStateTest, AvailableAgainstThePrimaryMethodsMinimum) {
    auto page = state();
    EXPECT_EQ(page.available.value, "—");
    EXPECT_EQ(page.available.headline, std::nullopt);
    EXPECT_EQ(page.available.caption,
              "Available balance will show up here after released earnings are loaded.");

    setAvailable(3.21);  // the store's method, ACH, until a method is listed
    page = state();
    EXPECT_EQ(page.available.value, "$3.21");
    EXPECT_EQ(page.available.headline, "$6.79 until $10 minimum");
    EXPECT_EQ(page.available.caption,
              "Available is released but still below the payout minimum. Held and recent "
              "estimated unpaid work are shown separately.");
    PayoutMethodsStore::State methods;
    methods.hasLoaded = true;
    methods.methods = {method("pm_1", PayoutMethodType::ach),
                       method("pm_2", PayoutMethodType::usdc, true)};
    EXPECT_EQ(state(methods).available.headline, "$1 minimum — ready for the next sweep");
    EXPECT_EQ(state(methods).available.caption,
              "Available can sweep on the next payout run. Held and recent estimated unpaid work "
              "are shown separately.");
    setAvailable(10.0);
    EXPECT_EQ(state().available.headline, "$10 minimum — ready for the next sweep")
        << "the minimum itself is enough";
    EXPECT_EQ(state().held.value, "$2.00");
    EXPECT_EQ(state().held.caption,
              "Completed work already recorded by the coordinator and waiting for hold release.");
}

TEST_P(PayoutsPageStateTest, EstimatedRecentUnpaidWork) {
    EXPECT_EQ(state().estimated.caption, "Waiting for recent estimated unpaid work.");
    loadAccount();
    // Four sample shards of the last 15 minutes: 0.11 + 0.14 + 0.17 + 0.13.
    EXPECT_EQ(state().estimated.value, "$0.55");
    EXPECT_EQ(state().estimated.caption,
              "Estimated from the last 4 completed shards over 15 min. Not yet included in "
              "available or held.");
}

TEST_P(PayoutsPageStateTest, MethodRowsEmptyStateAndLoadTexts) {
    PayoutMethodsStore::State methods;
    auto page = state(methods);
    EXPECT_TRUE(page.methods.empty());
    EXPECT_EQ(page.emptyTitle, std::nullopt) << "nothing said before the list arrives";
    methods.isRefreshing = true;
    EXPECT_EQ(state(methods).methodsStatus, "Refreshing payout methods…");
    EXPECT_FALSE(state(methods).refreshEnabled);
    methods.isRefreshing = false;
    using L = PayoutMethodsStore::LoadFailure;
    const std::vector<std::pair<L, std::string>> failures{
        {L::noClient, "No coordinator API client is available."},
        {L::unavailable,
         "Live payout method management is unavailable until the coordinator endpoints are "
         "ready."},
        {L::failed, "Unable to load payout methods. Retry to try again."}};
    for (const auto& [failure, text] : failures) {
        methods.loadFailure = failure;
        EXPECT_EQ(state(methods).methodsStatus, text);
    }
    methods.loadFailure.reset();
    methods.hasLoaded = true;
    page = state(methods);
    EXPECT_EQ(page.emptyTitle, "No payout methods added yet.");
    EXPECT_EQ(page.emptyBody, "Add your first payout destination to receive released earnings.");

    auto bank = method("pm_2", PayoutMethodType::ach);
    bank.detail = "Checking ····6789";
    bank.canDelete = false;
    auto wallet = method("pm_1", PayoutMethodType::usdc);
    wallet.walletAddress = kWallet;
    methods.methods = {wallet, bank};
    methods.primaryMethodId = "pm_2";
    page = state(methods);
    ASSERT_EQ(page.methods.size(), 2u);
    EXPECT_EQ(page.methods[0].title, "USDC on Base");
    EXPECT_EQ(page.methods[0].detail, kWallet);
    EXPECT_EQ(page.methods[0].terms, "Instant · fee-free · $1 minimum");
    EXPECT_TRUE(page.methods[0].canMakePrimary);
    EXPECT_TRUE(page.methods[0].canRemove);
    EXPECT_EQ(page.methods[1].primaryBadge, "Primary");
    EXPECT_FALSE(page.methods[1].canMakePrimary);
    EXPECT_FALSE(page.methods[1].canRemove);
    EXPECT_EQ(page.methods[1].removeHint, "This payout method cannot be removed.");
    EXPECT_EQ(page.methods[1].terms, "1-2 business days · fee-free · $10 minimum");
    methods.isActing = true;
    EXPECT_FALSE(state(methods).methods[0].canMakePrimary) << "one action at a time";

    ASSERT_EQ(page.options.size(), 3u);
    EXPECT_EQ(page.options[1],
              (PayoutOptionRow{"PayPal", "Usually within an hour · 1.5% fee", "$10 minimum"}));
    EXPECT_EQ(page.scheduleBanner, "Payouts arrive Fridays at 5pm PT");
}

TEST_P(PayoutsPageStateTest, PreferencesShowTheStoresChoiceEvenAnUnknownOne) {
    auto prefs = state().preferences;
    EXPECT_EQ(prefs.methods[prefs.selectedMethod].title, "ACH bank transfer");
    EXPECT_EQ(prefs.schedules[prefs.selectedSchedule].title, "Weekly");
    session->configStore().setPayoutSchedule("biweekly");
    session->configStore().setPayoutMethod("usdc");
    prefs = state().preferences;
    EXPECT_EQ(prefs.schedules.size(), 3u);
    EXPECT_EQ(prefs.schedules[prefs.selectedSchedule], (PayoutChoice{"biweekly", "biweekly"}));
    EXPECT_EQ(prefs.methods[prefs.selectedMethod].value, "usdc");
}

INSTANTIATE_TEST_SUITE_P(Zones, PayoutsPageStateTest, ::testing::Values("UTC", "Asia/Tokyo"),
                         [](const auto& info) {
                             std::string name = info.param;
                             std::replace(name.begin(), name.end(), '/', '_');
                             return name;
                         });

}  // namespace
}  // namespace corvane
