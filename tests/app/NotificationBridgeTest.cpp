// The owner's notifications driven by hand: a fake clock and executor, an app model whose parts the
// test sets as a refresh would, and a deliverer that records what it was asked to show and answers
// as the test scripts. The notification log is a real file in a scratch folder.

#include <gtest/gtest.h>

#include <cstdlib>
#include <deque>
#include <fstream>

#include "CorvaneApp/app/NotificationBridge.h"
#include "CorvaneApp/demo/DemoCoordinatorAPI.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;
using Status = NotificationAuthorizationStatus;

class FakeDeliverer final : public NotificationDeliverer {
  public:
    Status status = Status::authorized;
    // Answers to requestAuthorization, held until the test releases them when `holdRequests`.
    bool holdRequests = false;
    bool grant = true;
    std::optional<std::string> requestError;
    std::optional<std::string> deliveryError;
    std::vector<NotificationRequest> delivered;
    std::vector<std::string> withdrawn;
    int authorizationRequests = 0;
    std::deque<std::function<void()>> heldRequests;
    std::function<void(const std::string&, const std::string&)> actions;

    void authorizationStatus(std::function<void(Status)> done) override { done(status); }
    void requestAuthorization(std::function<void(bool, std::optional<std::string>)> done) override {
        ++authorizationRequests;
        auto answer = [this, done] { done(grant, requestError); };
        if (holdRequests) {
            heldRequests.push_back(answer);
        } else {
            answer();
        }
    }
    void deliver(const NotificationRequest& request,
                 std::function<void(std::optional<std::string>)> done) override {
        delivered.push_back(request);
        done(deliveryError);
    }
    void withdraw(const std::string& id) override { withdrawn.push_back(id); }
    void setActionHandler(
        std::function<void(const std::string&, const std::string&)> handler) override {
        actions = std::move(handler);
    }
};

class NotificationBridgeTest : public ::testing::Test {
  protected:
    NotificationBridgeTest() {
        ::setenv("TZ", "UTC", 1);
        ::tzset();
        clock.set(dateFromUnixSeconds(1'781'784'000));  // Thursday 2026-06-18 12:00 UTC
    }

    void make(DataMode mode = DataMode::real) {
        bridge.reset();
        AppModel::Dependencies deps;
        deps.eligibilityGate = gate;
        deps.enrollment.coordinatorAPIFactory =
            [this]() -> std::shared_ptr<const CoordinatorAPIProtocol> {
            return enrolled ? api : nullptr;
        };
        deps.enrollment.clear = [this] { enrolled = false; };
        deps.startBackgroundTasks = false;
        deps.buildMachineInfo = [] { return MachineInfo{}; };
        deps.now = clock.function();
        model.emplace(executor, std::move(deps));
        model->setWorkerOverrides(workerRunning, std::nullopt);
        NotificationBridge::Dependencies bridgeDeps;
        bridgeDeps.log = std::make_shared<NotificationEventLog>(logOptions());
        bridgeDeps.dataMode = mode;
        bridgeDeps.now = clock.function();
        bridgeDeps.lastStateReadAt = [this] { return stateReadAt; };
        bridge.emplace(executor, *model, defaults, std::move(bridgeDeps));
        bridge->setDeliverer(deliverer);
    }

    NotificationEventLog::Options logOptions() const {
        NotificationEventLog::Options options;
        options.fileURL = folder.path() / "logs" / "notifications.log";
        options.rotatedFileURL = folder.path() / "logs" / "notifications.1.log";
        options.now = [this] { return clock.now(); };
        return options;
    }

    // The log's lines without their time stamps.
    std::vector<std::string> lines() const {
        std::vector<std::string> out;
        std::ifstream file(folder.path() / "logs" / "notifications.log");
        for (std::string line; std::getline(file, line);)
            out.push_back(line.substr(line.find("] ") + 2));
        return out;
    }

    static WorkerDashboard::PayoutDisbursement payout(std::string id, double amount,
                                                      std::optional<std::string> createdAt,
                                                      std::string method = "paypal") {
        WorkerDashboard::PayoutDisbursement p;
        p.payoutEventId = std::move(id);
        p.amountUSD = amount;
        p.method = std::move(method);
        p.createdAt = std::move(createdAt);
        return p;
    }
    void dashboardWith(std::vector<WorkerDashboard::PayoutDisbursement> history) {
        WorkerDashboard dashboard;
        dashboard.earningsUSD = {1, 2, 3};
        dashboard.payoutHistory = std::move(history);
        model->account().applyDashboard(dashboard);
    }

    testing::ScratchFolder folder;
    testing::FakeClock clock;
    testing::ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::shared_ptr<const CoordinatorAPIProtocol> api = std::make_shared<DemoCoordinatorAPI>(
        std::make_shared<const DummyDataProvider>(dateFromUnixSeconds(1'781'784'000)), "wk_1");
    bool enrolled = true;
    bool workerRunning = false;
    std::optional<Date> stateReadAt;
    UserDefaults defaults;
    std::shared_ptr<FakeDeliverer> deliverer = std::make_shared<FakeDeliverer>();
    std::optional<AppModel> model;
    std::optional<NotificationBridge> bridge;
};

TEST_F(NotificationBridgeTest, AnOfflineWorkerIsToldAtTenMinutesAndThenHourly) {
    make();
    executor.advance(9 * 60);
    EXPECT_TRUE(deliverer->delivered.empty()) << "nine minutes is not yet offline";
    EXPECT_TRUE(bridge->offlineNotificationStreakActive());
    executor.advance(60);
    ASSERT_EQ(deliverer->delivered.size(), 1u);
    EXPECT_EQ(deliverer->delivered[0].title, "Worker offline > 10 min");
    EXPECT_EQ(deliverer->delivered[0].body,
              "Your computer hasn't checked in for 10 minutes. Earnings paused.");
    EXPECT_EQ(deliverer->delivered[0].categoryIdentifier, "worker-offline");
    EXPECT_EQ(deliverer->delivered[0].actions,
              (std::vector<NotificationAction>{{"diagnose", "Diagnose"}}));
    EXPECT_TRUE(deliverer->delivered[0].id.starts_with("offline-"));
    executor.advance(59 * 60);
    EXPECT_EQ(deliverer->delivered.size(), 1u) << "not again within the hour";
    executor.advance(60);
    ASSERT_EQ(deliverer->delivered.size(), 2u);
    EXPECT_EQ(deliverer->delivered[1].body,
              "Your computer hasn't checked in for 70 minutes. Earnings paused.");

    // Back at work ends the streak; a new one waits its own ten minutes.
    model->setWorkerOverrides(true, std::nullopt);
    executor.advance(2);
    EXPECT_FALSE(bridge->offlineNotificationStreakActive());
    model->setWorkerOverrides(false, std::nullopt);
    executor.advance(9 * 60 + 50);
    EXPECT_EQ(deliverer->delivered.size(), 2u);
    executor.advance(20);
    EXPECT_EQ(deliverer->delivered.size(), 3u);
    EXPECT_EQ(lines().back(), "send-attempt id=" + deliverer->delivered[2].id +
                                  " title=\"Worker offline > 10 min\" outcome=would-have-fired");
}

TEST_F(NotificationBridgeTest, AStaleStateReadCountsAsOfflineAndNothingIsCheckedWhileNotEnrolled) {
    workerRunning = true;
    stateReadAt = addSeconds(clock.now(), -11 * 60);  // the running worker's file is 11 min old
    make();
    executor.advance(10 * 60);
    EXPECT_EQ(deliverer->delivered.size(), 1u);

    stateReadAt = clock.now();  // fresh again: the running worker is online
    executor.advance(2);
    EXPECT_FALSE(bridge->offlineNotificationStreakActive());

    model->signOut();  // a computer that is not enrolled has no worker to miss
    executor.advance(60 * 60);
    EXPECT_FALSE(bridge->offlineNotificationStreakActive());
    EXPECT_EQ(deliverer->delivered.size(), 1u);
}

TEST_F(NotificationBridgeTest, TheFirstPayoutListIsOnlyRecordedAndNewPayoutsAreAnnounced) {
    make();
    dashboardWith({payout("p1", 10, "2026-06-01T10:00:00Z"), payout("p2", 5, std::nullopt)});
    EXPECT_TRUE(deliverer->delivered.empty()) << "paid before this start";
    EXPECT_EQ(bridge->notifiedPayoutKeysOrder(), (std::deque<std::string>{"p1", "p2"}));

    WorkerDashboard::PayoutDisbursement keyless;  // no id: status, method and amount make it
    keyless.amountCents = 1240;
    keyless.status = "sent";
    dashboardWith({payout("p1", 10, "2026-06-01T10:00:00Z"), payout("p2", 5, std::nullopt),
                   payout("p3", 12.4, "2026-06-18T12:05:00Z"),
                   payout("old", 3, "2026-06-17T09:00:00Z", "usdc"), keyless});
    ASSERT_EQ(deliverer->delivered.size(), 2u) << "p3 and the keyless one; the older one is not";
    EXPECT_EQ(deliverer->delivered[0].title, "$12.40 sent to PayPal");
    EXPECT_EQ(deliverer->delivered[1].title, "$12.40 sent to your payout method");
    EXPECT_EQ(bridge->notifiedPayoutKeysOrder().back(), "sent|unknown|12.40");

    defaults.setBool("notify.payout", false);
    dashboardWith({payout("p4", 1, "2026-06-18T12:06:00Z")});
    EXPECT_EQ(deliverer->delivered.size(), 2u);
    EXPECT_EQ(lines().back().substr(lines().back().find(" title=")),
              " title=\"$1.00 sent to PayPal\" outcome=muted-by-pref");
}

TEST_F(NotificationBridgeTest, PayoutKeysStayBoundedAtTwoHundredDroppingTheOldest) {
    defaults.setBool("notify.payout", false);  // only the bookkeeping matters here
    make();
    dashboardWith({});
    std::vector<WorkerDashboard::PayoutDisbursement> history;
    for (int i = 0; i < 250; ++i)
        history.push_back(payout("k" + std::to_string(i), 1, std::nullopt));
    dashboardWith(history);
    const auto& keys = bridge->notifiedPayoutKeysOrder();
    ASSERT_EQ(keys.size(), 200u);
    EXPECT_EQ(keys.front(), "k50");
    EXPECT_EQ(keys.back(), "k249");
    // A dropped key is forgotten by the set too: seen again, it counts as new.
    dashboardWith({payout("k0", 1, std::nullopt)});
    EXPECT_EQ(keys.back(), "k0");
    EXPECT_EQ(keys.size(), 200u);
}

TEST_F(NotificationBridgeTest, PayoutTitlesNameTheMethod) {
    const std::vector<std::pair<std::optional<std::string>, std::string>> cases{
        {"paypal", "$12.40 sent to PayPal"},
        {" USDC ", "$12.40 sent to USDC on Base"},
        {"ach", "$12.40 sent to ACH"},
        {"wire", "$12.40 sent to your payout method"},
        {std::nullopt, "$12.40 sent to your payout method"}};
    for (const auto& [method, title] : cases)
        EXPECT_EQ(NotificationBridge::payoutTitle(12.4, method), title);
}

TEST_F(NotificationBridgeTest, TheDailySummaryWaitsForTwentyTwoAndFollowsTheDay) {
    defaults.setBool("notify.daily", true);
    workerRunning = true;  // no offline notice in the way
    make();
    EarningsSummary summary;
    summary.todayUSD = 4.2;
    summary.todayActiveMinutes = 185;
    summary.jobsCompletedToday = 12;
    model->earnings().applyEarningsSummary(summary);
    ASSERT_TRUE(bridge->pendingDailySummary());
    EXPECT_EQ(bridge->pendingDailySummary()->body,
              "$4.20 earned today · 12 jobs · 3 hr 5 min active.");
    EXPECT_EQ(lines(),
              (std::vector<std::string>{"send-attempt id=daily-summary title=\"Daily summary\" "
                                        "outcome=would-have-fired"}));
    model->account().setTopJobs({});  // another refresh with the same figures: no new line
    dashboardWith({});
    EXPECT_EQ(lines().size(), 1u);

    executor.advance(10 * 3600 - 1);  // 21:59:59
    EXPECT_TRUE(deliverer->delivered.empty());
    executor.advance(1);
    ASSERT_EQ(deliverer->delivered.size(), 1u);
    EXPECT_EQ(deliverer->delivered[0].id, "daily-summary");
    executor.advance(24 * 3600);
    EXPECT_EQ(deliverer->delivered.size(), 2u) << "every day until replaced";

    summary.todayUSD = 0;  // a new day with nothing yet
    model->earnings().applyEarningsSummary(summary);
    EXPECT_FALSE(bridge->pendingDailySummary());
    EXPECT_EQ(deliverer->withdrawn, (std::vector<std::string>{"daily-summary"}));
    EXPECT_EQ(
        lines().back(),
        "send-attempt id=daily-summary title=\"Daily summary\" outcome=suppressed-no-earnings");

    defaults.setBool("notify.daily", false);
    summary.todayUSD = 1;
    model->earnings().applyEarningsSummary(summary);
    EXPECT_FALSE(bridge->pendingDailySummary());
    EXPECT_EQ(lines().back(),
              "send-attempt id=daily-summary title=\"Daily summary\" outcome=muted-by-pref");
}

TEST_F(NotificationBridgeTest, TheNextSummaryIsAtTwentyTwoLocalTimeInEveryZone) {
    const std::vector<std::tuple<const char*, double, double>> cases{
        // zone, now (unix), the next 22:00 (unix)
        {"UTC", 1'781'784'000, 1'781'820'000},               // 12:00 -> 22:00 the same day
        {"UTC", 1'781'820'000, 1'781'906'400},               // at 22:00 sharp -> tomorrow
        {"America/New_York", 1'781'784'000, 1'781'834'400},  // 08:00 EDT -> 22:00 EDT
        {"Europe/Berlin", 1'792'875'600, 1'792'962'000},  // Sat 24 Oct 23:00 CEST -> Sun 22:00 CET
    };
    for (const auto& [zone, now, next] : cases) {
        SCOPED_TRACE(zone);
        ::setenv("TZ", zone, 1);
        ::tzset();
        EXPECT_EQ(unixSeconds(NotificationBridge::nextDailySummaryDate(dateFromUnixSeconds(now))),
                  next);
    }
}

struct AuthCase {
    const char* name;
    Status status;
    bool grant;
    std::optional<std::string> requestError;
    std::vector<std::string> lines;  // after the attempt line
    bool delivered;
};

TEST_F(NotificationBridgeTest, EachAuthorizationAnswerEndsAsItsOwnLine) {
    const std::string attempt = "send-attempt id=x title=\"T\" outcome=";
    const std::string auth = "notification-auth source=\"firstTrigger\" status=";
    const std::vector<AuthCase> cases{
        {"authorized", Status::authorized, true, std::nullopt, {}, true},
        {"no service",
         Status::denied,
         true,
         std::nullopt,
         {auth + "denied outcome=abort-no-reprompt", attempt + "aborted-unauthorized"},
         false},
        {"unknown",
         Status::unknown,
         true,
         std::nullopt,
         {auth + "unknown outcome=abort", attempt + "aborted-unauthorized"},
         false},
        {"asked, granted",
         Status::notDetermined,
         true,
         std::nullopt,
         {"requestAuthorization source=\"firstTrigger\""},
         true},
        {"asked, refused",
         Status::notDetermined,
         false,
         std::nullopt,
         {"requestAuthorization source=\"firstTrigger\"",
          auth + "not-determined outcome=denied-abort", attempt + "aborted-unauthorized"},
         false},
        {"asked, failed",
         Status::notDetermined,
         true,
         "no bus",
         {"requestAuthorization source=\"firstTrigger\"",
          auth + "not-determined outcome=error-abort", attempt + "aborted-unauthorized"},
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        fs::remove_all(folder.path() / "logs");
        deliverer = std::make_shared<FakeDeliverer>();
        deliverer->status = c.status;
        deliverer->grant = c.grant;
        deliverer->requestError = c.requestError;
        make();
        bridge->fire({DevNotificationEntry::Kind::payoutIssued, "x", "T", "B", 0});
        auto expected = std::vector<std::string>{attempt + "would-have-fired"};
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        auto got = lines();
        for (auto& line : got) {  // the dev entry's id carries the time; name it "x"
            const auto title = line.find(" title=");
            if (line.starts_with("send-attempt id=") && title != std::string::npos)
                line = "send-attempt id=x" + line.substr(title);
        }
        EXPECT_EQ(got, expected);
        EXPECT_EQ(deliverer->delivered.size(), c.delivered ? 1u : 0u);
    }
}

TEST_F(NotificationBridgeTest, ConcurrentFirstUsesShareOneRequestAndErrorsAreLogged) {
    deliverer->status = Status::notDetermined;
    deliverer->holdRequests = true;
    make();
    bridge->sendWorkerOffline(10);
    bridge->sendWorkerOffline(11);
    EXPECT_EQ(deliverer->authorizationRequests, 1);
    deliverer->heldRequests.front()();
    EXPECT_EQ(deliverer->delivered.size(), 2u);

    deliverer->status = Status::authorized;
    deliverer->deliveryError = "org.freedesktop.DBus.Error.NoReply";
    bridge->sendPayoutIssued(2, "ach");
    EXPECT_EQ(lines().back().substr(lines().back().find(" title=")),
              " title=\"$2.00 sent to ACH\" outcome=delivery-error "
              "error=\"org.freedesktop.DBus.Error.NoReply\"");
}

TEST_F(NotificationBridgeTest, TestNotificationsFireInOrderEachAfterItsDelay) {
    make(DataMode::dummy);
    bool finished = false;
    bridge->fireAllSequential([&] { finished = true; });
    auto titles = [&] {
        std::vector<std::string> out;
        for (const auto& r : deliverer->delivered) out.push_back(r.title);
        return out;
    };
    EXPECT_EQ(titles(), (std::vector<std::string>{"$12.40 sent to PayPal"}));
    executor.advance(29);
    EXPECT_EQ(titles().size(), 1u) << "the delayed one waits its 30 seconds";
    executor.advance(1);
    EXPECT_EQ(titles(), (std::vector<std::string>{"$12.40 sent to PayPal", "$12.40 sent to PayPal",
                                                  "Worker offline > 10 min"}));
    executor.advance(30);
    EXPECT_TRUE(finished);
    EXPECT_EQ(titles().size(), 4u);
    ASSERT_TRUE(bridge->pendingDailySummary()) << "the summary waits for 22:00";
    EXPECT_EQ(bridge->pendingDailySummary()->body,
              "$12.40 earned today · 18 jobs · 4 hr 5 min active.");
}

TEST_F(NotificationBridgeTest, DemoDataSchedulesNoSummaryAndChecksNoOffline) {
    testing::LogCapture logs;
    defaults.setBool("notify.daily", true);
    make(DataMode::dummy);
    EarningsSummary summary;
    summary.todayUSD = 4.2;
    model->earnings().applyEarningsSummary(summary);
    summary.todayUSD = 4.3;
    model->earnings().applyEarningsSummary(summary);
    executor.advance(3600);
    EXPECT_FALSE(bridge->pendingDailySummary());
    EXPECT_TRUE(deliverer->delivered.empty());
    int skips = 0;
    for (const auto& line : logs.lines())
        skips += line.find(
                     "refreshNotificationSchedules: skipping daily summary scheduling in "
                     "demo mode") != std::string::npos;
    EXPECT_EQ(skips, 1) << "said once";
}

TEST_F(NotificationBridgeTest, ALogThatCannotBeWrittenDropsTheLineAndDeliveryGoesOn) {
    folder.write("logs", "a file where the log folder goes");
    make();
    bridge->sendWorkerOffline(12);
    EXPECT_EQ(deliverer->delivered.size(), 1u);
}

TEST(NotificationEventLog, RotatesAtOneMebibyteKeepingOneOldFile) {
    testing::ScratchFolder folder;
    NotificationEventLog::Options options;
    options.fileURL = folder.path() / "deep" / "logs" / "notifications.log";
    options.rotatedFileURL = folder.path() / "deep" / "logs" / "notifications.1.log";
    options.now = [] { return dateFromUnixSeconds(1'781'796'600); };
    NotificationEventLog log(options);
    ASSERT_TRUE(log.append("first")) << "the folder is made";
    EXPECT_EQ(readFile(options.fileURL), "[2026-06-18T15:30:00Z] first\n");

    const std::string filler(NotificationEventLog::defaultMaxFileSize - 40, 'x');
    writeFileAtomically(options.fileURL, filler);
    ASSERT_TRUE(log.append("fits"));  // 1,048,536 + 30 bytes: still under the limit
    EXPECT_FALSE(fs::exists(options.rotatedFileURL));
    ASSERT_TRUE(log.append("over"));
    EXPECT_EQ(readFile(options.rotatedFileURL), filler + "[2026-06-18T15:30:00Z] fits\n");
    EXPECT_EQ(readFile(options.fileURL), "[2026-06-18T15:30:00Z] over\n");

    writeFileAtomically(options.fileURL, filler + filler);
    ASSERT_TRUE(log.append("again"));
    EXPECT_EQ(fs::file_size(options.rotatedFileURL), 2 * filler.size()) << "one old file only";
    EXPECT_EQ(std::distance(fs::directory_iterator(options.fileURL.parent_path()),
                            fs::directory_iterator()),
              2);
}

}  // namespace
}  // namespace corvane
