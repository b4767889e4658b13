#pragma once
// The owner's notifications: a payout issued, the worker offline for more than ten minutes, and
// the day's summary at 22:00. Fed by the app model's changes (and, for the offline check, a
// 2-second tick while enrolled with real data); every attempt, shown or not, leaves its line in
// the notification log. Delivery goes through a NotificationDeliverer; the desktop gives the
// notification service's, a headless worker one that shows nothing. Lives on the main sequence.

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/app/DevNotificationCatalog.h"
#include "CorvaneApp/app/NotificationDeliverer.h"
#include "CorvaneApp/app/NotificationEventLog.h"
#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

enum class NotificationAuthorizationSource { settingsToggle, firstTrigger };

// The owner's choices, as the settings page stores them.
struct NotificationPreferences {
    static constexpr std::string_view payoutKey = "notify.payout";
    static constexpr std::string_view offlineKey = "notify.offline";
    static constexpr std::string_view dailyKey = "notify.daily";
    static constexpr std::string_view dailyHourKey = "notify.dailyHour";
    static constexpr std::string_view dailyMinuteKey = "notify.dailyMinute";
    bool payout = true;
    bool offline = true;
    bool daily = false;
    friend bool operator==(const NotificationPreferences&,
                           const NotificationPreferences&) = default;

    static NotificationPreferences read(const UserDefaults& defaults);
    // The stored value of `key`, else `defaultValue`.
    static bool prefOn(const UserDefaults& defaults, std::string_view key, bool defaultValue);
};

class NotificationBridge {
  public:
    static constexpr double offlineThresholdSeconds = 600.0;
    static constexpr double offlineRepeatSeconds = 3600.0;
    static constexpr double offlineCheckSeconds = 2.0;
    static constexpr std::size_t maxNotifiedPayoutKeys = 200;
    static constexpr int dailySummaryHour = 22;
    static constexpr int dailySummaryMinute = 0;
    static constexpr std::string_view dailySummaryID = "daily-summary";
    static constexpr std::string_view dailySummaryTitle = "Daily summary";
    static constexpr std::string_view offlineTitle = "Worker offline > 10 min";
    static constexpr std::string_view offlineCategory = "worker-offline";
    static constexpr std::string_view payoutCategory = "payout-issued";
    static constexpr std::string_view dailyCategory = "daily-summary";
    static constexpr std::string_view payoutBody = "Your Corvane earnings are on their way.";
    static constexpr std::string_view diagnoseAction = "diagnose";

    struct Dependencies {
        std::shared_ptr<NotificationEventLog> log;  // required
        DataMode dataMode = DataMode::real;
        NowFunction now = systemNow;
        // When the runtime-state file was last read, if ever: a reading older than ten minutes
        // counts as a worker that is offline.
        std::function<std::optional<Date>()> lastStateReadAt;
    };

    NotificationBridge(Executor& mainSequence, AppModel& model, UserDefaults& preferences,
                       Dependencies dependencies);
    ~NotificationBridge();
    NotificationBridge(const NotificationBridge&) = delete;
    NotificationBridge& operator=(const NotificationBridge&) = delete;

    // Absent: nothing is shown, every attempt is still logged.
    void setDeliverer(std::shared_ptr<NotificationDeliverer> deliverer);
    // What the "diagnose" action on a notification does (open the settings, copy diagnostics).
    void setDiagnoseHandler(std::function<void()> handler) { diagnose_ = std::move(handler); }

    // --- Sending. `preferenceEnabled` absent: the owner's stored choice decides.
    void sendPayoutIssued(double amount, const std::optional<std::string>& method,
                          std::optional<bool> preferenceEnabled = std::nullopt);
    void sendWorkerOffline(std::int64_t minutes,
                           std::optional<bool> preferenceEnabled = std::nullopt);
    // Replaces the one summary that waits for 22:00; with nothing earned today it waits no more.
    void scheduleDailySummary(std::optional<double> today,
                              std::optional<std::int64_t> activeMinutes, std::int64_t jobsCompleted,
                              std::optional<bool> preferenceEnabled = std::nullopt);
    // After each account refresh: today's summary as the model now tells it (real data only).
    void refreshNotificationSchedules();
    // Checks that notifications may be shown, asking once if that is not decided; `done` says
    // whether they may.
    void ensureAuthorizationIfNeeded(NotificationAuthorizationSource source,
                                     std::function<void(bool)> done);

    // --- What the model's changes and the tick drive
    void handlePayoutHistoryUpdate(const std::vector<WorkerDashboard::PayoutDisbursement>& history);
    void evaluateWorkerOfflineNotification(Date now);

    // --- The demo session's test notifications
    void fire(const DevNotificationEntry& entry, std::function<void()> finished = {});
    // Every catalogue entry in order, each after the one before has been handed over.
    void fireAllSequential(std::function<void()> finished = {});

    // --- State, for the screens and tests
    const std::deque<std::string>& notifiedPayoutKeysOrder() const { return payoutKeysOrder_; }
    bool offlineNotificationStreakActive() const { return offlineStreakActive_; }
    const std::optional<Date>& lastOfflineNotificationAt() const {
        return lastOfflineNotificationAt_;
    }
    // The summary that waits for 22:00, if one does.
    const std::optional<NotificationRequest>& pendingDailySummary() const { return pendingDaily_; }
    Date appStartedAt() const { return appStartedAt_; }

    // "$12.40 sent to PayPal"; an unknown method is "your payout method".
    static std::string payoutTitle(double amount, const std::optional<std::string>& method);
    // The payout's id when it has one, else its status, method and amount.
    static std::string payoutKey(const WorkerDashboard::PayoutDisbursement& payout);
    // The next 22:00 after `now`, local time.
    static Date nextDailySummaryDate(Date now);

  private:
    struct Preference {
        std::string_view key;
        bool defaultValue;
    };
    void modelChanged(ModelParts parts);
    void resetBookkeeping();
    void post(NotificationRequest request, Preference preference,
              std::optional<bool> preferenceEnabled, std::function<void()> finished,
              bool scheduleOnly = false);
    void deliverNow(const NotificationRequest& request, std::function<void()> finished);
    void armDailySummary();
    void cancelDailySummary();
    void logAttempt(std::string_view id, std::string_view title, std::string_view outcome);
    void logLine(const std::string& line);
    void recordPayoutKey(const std::string& key);
    void syncOfflineTick();
    void fireFrom(std::size_t index, std::function<void()> finished);

    Executor& main_;
    AppModel& model_;
    UserDefaults& preferences_;
    Dependencies deps_;
    std::shared_ptr<NotificationDeliverer> deliverer_;
    std::function<void()> diagnose_;
    const Date appStartedAt_;
    Subscription modelSubscription_;
    std::shared_ptr<NotificationBridge*> alive_;

    // Payouts already told (or only recorded), oldest first, at most 200.
    std::unordered_set<std::string> payoutKeys_;
    std::deque<std::string> payoutKeysOrder_;
    bool payoutHistorySeen_ = false;
    std::vector<WorkerDashboard::PayoutDisbursement> lastPayoutHistory_;

    bool offlineStreakActive_ = false;
    std::optional<Date> offlineStreakStartedAt_, offlineSinceAt_, lastOfflineNotificationAt_;
    TimerHandle offlineTick_;

    // The authorisation request in flight; later askers wait for its answer.
    std::vector<std::function<void(bool)>> pendingAuthRequest_;

    std::optional<NotificationRequest> pendingDaily_;
    // The last decision about the summary, so that an unchanged one is not logged each minute.
    std::optional<std::string> lastDailyDecision_;
    bool loggedDemoSkip_ = false;
    TimerHandle dailyTimer_;
    std::vector<TimerHandle> devTimers_;
    std::uint64_t sequence_ = 0;  // keeps ids apart: one notification never replaces another
};

}  // namespace corvane
