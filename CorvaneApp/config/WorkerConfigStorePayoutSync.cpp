// WorkerConfigStore, continued: pushing payout choices to the coordinator, and rolling a refused
// choice back to the last pair the coordinator accepted.

#include "CorvaneApp/config/ConfigFile.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

constexpr std::string_view kMethodKeyPrefix = "worker-config-store.payout-prefs.method.";
constexpr std::string_view kScheduleKeyPrefix = "worker-config-store.payout-prefs.schedule.";
constexpr std::string_view kCycleConflictBanner =
    "Wait until the current payout cycle completes before changing payout settings.";
constexpr std::string_view kBaselineFailedBanner =
    "Couldn’t restore payout settings from the coordinator. Reverted to ACH weekly defaults.";

}  // namespace

void WorkerConfigStore::setPayoutPrefsHooks(PayoutPrefsHooks hooks) {
    payoutPrefsHooks_ = std::move(hooks);
}

std::string WorkerConfigStore::payoutPrefsDefaultsNamespace(std::string_view yaml) {
    auto url = WorkerConfig::extractTopLevelString("coordinator_url", yaml);
    auto worker = WorkerConfig::extractTopLevelString("worker_id", yaml);
    return url.value_or("unknown-url") + "|" + worker.value_or("unknown-worker");
}

std::optional<PayoutPrefsSyncPayload> WorkerConfigStore::lastSyncedPayoutPrefs(
    std::string_view defaultsNamespace) const {
    auto method =
        userDefaults_.string(std::string(kMethodKeyPrefix) + std::string(defaultsNamespace));
    auto schedule =
        userDefaults_.string(std::string(kScheduleKeyPrefix) + std::string(defaultsNamespace));
    if (!method || !schedule) return std::nullopt;
    return PayoutPrefsSyncPayload{*method, *schedule};
}

void WorkerConfigStore::storeLastSyncedPayoutPrefs(const PayoutPrefsSyncPayload& payload,
                                                   std::string_view defaultsNamespace) {
    userDefaults_.setString(std::string(kMethodKeyPrefix) + std::string(defaultsNamespace),
                            payload.method);
    userDefaults_.setString(std::string(kScheduleKeyPrefix) + std::string(defaultsNamespace),
                            payload.schedule);
}

std::unique_ptr<BackgroundJob> WorkerConfigStore::startBackground(
    std::function<std::function<void()>(std::stop_token)> body) {
    std::weak_ptr<WorkerConfigStore*> alive = alive_;
    Executor* executor = &executor_;
    return backgroundRunner_.run([alive, executor, body = std::move(body)](std::stop_token stop) {
        auto completion = body(stop);
        executor->post([alive, completion = std::move(completion)] {
            if (alive.lock()) completion();
        });
    });
}

void WorkerConfigStore::enqueueCurrentPayoutPrefsSyncIfNeeded() {
    QueuedPayoutPrefsSync request{currentPayoutPair(), payoutPrefsDefaultsNamespace(rawYAML_)};
    if (lastSyncedPayoutPrefs(request.defaultsNamespace) == request.payload) {
        // Already what the coordinator has; a different wish still queued stays.
        if (queuedPayoutPrefsSync_ && queuedPayoutPrefsSync_->payload == request.payload) {
            queuedPayoutPrefsSync_.reset();
        }
        setRequiredSetup(std::nullopt);
        return;
    }
    queuedPayoutPrefsSync_ = std::move(request);  // only the newest wish is kept
    startQueuedPayoutPrefsSyncIfNeeded();
}

void WorkerConfigStore::startQueuedPayoutPrefsSyncIfNeeded() {
    if (payoutPrefsSyncJob_ || !queuedPayoutPrefsSync_) return;
    if (!payoutPrefsHooks_.push) {
        log::get("WorkerConfigStore")
            ->info("payout prefs sync skipped — coordinator API unavailable");
        return;
    }
    auto request = *queuedPayoutPrefsSync_;
    payoutPrefsSyncCancelled_ = false;
    payoutPrefsSyncJob_ =
        startBackground([this, push = payoutPrefsHooks_.push, request](std::stop_token stop) {
            SyncOutcome outcome;
            try {
                push(request.payload, stop);
                outcome.kind = SyncOutcome::Kind::success;
            } catch (const PayoutPrefsSyncError& refusal) {
                outcome.kind = SyncOutcome::Kind::refused;
                outcome.refusal = refusal;
            } catch (const std::exception& error) {
                outcome.message = error.what();
            } catch (...) {
                outcome.message = "unknown error";
            }
            if (stop.stop_requested()) outcome.kind = SyncOutcome::Kind::cancelled;
            return [this, request, outcome] { finishPayoutSync(request, outcome); };
        });
}

void WorkerConfigStore::retryPendingPayoutPrefsSyncIfNeeded() {
    startQueuedPayoutPrefsSyncIfNeeded();
}

void WorkerConfigStore::finishPayoutSync(const QueuedPayoutPrefsSync& request,
                                         const SyncOutcome& outcome) {
    if (payoutPrefsSyncCancelled_ || outcome.kind == SyncOutcome::Kind::cancelled) {
        log::get("WorkerConfigStore")->info("WorkerConfigStore payout prefs sync cancelled");
        endPayoutSync();
        return;
    }
    switch (outcome.kind) {
        case SyncOutcome::Kind::success:
            storeLastSyncedPayoutPrefs(request.payload, request.defaultsNamespace);
            if (queuedPayoutPrefsSync_ == request) queuedPayoutPrefsSync_.reset();
            log::get("WorkerConfigStore")
                ->info("WorkerConfigStore synced payout prefs to coordinator");
            endPayoutSync();
            return;
        case SyncOutcome::Kind::failed:
            log::get("WorkerConfigStore")
                ->error("WorkerConfigStore payout prefs sync failed: {}", outcome.message);
            endPayoutSync(request);
            return;
        case SyncOutcome::Kind::refused:
        case SyncOutcome::Kind::cancelled:
            break;
    }
    const auto& refusal = *outcome.refusal;
    switch (refusal.kind()) {
        case PayoutPrefsSyncError::Kind::missingCredentials:
            log::get("WorkerConfigStore")
                ->error(
                    "WorkerConfigStore payout prefs sync failed: missing coordinator credentials");
            endPayoutSync(request);
            return;
        case PayoutPrefsSyncError::Kind::setupRequired:
            log::get("WorkerConfigStore")
                ->info("WorkerConfigStore payout prefs sync blocked: {}", refusal.requiredSetup());
            setRequiredSetup(refusal.requiredSetup());
            break;
        case PayoutPrefsSyncError::Kind::payoutCycleConflict:
            log::get("WorkerConfigStore")
                ->info("WorkerConfigStore payout prefs sync blocked by payout cycle conflict: {}",
                       refusal.detail().value_or("queued payout already exists"));
            setBanner(std::string(kCycleConflictBanner));
            break;
    }
    // A refused pair is never sent again; a newer wish queued meanwhile still goes.
    if (queuedPayoutPrefsSync_ == request) queuedPayoutPrefsSync_.reset();
    rollbackRejectedPayoutPrefsToLastSynced(request);
}

void WorkerConfigStore::endPayoutSync(const std::optional<QueuedPayoutPrefsSync>& failed) {
    payoutPrefsSyncJob_.reset();
    payoutPrefsSyncCancelled_ = false;
    if (failed && queuedPayoutPrefsSync_ == failed) return;
    startQueuedPayoutPrefsSyncIfNeeded();
}

void WorkerConfigStore::rollbackRejectedPayoutPrefsToLastSynced(
    const QueuedPayoutPrefsSync& rejected) {
    // The owner has moved on since: their newer choice stands.
    if (currentPayoutPair() != rejected.payload) {
        endPayoutSync();
        return;
    }
    if (auto last = lastSyncedPayoutPrefs(rejected.defaultsNamespace)) {
        applyRolledBackPayoutPrefs(*last, rejected);
        endPayoutSync();
        return;
    }
    auto fetch = payoutPrefsHooks_.fetchBaseline;
    payoutPrefsSyncJob_ = startBackground([this, fetch, rejected](std::stop_token stop) {
        std::optional<PayoutPrefsSyncPayload> baseline;
        try {
            if (fetch) baseline = fetch(stop);
        } catch (const std::exception& error) {
            log::get("WorkerConfigStore")
                ->error("WorkerConfigStore payout prefs baseline fetch failed: {}", error.what());
        }
        bool cancelled = stop.stop_requested();
        return [this, rejected, baseline, cancelled] {
            if (cancelled || payoutPrefsSyncCancelled_) {
                log::get("WorkerConfigStore")
                    ->info("WorkerConfigStore payout prefs sync cancelled");
            } else if (currentPayoutPair() != rejected.payload) {
                // Moved on while the baseline was fetched.
            } else if (baseline) {
                storeLastSyncedPayoutPrefs(*baseline, rejected.defaultsNamespace);
                applyRolledBackPayoutPrefs(*baseline, rejected);
            } else {
                setBanner(std::string(kBaselineFailedBanner));
                PayoutPrefsSyncPayload fallback{"ach", "weekly"};
                storeLastSyncedPayoutPrefs(fallback, rejected.defaultsNamespace);
                applyRolledBackPayoutPrefs(fallback, rejected);
                log::get("WorkerConfigStore")
                    ->info(
                        "WorkerConfigStore payout prefs rollback fell back to app defaults after "
                        "baseline fetch failed");
            }
            endPayoutSync();
        };
    });
}

void WorkerConfigStore::applyRolledBackPayoutPrefs(const PayoutPrefsSyncPayload& pair,
                                                   const QueuedPayoutPrefsSync& rejected) {
    isApplyingExternalState_ = true;
    assign(Field::payoutMethod, settings_.payoutMethod, pair.method);
    assign(Field::payoutSchedule, settings_.payoutSchedule, pair.schedule);
    isApplyingExternalState_ = false;
    dirtyFields_.erase("payoutMethod");
    dirtyFields_.erase("payoutSchedule");
    try {
        auto base = configfile::read(configURL_);
        if (!base) throw std::runtime_error("cannot read " + configURL_.string());
        auto text = buildYAML(*base);
        writeAtomic(text, configURL_);
        rawYAML_ = std::move(text);
        if (queuedPayoutPrefsSync_ == rejected) queuedPayoutPrefsSync_.reset();
        log::get("WorkerConfigStore")
            ->info("WorkerConfigStore rolled back rejected payout prefs to last synced values");
    } catch (const std::exception& error) {
        log::get("WorkerConfigStore")
            ->error("WorkerConfigStore payout prefs rollback failed: {}", error.what());
    }
}

void WorkerConfigStore::refreshPayoutPrefsBaselineOnActivation() {
    if (sessionDataMode_ == DataMode::dummy) return;  // demo mode never reaches the coordinator
    if (queuedPayoutPrefsSync_) {
        startQueuedPayoutPrefsSyncIfNeeded();
        return;
    }
    auto defaultsNamespace = payoutPrefsDefaultsNamespace(rawYAML_);
    if (lastSyncedPayoutPrefs(defaultsNamespace) || baselineJob_ ||
        !payoutPrefsHooks_.fetchBaseline)
        return;
    baselineJob_ = startBackground([this, fetch = payoutPrefsHooks_.fetchBaseline,
                                    defaultsNamespace](std::stop_token stop) {
        std::optional<PayoutPrefsSyncPayload> baseline;
        try {
            baseline = fetch(stop);
        } catch (const std::exception& error) {
            log::get("WorkerConfigStore")
                ->error("WorkerConfigStore payout prefs baseline fetch failed: {}", error.what());
        }
        if (stop.stop_requested()) baseline.reset();
        return [this, baseline, defaultsNamespace] {
            baselineJob_.reset();
            if (!baseline) return;
            storeLastSyncedPayoutPrefs(*baseline, defaultsNamespace);
            log::get("WorkerConfigStore")
                ->info(
                    "WorkerConfigStore established payout prefs baseline from coordinator on "
                    "activation");
        };
    });
}

}  // namespace corvane
