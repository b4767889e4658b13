#pragma once
// The application's live copy of the owner's settings. Every change from the interface marks the
// field dirty and, half a second after the last change, is merged into the existing config.yaml
// by the line editors; the file itself is re-read first, so other writers' keys survive. Payout
// changes that reach the file are then pushed to the coordinator, and a refusal rolls them back.
//
// One instance, owned by the application, used only on the main executor's sequence.

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/PayoutPrefsSync.h"
#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/config/WorkerSettings.h"
#include "CorvaneApp/platform/BackgroundRunner.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

class WorkerConfigStore {
  public:
    // What changed, for observers. The first ten are the settings.
    enum class Field {
        awayCpuCeiling,
        awayRamCeilingGB,
        inUseCpuCeiling,
        inUseRamCeilingGB,
        scheduleGrid,
        idleMinutes,
        pauseOnMeeting,
        pauseOnHeavyApp,
        payoutMethod,
        payoutSchedule,
        payoutPrefsRequiredSetup,
        payoutPrefsSyncBannerText,
        saveCount,
        sessionDataMode,
    };
    // The field's property name ("awayCpuCeiling", ...), as kept in dirtyFields().
    static std::string_view fieldName(Field field);

    static constexpr double saveDebounceSeconds = 0.5;

    struct Options {
        std::filesystem::path configURL;  // ~/.varnix-compute/config.yaml in production
        // Seconds since the last input; absent when no source answers (counted as not idle).
        std::function<std::optional<double>()> secondsSinceLastInput;
        DataMode sessionDataMode = DataMode::real;
    };

    // Applies the defaults, then reload().
    WorkerConfigStore(Executor& executor, UserDefaults& userDefaults,
                      BackgroundRunner& backgroundRunner, Options options);
    ~WorkerConfigStore();
    WorkerConfigStore(const WorkerConfigStore&) = delete;
    WorkerConfigStore& operator=(const WorkerConfigStore&) = delete;

    // Settings. Setters notify observers when the value differs and mark the field dirty either
    // way. A number outside its range is clamped; NaN and a text with a line break are refused
    // (logged, nothing changes).
    const WorkerSettings& settings() const { return settings_; }
    double awayCpuCeiling() const { return settings_.awayCpuCeiling; }
    double awayRamCeilingGB() const { return settings_.awayRamCeilingGB; }
    double inUseCpuCeiling() const { return settings_.inUseCpuCeiling; }
    double inUseRamCeilingGB() const { return settings_.inUseRamCeilingGB; }
    const ScheduleGrid& scheduleGrid() const { return settings_.scheduleGrid; }
    double idleMinutes() const { return settings_.idleMinutes; }
    bool pauseOnMeeting() const { return settings_.pauseOnMeeting; }
    bool pauseOnHeavyApp() const { return settings_.pauseOnHeavyApp; }
    const std::string& payoutMethod() const { return settings_.payoutMethod; }
    const std::string& payoutSchedule() const { return settings_.payoutSchedule; }

    void setAwayCpuCeiling(double value);
    void setAwayRamCeilingGB(double value);
    void setInUseCpuCeiling(double value);
    void setInUseRamCeilingGB(double value);
    void setScheduleGrid(ScheduleGrid value);
    void setIdleMinutes(double value);
    void setPauseOnMeeting(bool value);
    void setPauseOnHeavyApp(bool value);
    void setPayoutMethod(std::string value);
    void setPayoutSchedule(std::string value);

    [[nodiscard]] Subscription observe(std::function<void(Field)> onChange);

    // State of the save cycle and the payout sync.
    const std::set<std::string>& dirtyFields() const { return dirtyFields_; }
    bool hasPendingSave() const { return savePending_; }
    int saveCount() const { return saveCount_; }
    const std::string& rawYAML() const { return rawYAML_; }
    const std::filesystem::path& configURL() const { return configURL_; }
    DataMode sessionDataMode() const { return sessionDataMode_; }
    void setSessionDataMode(DataMode mode);
    const std::optional<std::string>& payoutPrefsRequiredSetup() const {
        return payoutPrefsRequiredSetup_;
    }
    const std::optional<std::string>& payoutPrefsSyncBannerText() const {
        return payoutPrefsSyncBannerText_;
    }
    const std::optional<QueuedPayoutPrefsSync>& queuedPayoutPrefsSync() const {
        return queuedPayoutPrefsSync_;
    }
    bool payoutPrefsSyncRunning() const { return static_cast<bool>(payoutPrefsSyncJob_); }

    // Re-reads config.yaml: a missing file gives the defaults; a changed file also drops the
    // payout sync state, which may belong to another account.
    void reload();
    // The file changed behind the store (an edit by hand, another program): its settings are
    // taken, and the owner's edits not yet saved stay on top of them, so neither side is lost.
    // A file that is gone or unchanged since the store last read or wrote it changes nothing; the
    // payout sync state is dropped only when the file now names another account.
    void followFileChange();
    // Writes now (demo mode and a missing file only log). Never throws.
    void saveNow();
    // Drops the pending save and the dirty set; the values stay in memory, unsaved.
    void cancelPendingSave();
    // A pending save, if any, is cancelled and done now: for shutdown and enrolment.
    void flushPendingSave();
    // All defaults, nothing dirtied or saved; also clears the required payout setup.
    void resetToDefaults();

    // The last known file text, else the file's current text, else empty.
    std::string currentYAMLForRuntimeReads() const;
    // The CPU percentage to report when no better value exists: the away ceiling once the
    // machine has been idle for the idle threshold, the in-use ceiling before.
    int currentEffectiveResourcePercentFallback() const;

    // The settings a config text holds, defaults where a key is missing, unreadable or out of
    // range (each such value is logged).
    static WorkerSettings parseSettings(std::string_view yaml);
    // handlers.transcribe.quantization of a config text.
    static std::optional<std::string> extractTranscribeQuantization(std::string_view yaml);
    // resource_policy.keep_model_loaded of a config text: the owner keeps the model's weights in
    // memory while the worker is paused, for a faster first shard. False when absent or not a
    // Boolean (logged). Edited by hand; the store never writes it.
    static bool extractKeepModelLoaded(std::string_view yaml);
    // `base` with every setting of `settings` written by the line editors.
    static std::string buildYAML(std::string_view base, const WorkerSettings& settings);
    std::string buildYAML(std::string_view base) const { return buildYAML(base, settings_); }
    // Atomic replace keeping the file's mode; throws on failure.
    static void writeAtomic(std::string_view text, const std::filesystem::path& to);

    // Payout preference sync.
    void setPayoutPrefsHooks(PayoutPrefsHooks hooks);
    void enqueueCurrentPayoutPrefsSyncIfNeeded();
    void startQueuedPayoutPrefsSyncIfNeeded();
    void retryPendingPayoutPrefsSyncIfNeeded();
    void refreshPayoutPrefsBaselineOnActivation();
    std::optional<PayoutPrefsSyncPayload> lastSyncedPayoutPrefs(
        std::string_view defaultsNamespace) const;
    void storeLastSyncedPayoutPrefs(const PayoutPrefsSyncPayload& payload,
                                    std::string_view defaultsNamespace);
    // "<coordinator_url or unknown-url>|<worker_id or unknown-worker>" of a config text.
    static std::string payoutPrefsDefaultsNamespace(std::string_view yaml);

  private:
    using DirtyValue = std::variant<double, bool, std::string, ScheduleGrid>;
    // How one push to the coordinator ended.
    struct SyncOutcome {
        enum class Kind { success, cancelled, refused, failed };
        Kind kind = Kind::failed;
        std::optional<PayoutPrefsSyncError> refusal;
        std::string message;
    };

    template <typename T>
    void assign(Field field, T& slot, T value);
    void setNumber(Field field, double& slot, double value, SettingRange range);
    void settingChanged(Field field);
    void notify(Field field) { observers_.notify(field); }
    void scheduleSave();
    void applyParsed(std::string_view text);
    void applySettingsExternally(const WorkerSettings& settings);
    std::map<std::string, DirtyValue> snapshotDirtyFields() const;
    void reapplyDirtyFields(const std::map<std::string, DirtyValue>& snapshot);
    void setBanner(std::optional<std::string> text);
    void setRequiredSetup(std::optional<std::string> text);
    void clearPayoutSyncState();

    // Runs `body` through the background runner; the closure it returns runs afterwards on the
    // executor, unless the store is gone by then.
    std::unique_ptr<BackgroundJob> startBackground(
        std::function<std::function<void()>(std::stop_token)> body);
    void finishPayoutSync(const QueuedPayoutPrefsSync& request, const SyncOutcome& outcome);
    void rollbackRejectedPayoutPrefsToLastSynced(const QueuedPayoutPrefsSync& rejected);
    void applyRolledBackPayoutPrefs(const PayoutPrefsSyncPayload& pair,
                                    const QueuedPayoutPrefsSync& rejected);
    // Clears the running sync and starts what is queued, except a retry of `failed` itself:
    // a failure waits for retryPendingPayoutPrefsSyncIfNeeded() or a newer wish.
    void endPayoutSync(const std::optional<QueuedPayoutPrefsSync>& failed = std::nullopt);
    PayoutPrefsSyncPayload currentPayoutPair() const {
        return {settings_.payoutMethod, settings_.payoutSchedule};
    }

    Executor& executor_;
    UserDefaults& userDefaults_;
    BackgroundRunner& backgroundRunner_;
    const std::filesystem::path configURL_;
    const std::function<std::optional<double>()> secondsSinceLastInput_;

    WorkerSettings settings_;
    std::optional<std::string> payoutPrefsRequiredSetup_;
    std::optional<std::string> payoutPrefsSyncBannerText_;
    TimerHandle pendingSave_;
    bool savePending_ = false;
    std::set<std::string> dirtyFields_;
    std::string rawYAML_;
    DataMode sessionDataMode_;
    bool isApplyingExternalState_ = false;
    int saveCount_ = 0;
    ObserverList<Field> observers_;

    PayoutPrefsHooks payoutPrefsHooks_;
    std::optional<QueuedPayoutPrefsSync> queuedPayoutPrefsSync_;
    std::unique_ptr<BackgroundJob> payoutPrefsSyncJob_;
    bool payoutPrefsSyncCancelled_ = false;
    std::unique_ptr<BackgroundJob> baselineJob_;
    // Lets completions posted from background work find out whether the store still exists.
    std::shared_ptr<WorkerConfigStore*> alive_;
};

}  // namespace corvane
