// The payouts page as an owner uses it, against the local coordinator over real HTTP: the sheet
// keeps an invalid destination from the coordinator, a lost answer doesn't double a method,
// removal asks first, a refused preference goes back on screen and on disk, the export writes its
// file, and the desktop takes the payout baseline at start and on activation.

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QTabBar>

#include <fstream>
#include <sstream>

#include "CorvaneApp/app/PayoutPrefsHooksFactory.h"
#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/ui/dashboard/pages/AddPayoutMethodSheet.h"
#include "CorvaneApp/ui/dashboard/pages/PayoutsPage.h"
#include "CorvaneApp/ui/shell/DesktopShell.h"
#include "CorvaneApp/ui/shell/QtExecutor.h"
#include "tests/support/ScratchFolder.h"
#include "tests/ui/PageTestSession.h"
#include "tests/ui/QtTestApp.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace corvane {
namespace {

constexpr const char* kMethods = "/api/v1/workers/me/payout-methods";

// An enrolled session whose account is the local coordinator and whose settings live in a
// scratch config.yaml; calls run inline and answer through the Qt loop.
class LoopbackSession final : public testing::PageTestSession {
  public:
    LoopbackSession(Executor& main, const dev::DevCoordinator& coordinator,
                    const std::filesystem::path& config)
        : PageTestSession(main),
          api_(std::make_shared<const CoordinatorAPI>(coordinator.baseURL(), "dev-token", "w1")),
          store_(main, defaults_, runner_,
                 WorkerConfigStore::Options{config, [] { return std::optional<double>(0.0); },
                                            DataMode::real}) {
        store_.setPayoutPrefsHooks(makePayoutPrefsHooks([this] { return api_; }));
        AppModel::Dependencies deps;
        deps.eligibilityGate = EligibilityGate::create(main, true);
        deps.enrollment.coordinatorAPIFactory =
            [this]() -> std::shared_ptr<const CoordinatorAPIProtocol> { return api_; };
        deps.startBackgroundTasks = false;
        deps.backgroundRunner = std::make_shared<InlineBackgroundRunner>();
        model_ = std::make_unique<AppModel>(main, std::move(deps));
    }
    ~LoopbackSession() override { dropNotifications(); }
    void launch() override {}
    void terminate() override { store_.cancelPendingSave(); }
    AppModel& model() override { return *model_; }
    WorkerConfigStore& configStore() override { return store_; }
    UserDefaults& userDefaults() override { return defaults_; }
    WorkerStatusRecord statusRecord() override { return {}; }
    const CoordinatorAPIProtocol& api() const { return *api_; }

  private:
    std::shared_ptr<const CoordinatorAPIProtocol> api_;
    UserDefaults defaults_;
    InlineBackgroundRunner runner_;
    WorkerConfigStore store_;
    std::unique_ptr<AppModel> model_;
};

class PayoutsPageTest : public ::testing::Test {
  protected:
    PayoutsPageTest() {
        testing::qtTestApp();
        config = folder.write("config.yaml", "coordinator_url: '" + coordinator.baseURL() +
                                                 "'\nworker_id: 'w1'\npayout_method: ach\n"
                                                 "payout_schedule: weekly\n");
        session = std::make_unique<LoopbackSession>(executor, coordinator, config);
        context =
            std::make_unique<PageContext>(PageContext{*session, executor, [](DashPage) {}, [] {}});
        page = std::make_unique<PayoutsPage>(*context);
        page->resize(944, 900);
        // As the dashboard does: the shown page renders when the model changes.
        modelWatch = session->model().observe([this](ModelParts) { page->refresh(); });
        page->show();
        page->refresh();
        page->shown();
        EXPECT_TRUE(testing::runEventsUntil([&] { return store().state().hasLoaded; }));
    }
    ~PayoutsPageTest() override {
        modelWatch.reset();
        page.reset();
        session->terminate();
    }

    PayoutMethodsStore& store() { return page->methodsStore(); }
    template <typename T>
    T& find(const char* name) {
        auto* widget = page->findChild<T*>(QString::fromLatin1(name));
        if (!widget) throw std::runtime_error(std::string("no widget ") + name);
        return *widget;
    }
    void typeInto(const char* field, const QString& text) {
        auto& edit = find<QLineEdit>(field);
        // As typing does: the edit reports the change as the owner's.
        edit.selectAll();
        edit.insert(text);
    }
    static void pressKey(QWidget& widget, Qt::Key key) {
        QKeyEvent press(QEvent::KeyPress, key, Qt::NoModifier);
        QCoreApplication::sendEvent(&widget, &press);
        QKeyEvent release(QEvent::KeyRelease, key, Qt::NoModifier);
        QCoreApplication::sendEvent(&widget, &release);
    }
    int posts() const {
        int count = 0;
        for (const auto& request : coordinator.requests())
            count += request.method == "POST" && request.path == kMethods;
        return count;
    }
    std::vector<QString> rowIDs() {
        std::vector<QString> ids;
        for (auto* row : page->findChildren<QWidget*>(QStringLiteral("payoutMethodRow")))
            if (!row->isHidden()) ids.push_back(row->property("methodId").toString());
        return ids;
    }
    std::string configText() const {
        std::ifstream in(config);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    dev::DevCoordinator coordinator{dev::DevCoordinator::Options{}};
    testing::ScratchFolder folder;
    std::filesystem::path config;
    QtExecutor executor{testing::qtTestApp()};
    std::unique_ptr<LoopbackSession> session;
    std::unique_ptr<PageContext> context;
    std::unique_ptr<PayoutsPage> page;
    Subscription modelWatch;
};

TEST_F(PayoutsPageTest, AnInvalidRoutingNumberNeverLeavesTheSheetAndTheCorrectedOneDoes) {
    find<QPushButton>("addPayoutMethod").click();
    ASSERT_TRUE(page->sheet().isOpen());
    find<QTabBar>("payoutMethodTabs").setCurrentIndex(2);  // ACH
    typeInto("routingNumberField", QStringLiteral("021000022"));
    typeInto("accountNumberField", QStringLiteral("000123456789"));
    typeInto("accountHolderNameField", QStringLiteral("Sam Rivera"));
    const auto before = coordinator.requests().size();
    find<QPushButton>("submitAddPayoutMethod").click();

    auto& error = find<QLabel>("routingNumberFieldError");
    EXPECT_FALSE(error.isHidden());
    EXPECT_EQ(error.text().toStdString(),
              "Routing numbers must be 9 digits and pass the checksum.");
    EXPECT_EQ(page->focusWidget(), &find<QLineEdit>("routingNumberField"))
        << "the keyboard lands on it";
    EXPECT_EQ(coordinator.requests().size(), before) << "nothing reached the coordinator";
    EXPECT_TRUE(page->sheet().isOpen());

    typeInto("routingNumberField", QStringLiteral("021-000-021"));
    EXPECT_TRUE(error.isHidden()) << "typing clears the field's error";
    find<QPushButton>("submitAddPayoutMethod").click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return !page->sheet().isOpen(); }));
    EXPECT_EQ(posts(), 1);
    ASSERT_EQ(coordinator.payoutMethods().size(), 1u);
    EXPECT_EQ(coordinator.payoutMethods()[0].routingNumber, "021000021");
    // Rows added to the shown page appear once the loop runs.
    EXPECT_TRUE(testing::runEventsUntil(
        [&] { return rowIDs() == std::vector<QString>{QStringLiteral("pm_1")}; }));
    EXPECT_TRUE(find<QWidget>("payoutsScroll").isEnabled()) << "the page is usable again";
}

TEST_F(PayoutsPageTest, ADroppedConnectionKeepsTheSheetAndTheRetryAddsOnce) {
    dev::ScriptedReply lost;
    lost.dropAfterHandling = true;
    coordinator.enqueueReply(kMethods, lost);
    const QString wallet = QStringLiteral("0x4b1e2f9a7c3d5e6f8a9b0c1d2e3f4a5b6c7d8e9f");
    find<QPushButton>("addPayoutMethod").click();
    typeInto("walletAddressField", wallet);
    find<QPushButton>("submitAddPayoutMethod").click();
    auto& failure = find<QLabel>("addPayoutMethodError");
    ASSERT_TRUE(testing::runEventsUntil([&] { return !failure.isHidden(); }));
    EXPECT_EQ(failure.text().toStdString(),
              "Couldn't reach the coordinator. Check your connection and try again.");
    EXPECT_TRUE(page->sheet().isOpen());
    EXPECT_EQ(find<QLineEdit>("walletAddressField").text(), wallet);

    find<QPushButton>("submitAddPayoutMethod").click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return !page->sheet().isOpen(); }));
    EXPECT_EQ(coordinator.payoutMethods().size(), 1u);
    EXPECT_EQ(posts(), 1);
    EXPECT_TRUE(testing::runEventsUntil([&] { return rowIDs().size() == 1; }));
    QCoreApplication::processEvents();
    EXPECT_EQ(rowIDs().size(), 1u);
}

TEST_F(PayoutsPageTest, RemovalAsksFirstAndOnlyTheConfirmationSendsIt) {
    for (const char* address : {"0x1111111111111111111111111111111111111111",
                                "0x2222222222222222222222222222222222222222"}) {
        AddPayoutMethodRequest request;
        request.method = PayoutMethodType::usdc;
        request.walletAddress = address;
        session->api().addPayoutMethod(request);
    }
    find<QPushButton>("refreshPayouts").click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return rowIDs().size() == 2; }));

    auto removeButton = [&](const char* id) -> QPushButton& {
        for (auto* button : page->findChildren<QPushButton*>(QStringLiteral("removeMethodButton")))
            if (!button->isHidden() && button->property("methodId").toString() == id)
                return *button;
        throw std::runtime_error("no remove button");
    };
    auto confirmation = [&] {
        return page->findChild<QMessageBox*>(QStringLiteral("removePayoutMethodConfirmation"));
    };
    EXPECT_FALSE(removeButton("pm_1").isEnabled()) << "the primary goes last";

    removeButton("pm_2").click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return confirmation() != nullptr; }));
    confirmation()->reject();
    ASSERT_TRUE(testing::runEventsUntil([&] { return confirmation() == nullptr; }));
    EXPECT_EQ(coordinator.payoutMethods().size(), 2u) << "cancelled: nothing sent";

    removeButton("pm_2").click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return confirmation() != nullptr; }));
    EXPECT_NE(confirmation()->text().toStdString().find("0x2222"), std::string::npos);
    confirmation()->findChild<QPushButton*>(QStringLiteral("confirmRemoveMethod"))->click();
    ASSERT_TRUE(testing::runEventsUntil([&] { return rowIDs().size() == 1; }));
    EXPECT_EQ(coordinator.payoutMethods().size(), 1u);
}

TEST_F(PayoutsPageTest, ARefusedPreferenceGoesBackOnScreenAndInTheStore) {
    auto& store = session->configStore();
    auto& schedule = find<QComboBox>("payoutSchedulePicker");
    const auto ns = WorkerConfigStore::payoutPrefsDefaultsNamespace(store.rawYAML());

    // Accepted: it reaches the coordinator and becomes the last accepted pair.
    schedule.setFocus();
    pressKey(schedule, Qt::Key_Down);
    EXPECT_EQ(store.payoutSchedule(), "monthly");
    store.flushPendingSave();
    ASSERT_TRUE(
        testing::runEventsUntil([&] { return store.lastSyncedPayoutPrefs(ns).has_value(); }));
    EXPECT_EQ(coordinator.payoutPrefs().schedule, "monthly");

    // Refused while a payout cycle runs: back to monthly on screen, in the store and the file.
    coordinator.setPayoutCycleInProgress(true);
    pressKey(schedule, Qt::Key_Up);
    EXPECT_EQ(schedule.currentText().toStdString(), "Weekly");
    store.flushPendingSave();
    EXPECT_NE(configText().find("payout_schedule: weekly"), std::string::npos);
    ASSERT_TRUE(testing::runEventsUntil([&] { return store.payoutSchedule() == "monthly"; }));
    EXPECT_EQ(schedule.currentText().toStdString(), "Monthly");
    EXPECT_NE(configText().find("payout_schedule: monthly"), std::string::npos);
    auto& banner = find<QLabel>("payoutSyncBanner");
    EXPECT_FALSE(banner.isHidden());
    EXPECT_EQ(banner.text().toStdString(),
              "Wait until the current payout cycle completes before changing payout settings.");

    // A method the coordinator says isn't set up: back to ACH, and the banner says what to add.
    coordinator.setPayoutCycleInProgress(false);
    coordinator.requirePayoutSetup("usdc", "usdc_wallet_address");
    auto& method = find<QComboBox>("payoutMethodPicker");
    method.setFocus();
    pressKey(method, Qt::Key_Home);  // USDC on Base, the first
    EXPECT_TRUE(banner.isHidden()) << "a new choice clears the old refusal";
    store.flushPendingSave();
    ASSERT_TRUE(testing::runEventsUntil([&] { return store.payoutMethod() == "ach"; }));
    EXPECT_EQ(method.currentText().toStdString(), "ACH bank transfer");
    EXPECT_EQ(find<QLabel>("payoutSetupBanner").text().toStdString(),
              "Add a USDC wallet address before making USDC your payout method.");
    EXPECT_EQ(coordinator.payoutPrefs().method, "ach");
}

TEST_F(PayoutsPageTest, ExportWritesTheHistoryOrSaysWhyNot) {
    WorkerDashboard::PayoutDisbursement payout;
    payout.payoutEventId = "po_1";
    payout.amountUSD = 12.5;
    payout.method = "ach";
    payout.status = "settled";
    payout.createdAt = "2026-06-12T17:00:00Z";
    coordinator.addPayout(payout);
    auto& exportButton = find<QPushButton>("exportPayouts");
    EXPECT_FALSE(exportButton.isEnabled()) << "no history, nothing to export";
    session->model().refreshFromAPI();
    ASSERT_TRUE(testing::runEventsUntil([&] { return exportButton.isEnabled(); }));

    std::string suggested;
    const auto target = folder / "payouts.csv";
    page->setExportPathChooser([&](const std::string& name) {
        suggested = name;
        return std::optional<std::filesystem::path>(target);
    });
    exportButton.click();
    EXPECT_TRUE(suggested.starts_with("corvane-payouts-")) << suggested;
    std::ifstream in(target);
    std::string header, row;
    std::getline(in, header);
    std::getline(in, row);
    EXPECT_EQ(header, "Date,Settled,Method,Reference,Amount USD,Status\r");
    EXPECT_EQ(row, "2026-06-12T17:00:00Z,,ach,po_1,12.5000,settled\r");

    page->setExportPathChooser(
        [&](const std::string&) { return std::optional(folder / "missing" / "x.csv"); });
    exportButton.click();
    auto& status = find<QLabel>("exportPayoutsStatus");
    EXPECT_TRUE(status.text().startsWith(QStringLiteral("Couldn't save the payout history: ")));
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST_F(PayoutsPageTest, TheDesktopTakesThePayoutBaselineAtStartAndOnActivation) {
    modelWatch.reset();
    page.reset();
    auto& store = session->configStore();
    const auto ns = WorkerConfigStore::payoutPrefsDefaultsNamespace(store.rawYAML());
    DesktopShell shell(*session, executor, {"0.2.0", [] {}, {}});
    shell.start();
    ASSERT_TRUE(
        testing::runEventsUntil([&] { return store.lastSyncedPayoutPrefs(ns).has_value(); }));
    EXPECT_EQ(store.lastSyncedPayoutPrefs(ns), (PayoutPrefsSyncPayload{"ach", "weekly"}));

    session->userDefaults().remove("worker-config-store.payout-prefs.method." + ns);
    EXPECT_FALSE(store.lastSyncedPayoutPrefs(ns));
    emit qGuiApp->applicationStateChanged(Qt::ApplicationInactive);
    QCoreApplication::processEvents();
    EXPECT_FALSE(store.lastSyncedPayoutPrefs(ns)) << "only becoming active asks";
    emit qGuiApp->applicationStateChanged(Qt::ApplicationActive);
    ASSERT_TRUE(
        testing::runEventsUntil([&] { return store.lastSyncedPayoutPrefs(ns).has_value(); }));
}

}  // namespace
}  // namespace corvane
