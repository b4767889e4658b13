#include "CorvaneApp/app/NotificationBridge.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

std::string twoDecimals(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

double payoutAmount(const WorkerDashboard::PayoutDisbursement& payout) {
    if (payout.amountUSD) return *payout.amountUSD;
    if (payout.amountCents) return double(*payout.amountCents) / 100.0;
    return 0;
}

std::string_view sourceName(NotificationAuthorizationSource source) {
    return source == NotificationAuthorizationSource::settingsToggle ? "settingsToggle"
                                                                     : "firstTrigger";
}

// "45 min", "3 hr 5 min": how long the worker was at it today.
std::string activeTime(std::int64_t minutes) {
    if (minutes < 60) return std::to_string(minutes) + " min";
    std::string text = std::to_string(minutes / 60) + " hr";
    if (minutes % 60 != 0) text += " " + std::to_string(minutes % 60) + " min";
    return text;
}

}  // namespace

NotificationPreferences NotificationPreferences::read(const UserDefaults& defaults) {
    NotificationPreferences preferences;
    preferences.payout = prefOn(defaults, payoutKey, true);
    preferences.offline = prefOn(defaults, offlineKey, true);
    preferences.daily = prefOn(defaults, dailyKey, false);
    return preferences;
}

bool NotificationPreferences::prefOn(const UserDefaults& defaults, std::string_view key,
                                     bool defaultValue) {
    return defaults.boolean(key).value_or(defaultValue);
}

NotificationBridge::NotificationBridge(Executor& mainSequence, AppModel& model,
                                       UserDefaults& preferences, Dependencies dependencies)
    : main_(mainSequence),
      model_(model),
      preferences_(preferences),
      deps_(std::move(dependencies)),
      appStartedAt_(deps_.now()),
      alive_(std::make_shared<NotificationBridge*>(this)) {
    modelSubscription_ = model_.observe([this](ModelParts parts) { modelChanged(parts); });
    syncOfflineTick();
}

NotificationBridge::~NotificationBridge() {
    modelSubscription_.reset();
    alive_.reset();
}

void NotificationBridge::setDeliverer(std::shared_ptr<NotificationDeliverer> deliverer) {
    deliverer_ = std::move(deliverer);
    if (!deliverer_) return;
    std::weak_ptr<NotificationBridge*> weak = alive_;
    deliverer_->setActionHandler([weak](const std::string&, const std::string& action) {
        auto self = weak.lock();
        if (self && action == diagnoseAction && (*self)->diagnose_) (*self)->diagnose_();
    });
}

// --- The model's changes

void NotificationBridge::modelChanged(ModelParts parts) {
    syncOfflineTick();
    if (model_.phase() != AppPhase::enrolled) {
        resetBookkeeping();
        return;
    }
    if (parts.contains(ModelPart::account)) {
        const auto& history = model_.account().payoutHistory();
        if (!payoutHistorySeen_ || history != lastPayoutHistory_) {
            lastPayoutHistory_ = history;
            handlePayoutHistoryUpdate(history);
        }
    }
    if (parts.intersects({ModelPart::account, ModelPart::earnings})) refreshNotificationSchedules();
}

// What a session told is forgotten with it: a new enrolment starts afresh.
void NotificationBridge::resetBookkeeping() {
    payoutKeys_.clear();
    payoutKeysOrder_.clear();
    payoutHistorySeen_ = false;
    lastPayoutHistory_.clear();
    offlineStreakActive_ = false;
    offlineStreakStartedAt_.reset();
    offlineSinceAt_.reset();
    lastOfflineNotificationAt_.reset();
    if (pendingDaily_) cancelDailySummary();
    lastDailyDecision_.reset();
}

// The offline check runs only while it can mean something: real data, enrolled.
void NotificationBridge::syncOfflineTick() {
    const bool wanted = deps_.dataMode == DataMode::real && model_.phase() == AppPhase::enrolled;
    if (wanted == offlineTick_.active()) return;
    if (!wanted) {
        offlineTick_.cancel();
        return;
    }
    offlineTick_ = main_.scheduleRepeating(
        offlineCheckSeconds, [this] { evaluateWorkerOfflineNotification(deps_.now()); });
    evaluateWorkerOfflineNotification(deps_.now());  // the streak counts from now, not a tick later
}

// --- Payouts

std::string NotificationBridge::payoutKey(const WorkerDashboard::PayoutDisbursement& payout) {
    if (payout.payoutEventId && !payout.payoutEventId->empty()) return *payout.payoutEventId;
    return payout.status.value_or("unknown") + "|" + payout.method.value_or("unknown") + "|" +
           twoDecimals(payoutAmount(payout));
}

std::string NotificationBridge::payoutTitle(double amount,
                                            const std::optional<std::string>& method) {
    std::string name = "your payout method";
    if (method) {
        if (auto type = payoutMethodTypeFromRaw(asciiLowercased(trimAsciiWhitespace(*method)))) {
            switch (*type) {
                case PayoutMethodType::usdc:
                    name = "USDC on Base";
                    break;
                case PayoutMethodType::paypal:
                    name = "PayPal";
                    break;
                case PayoutMethodType::ach:
                    name = "ACH";
                    break;
            }
        }
    }
    return "$" + twoDecimals(amount) + " sent to " + name;
}

void NotificationBridge::recordPayoutKey(const std::string& key) {
    payoutKeys_.insert(key);
    payoutKeysOrder_.push_back(key);
    while (payoutKeysOrder_.size() > maxNotifiedPayoutKeys) {
        payoutKeys_.erase(payoutKeysOrder_.front());
        payoutKeysOrder_.pop_front();
    }
}

void NotificationBridge::handlePayoutHistoryUpdate(
    const std::vector<WorkerDashboard::PayoutDisbursement>& history) {
    // The first list after start is what was paid before: recorded, not announced.
    const bool firstUpdate = !payoutHistorySeen_;
    payoutHistorySeen_ = true;
    for (const auto& payout : history) {
        const std::string key = payoutKey(payout);
        if (payoutKeys_.contains(key)) continue;
        recordPayoutKey(key);
        if (firstUpdate) continue;
        const auto created = payout.createdAt
                                 ? AppModelDateParser::parseCoordinatorTimestamp(*payout.createdAt)
                                 : std::nullopt;
        if (created && *created < appStartedAt_) continue;
        sendPayoutIssued(payoutAmount(payout), payout.method);
    }
}

void NotificationBridge::sendPayoutIssued(double amount, const std::optional<std::string>& method,
                                          std::optional<bool> preferenceEnabled) {
    NotificationRequest request;
    request.id = "payout-" + std::to_string(std::int64_t(unixSeconds(deps_.now()))) + "-" +
                 std::to_string(++sequence_);
    request.title = payoutTitle(amount, method);
    request.body = payoutBody;
    request.categoryIdentifier = payoutCategory;
    post(std::move(request), {NotificationPreferences::payoutKey, true}, preferenceEnabled, {});
}

// --- The worker offline

void NotificationBridge::evaluateWorkerOfflineNotification(Date now) {
    const auto readAt = deps_.lastStateReadAt ? deps_.lastStateReadAt() : std::nullopt;
    const bool stale = readAt && secondsBetween(*readAt, now) > offlineThresholdSeconds;
    if (model_.isWorkerRunning() && !stale) {
        offlineStreakActive_ = false;
        offlineStreakStartedAt_.reset();
        offlineSinceAt_.reset();
        lastOfflineNotificationAt_.reset();
        return;
    }
    if (!offlineStreakActive_) {
        offlineStreakActive_ = true;
        offlineStreakStartedAt_ = now;
        offlineSinceAt_ = now;
        lastOfflineNotificationAt_.reset();
    }
    const double elapsed = secondsBetween(*offlineSinceAt_, now);
    if (elapsed < offlineThresholdSeconds) return;
    if (lastOfflineNotificationAt_ &&
        secondsBetween(*lastOfflineNotificationAt_, now) < offlineRepeatSeconds) {
        return;
    }
    sendWorkerOffline(std::max<std::int64_t>(std::int64_t(std::floor(elapsed / 60)), 10));
    lastOfflineNotificationAt_ = now;
}

void NotificationBridge::sendWorkerOffline(std::int64_t minutes,
                                           std::optional<bool> preferenceEnabled) {
    NotificationRequest request;
    request.id = "offline-" + std::to_string(std::int64_t(unixSeconds(deps_.now())));
    request.title = offlineTitle;
    request.body = "Your computer hasn't checked in for " + std::to_string(minutes) +
                   " minutes. Earnings paused.";
    request.categoryIdentifier = offlineCategory;
    request.actions = {{std::string(diagnoseAction), "Diagnose"}};
    post(std::move(request), {NotificationPreferences::offlineKey, true}, preferenceEnabled, {});
}

// --- The daily summary

Date NotificationBridge::nextDailySummaryDate(Date now) {
    std::tm parts = localParts(now);
    parts.tm_hour = dailySummaryHour;
    parts.tm_min = dailySummaryMinute;
    parts.tm_sec = 0;
    Date at = fromLocalParts(parts);
    if (at <= now) {
        parts.tm_mday += 1;  // mktime carries it into the next month or year
        at = fromLocalParts(parts);
    }
    return at;
}

void NotificationBridge::refreshNotificationSchedules() {
    if (deps_.dataMode == DataMode::dummy) {
        if (!loggedDemoSkip_) {
            loggedDemoSkip_ = true;
            log::get("NotificationBridge")
                ->info(
                    "refreshNotificationSchedules: skipping daily summary scheduling in demo "
                    "mode");
        }
        return;
    }
    const auto& earnings = model_.earnings();
    scheduleDailySummary(earnings.todayEarnings(), earnings.activeMinutesToday(),
                         earnings.jobsCompletedToday());
}

void NotificationBridge::scheduleDailySummary(std::optional<double> today,
                                              std::optional<std::int64_t> activeMinutes,
                                              std::int64_t jobsCompleted,
                                              std::optional<bool> preferenceEnabled) {
    // Called after every refresh: an unchanged decision is neither logged nor scheduled again.
    auto decide = [this](std::string decision) {
        if (lastDailyDecision_ == decision) return false;
        lastDailyDecision_ = std::move(decision);
        return true;
    };
    if (!today || *today <= 0) {
        if (!decide("suppressed")) return;
        logAttempt(dailySummaryID, dailySummaryTitle, "suppressed-no-earnings");
        if (pendingDaily_) cancelDailySummary();
        return;
    }
    NotificationRequest request;
    request.id = dailySummaryID;
    request.title = dailySummaryTitle;
    request.body = "$" + twoDecimals(*today) + " earned today";
    if (jobsCompleted > 0)
        request.body +=
            " · " + std::to_string(jobsCompleted) + (jobsCompleted == 1 ? " job" : " jobs");
    if (activeMinutes && *activeMinutes > 0)
        request.body += " · " + activeTime(*activeMinutes) + " active";
    request.body += ".";
    request.categoryIdentifier = dailyCategory;
    const bool enabled = preferenceEnabled.value_or(
        NotificationPreferences::prefOn(preferences_, NotificationPreferences::dailyKey, false));
    if (!decide(enabled ? "schedule:" + request.body : "muted")) return;
    post(std::move(request), {NotificationPreferences::dailyKey, false}, enabled, {}, true);
}

void NotificationBridge::armDailySummary() {
    const Date now = deps_.now();
    dailyTimer_ = main_.scheduleOnce(secondsBetween(now, nextDailySummaryDate(now)), [this] {
        if (!pendingDaily_) return;
        const NotificationRequest request = *pendingDaily_;
        std::weak_ptr<NotificationBridge*> weak = alive_;
        ensureAuthorizationIfNeeded(
            NotificationAuthorizationSource::firstTrigger, [weak, request](bool authorized) {
                auto self = weak.lock();
                if (!self) return;
                if (!authorized) {
                    (*self)->logAttempt(request.id, request.title, "aborted-unauthorized");
                    return;
                }
                (*self)->deliverNow(request, {});
            });
        armDailySummary();  // every day at the same time, until replaced
    });
}

void NotificationBridge::cancelDailySummary() {
    pendingDaily_.reset();
    dailyTimer_.cancel();
    if (deliverer_) deliverer_->withdraw(std::string(dailySummaryID));
}

// --- Sending

void NotificationBridge::post(NotificationRequest request, Preference preference,
                              std::optional<bool> preferenceEnabled, std::function<void()> finished,
                              bool scheduleOnly) {
    auto finish = [finished = std::move(finished)] {
        if (finished) finished();
    };
    const bool enabled = preferenceEnabled.value_or(
        NotificationPreferences::prefOn(preferences_, preference.key, preference.defaultValue));
    logAttempt(request.id, request.title, enabled ? "would-have-fired" : "muted-by-pref");
    if (!enabled) {
        if (request.id == dailySummaryID && pendingDaily_) cancelDailySummary();
        finish();
        return;
    }
    std::weak_ptr<NotificationBridge*> weak = alive_;
    ensureAuthorizationIfNeeded(
        NotificationAuthorizationSource::firstTrigger,
        [weak, request = std::move(request), finish, scheduleOnly](bool authorized) {
            auto self = weak.lock();
            if (!self) return;
            NotificationBridge& bridge = **self;
            if (!authorized) {
                bridge.logAttempt(request.id, request.title, "aborted-unauthorized");
                finish();
                return;
            }
            if (scheduleOnly) {
                bridge.pendingDaily_ = request;
                bridge.armDailySummary();
                finish();
                return;
            }
            bridge.deliverNow(request, finish);
        });
}

void NotificationBridge::deliverNow(const NotificationRequest& request,
                                    std::function<void()> finished) {
    if (!deliverer_) {
        if (finished) finished();
        return;
    }
    std::weak_ptr<NotificationBridge*> weak = alive_;
    deliverer_->deliver(
        request, [weak, id = request.id, title = request.title,
                  finished = std::move(finished)](std::optional<std::string> error) {
            auto self = weak.lock();
            if (!self) return;
            if (error) (*self)->logAttempt(id, title, "delivery-error error=\"" + *error + "\"");
            if (finished) finished();
        });
}

void NotificationBridge::ensureAuthorizationIfNeeded(NotificationAuthorizationSource source,
                                                     std::function<void(bool)> done) {
    if (!deliverer_) {
        done(true);  // nothing is shown, so nothing needs allowing
        return;
    }
    std::weak_ptr<NotificationBridge*> weak = alive_;
    const std::string prefix =
        "notification-auth source=\"" + std::string(sourceName(source)) + "\"";
    deliverer_->authorizationStatus([weak, prefix, source, done = std::move(done)](
                                        NotificationAuthorizationStatus status) {
        auto self = weak.lock();
        if (!self) return;
        NotificationBridge& bridge = **self;
        switch (status) {
            case NotificationAuthorizationStatus::authorized:
                done(true);
                return;
            case NotificationAuthorizationStatus::denied:
                bridge.logLine(prefix + " status=denied outcome=abort-no-reprompt");
                done(false);
                return;
            case NotificationAuthorizationStatus::unknown:
                bridge.logLine(prefix + " status=unknown outcome=abort");
                done(false);
                return;
            case NotificationAuthorizationStatus::notDetermined:
                break;
        }
        // Concurrent first uses share one request.
        bridge.pendingAuthRequest_.push_back(done);
        if (bridge.pendingAuthRequest_.size() > 1) return;
        bridge.logLine("requestAuthorization source=\"" + std::string(sourceName(source)) + "\"");
        bridge.deliverer_->requestAuthorization(
            [weak, prefix](bool granted, std::optional<std::string> error) {
                auto self = weak.lock();
                if (!self) return;
                NotificationBridge& bridge = **self;
                if (error) {
                    bridge.logLine(prefix + " status=not-determined outcome=error-abort");
                } else if (!granted) {
                    bridge.logLine(prefix + " status=not-determined outcome=denied-abort");
                }
                auto waiting = std::exchange(bridge.pendingAuthRequest_, {});
                for (auto& waiter : waiting) waiter(granted && !error);
            });
    });
}

void NotificationBridge::logAttempt(std::string_view id, std::string_view title,
                                    std::string_view outcome) {
    logLine("send-attempt id=" + std::string(id) + " title=\"" + std::string(title) +
            "\" outcome=" + std::string(outcome));
}

void NotificationBridge::logLine(const std::string& line) {
    if (!deps_.log->append(line)) {
        log::get("NotificationBridge")
            ->warn("cannot write {}; dropped: {}", deps_.log->fileURL().string(), line);
    }
}

// --- Test notifications

void NotificationBridge::fire(const DevNotificationEntry& entry, std::function<void()> finished) {
    if (entry.delaySeconds > 0) {
        DevNotificationEntry now = entry;
        now.delaySeconds = 0;
        devTimers_.push_back(
            main_.scheduleOnce(entry.delaySeconds, [this, now, finished] { fire(now, finished); }));
        return;
    }
    using K = DevNotificationEntry::Kind;
    NotificationRequest request;
    request.title = entry.title;
    request.body = entry.body;
    switch (entry.kind) {
        case K::payoutIssued:
            request.id = "dev-payout-" + std::to_string(++sequence_);
            request.categoryIdentifier = payoutCategory;
            post(std::move(request), {NotificationPreferences::payoutKey, true}, true,
                 std::move(finished));
            return;
        case K::workerOffline:
            request.id = "dev-offline-" + std::to_string(++sequence_);
            request.categoryIdentifier = offlineCategory;
            request.actions = {{std::string(diagnoseAction), "Diagnose"}};
            post(std::move(request), {NotificationPreferences::offlineKey, true}, true,
                 std::move(finished));
            return;
        case K::dailySummary:
            lastDailyDecision_.reset();  // a test run is logged even when nothing changed
            scheduleDailySummary(12.40, 245, 18, true);
            if (finished) finished();
            return;
    }
}

void NotificationBridge::fireAllSequential(std::function<void()> finished) {
    fireFrom(0, std::move(finished));
}

void NotificationBridge::fireFrom(std::size_t index, std::function<void()> finished) {
    const auto& entries = DevNotificationCatalog::entries();
    if (index >= entries.size()) {
        if (finished) finished();
        return;
    }
    std::weak_ptr<NotificationBridge*> weak = alive_;
    fire(entries[index], [weak, index, finished = std::move(finished)] {
        if (auto self = weak.lock()) (*self)->fireFrom(index + 1, finished);
    });
}

}  // namespace corvane
