#include "CorvaneApp/config/WorkerConfigStore.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "CorvaneApp/config/ConfigEditors.h"
#include "CorvaneApp/config/ConfigFile.h"
#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

namespace cl = configlines;

namespace {

// A number read from the file: kept only when it converts and lies in range.
void readNumber(std::string_view section, std::string_view key, std::string_view yaml,
                SettingRange range, double& slot) {
    auto text = configyaml::scalarTop(section, key, yaml);
    if (!text) return;
    auto value = cl::toNumber(*text);
    if (!value) {
        log::get("WorkerConfigStore")
            ->error("config.yaml: {}.{} = '{}' is not a number; using the default {}", section, key,
                    *text, slot);
    } else if (*value < range.min || *value > range.max) {
        log::get("WorkerConfigStore")
            ->error("config.yaml: {}.{} = {} is outside {} to {}; using the default {}", section,
                    key, *text, range.min, range.max, slot);
    } else {
        slot = *value;
    }
}

void readBool(std::string_view section, std::string_view key, std::string_view yaml, bool& slot) {
    auto text = configyaml::scalarTop(section, key, yaml);
    if (!text) return;
    if (auto value = cl::toBool(*text)) {
        slot = *value;
    } else {
        log::get("WorkerConfigStore")
            ->error("config.yaml: {}.{} = '{}' is not true or false; using the default {}", section,
                    key, *text, slot);
    }
}

// Saved numbers are whole: the value truncated towards zero. Setters and the reader keep every
// setting finite and in range, so a value that isn't is a bug that must not reach the file.
std::string wholeNumber(double value) {
    if (!std::isfinite(value) || std::fabs(value) >= 9.2e18) {
        log::get("WorkerConfigStore")
            ->critical("refusing to write the non-representable setting value {}", value);
        std::abort();
    }
    return std::to_string(static_cast<std::int64_t>(value));
}

const char* boolText(bool value) {
    return value ? "true" : "false";
}

}  // namespace

std::string_view WorkerConfigStore::fieldName(Field field) {
    switch (field) {
        case Field::awayCpuCeiling:
            return "awayCpuCeiling";
        case Field::awayRamCeilingGB:
            return "awayRamCeilingGB";
        case Field::inUseCpuCeiling:
            return "inUseCpuCeiling";
        case Field::inUseRamCeilingGB:
            return "inUseRamCeilingGB";
        case Field::scheduleGrid:
            return "scheduleGrid";
        case Field::idleMinutes:
            return "idleMinutes";
        case Field::pauseOnMeeting:
            return "pauseOnMeeting";
        case Field::pauseOnHeavyApp:
            return "pauseOnHeavyApp";
        case Field::payoutMethod:
            return "payoutMethod";
        case Field::payoutSchedule:
            return "payoutSchedule";
        case Field::payoutPrefsRequiredSetup:
            return "payoutPrefsRequiredSetup";
        case Field::payoutPrefsSyncBannerText:
            return "payoutPrefsSyncBannerText";
        case Field::saveCount:
            return "saveCount";
        case Field::sessionDataMode:
            return "sessionDataMode";
    }
    return "unknown";
}

WorkerConfigStore::WorkerConfigStore(Executor& executor, UserDefaults& userDefaults,
                                     BackgroundRunner& backgroundRunner, Options options)
    : executor_(executor),
      userDefaults_(userDefaults),
      backgroundRunner_(backgroundRunner),
      configURL_(std::move(options.configURL)),
      secondsSinceLastInput_(std::move(options.secondsSinceLastInput)),
      sessionDataMode_(options.sessionDataMode),
      alive_(std::make_shared<WorkerConfigStore*>(this)) {
    reload();
}

WorkerConfigStore::~WorkerConfigStore() {
    // Completions already posted must not reach a store that is gone.
    alive_.reset();
}

// ---- settings ----

template <typename T>
void WorkerConfigStore::assign(Field field, T& slot, T value) {
    bool changed = !(slot == value);
    slot = std::move(value);
    if (changed) notify(field);
    settingChanged(field);
}
// The payout-sync half of the store assigns strings too; an explicit instance is emitted even
// where every use here is inlined.
template void WorkerConfigStore::assign<std::string>(Field, std::string&, std::string);

void WorkerConfigStore::setNumber(Field field, double& slot, double value, SettingRange range) {
    if (std::isnan(value)) {
        log::get("WorkerConfigStore")
            ->error("WorkerConfigStore refused NaN for {}", fieldName(field));
        return;
    }
    assign(field, slot, std::clamp(value, range.min, range.max));
}

void WorkerConfigStore::setAwayCpuCeiling(double value) {
    setNumber(Field::awayCpuCeiling, settings_.awayCpuCeiling, value, kCpuPercentRange);
}
void WorkerConfigStore::setAwayRamCeilingGB(double value) {
    setNumber(Field::awayRamCeilingGB, settings_.awayRamCeilingGB, value, kRamGBRange);
}
void WorkerConfigStore::setInUseCpuCeiling(double value) {
    setNumber(Field::inUseCpuCeiling, settings_.inUseCpuCeiling, value, kCpuPercentRange);
}
void WorkerConfigStore::setInUseRamCeilingGB(double value) {
    setNumber(Field::inUseRamCeilingGB, settings_.inUseRamCeilingGB, value, kRamGBRange);
}
void WorkerConfigStore::setIdleMinutes(double value) {
    setNumber(Field::idleMinutes, settings_.idleMinutes, value, kIdleMinutesRange);
}
void WorkerConfigStore::setScheduleGrid(ScheduleGrid value) {
    assign(Field::scheduleGrid, settings_.scheduleGrid, std::move(value));
}
void WorkerConfigStore::setPauseOnMeeting(bool value) {
    assign(Field::pauseOnMeeting, settings_.pauseOnMeeting, value);
}
void WorkerConfigStore::setPauseOnHeavyApp(bool value) {
    assign(Field::pauseOnHeavyApp, settings_.pauseOnHeavyApp, value);
}
void WorkerConfigStore::setPayoutMethod(std::string value) {
    if (value.find_first_of("\r\n") != std::string::npos) {
        log::get("WorkerConfigStore")
            ->error("WorkerConfigStore refused a payout method with a line break");
        return;
    }
    assign(Field::payoutMethod, settings_.payoutMethod, std::move(value));
}
void WorkerConfigStore::setPayoutSchedule(std::string value) {
    if (value.find_first_of("\r\n") != std::string::npos) {
        log::get("WorkerConfigStore")
            ->error("WorkerConfigStore refused a payout schedule with a line break");
        return;
    }
    assign(Field::payoutSchedule, settings_.payoutSchedule, std::move(value));
}

Subscription WorkerConfigStore::observe(std::function<void(Field)> onChange) {
    return observers_.subscribe(std::move(onChange));
}

void WorkerConfigStore::setSessionDataMode(DataMode mode) {
    if (mode == sessionDataMode_) return;
    sessionDataMode_ = mode;
    notify(Field::sessionDataMode);
}

void WorkerConfigStore::setBanner(std::optional<std::string> text) {
    if (payoutPrefsSyncBannerText_ == text) return;
    payoutPrefsSyncBannerText_ = std::move(text);
    notify(Field::payoutPrefsSyncBannerText);
}

void WorkerConfigStore::setRequiredSetup(std::optional<std::string> text) {
    if (payoutPrefsRequiredSetup_ == text) return;
    payoutPrefsRequiredSetup_ = std::move(text);
    notify(Field::payoutPrefsRequiredSetup);
}

void WorkerConfigStore::settingChanged(Field field) {
    if (isApplyingExternalState_) return;
    if (field == Field::payoutMethod || field == Field::payoutSchedule) {
        setRequiredSetup(std::nullopt);
        setBanner(std::nullopt);
    }
    dirtyFields_.insert(std::string(fieldName(field)));
    scheduleSave();
}

// ---- saving ----

void WorkerConfigStore::scheduleSave() {
    if (rawYAML_.empty()) {
        // The file may have come into being since the store last looked (enrolment): take its
        // other settings, and let the owner's fresh edits win.
        if (auto text = configfile::read(configURL_); text && !text->empty()) {
            auto snapshot = snapshotDirtyFields();
            applyParsed(*text);
            rawYAML_ = *text;
            reapplyDirtyFields(snapshot);
        }
    }
    pendingSave_ = executor_.scheduleOnce(saveDebounceSeconds, [this] {
        savePending_ = false;
        saveNow();
    });
    savePending_ = true;
}

void WorkerConfigStore::saveNow() {
    if (sessionDataMode_ == DataMode::dummy) {
        log::get("WorkerConfigStore")
            ->info(
                "WorkerConfigStore saveNow skipped — demo mode keeps config changes in memory "
                "only");
        return;
    }
    bool payoutTouched =
        dirtyFields_.count("payoutMethod") > 0 || dirtyFields_.count("payoutSchedule") > 0;
    auto base = configfile::read(configURL_);
    if (!base) {
        log::get("WorkerConfigStore")
            ->info("WorkerConfigStore saveNow skipped — no config.yaml yet (worker not enrolled)");
        return;
    }
    std::string text;
    try {
        text = buildYAML(*base);
        writeAtomic(text, configURL_);
    } catch (const std::exception& error) {
        log::get("WorkerConfigStore")->error("WorkerConfigStore save failed: {}", error.what());
        return;
    }
    rawYAML_ = std::move(text);
    dirtyFields_.clear();
    ++saveCount_;
    notify(Field::saveCount);
    log::get("WorkerConfigStore")->info("WorkerConfigStore saved to {}", configURL_.string());
    if (payoutTouched) enqueueCurrentPayoutPrefsSyncIfNeeded();
}

void WorkerConfigStore::cancelPendingSave() {
    pendingSave_.cancel();
    savePending_ = false;
    dirtyFields_.clear();
}

void WorkerConfigStore::flushPendingSave() {
    if (!savePending_) return;
    pendingSave_.cancel();
    savePending_ = false;
    saveNow();
}

std::map<std::string, WorkerConfigStore::DirtyValue> WorkerConfigStore::snapshotDirtyFields()
    const {
    std::map<std::string, DirtyValue> snapshot;
    for (const auto& name : dirtyFields_) {
        if (name == "awayCpuCeiling") snapshot[name] = settings_.awayCpuCeiling;
        if (name == "awayRamCeilingGB") snapshot[name] = settings_.awayRamCeilingGB;
        if (name == "inUseCpuCeiling") snapshot[name] = settings_.inUseCpuCeiling;
        if (name == "inUseRamCeilingGB") snapshot[name] = settings_.inUseRamCeilingGB;
        if (name == "scheduleGrid") snapshot[name] = settings_.scheduleGrid;
        if (name == "idleMinutes") snapshot[name] = settings_.idleMinutes;
        if (name == "pauseOnMeeting") snapshot[name] = settings_.pauseOnMeeting;
        if (name == "pauseOnHeavyApp") snapshot[name] = settings_.pauseOnHeavyApp;
        if (name == "payoutMethod") snapshot[name] = settings_.payoutMethod;
        if (name == "payoutSchedule") snapshot[name] = settings_.payoutSchedule;
    }
    return snapshot;
}

void WorkerConfigStore::reapplyDirtyFields(const std::map<std::string, DirtyValue>& snapshot) {
    for (const auto& [name, value] : snapshot) {
        if (name == "awayCpuCeiling") setAwayCpuCeiling(std::get<double>(value));
        if (name == "awayRamCeilingGB") setAwayRamCeilingGB(std::get<double>(value));
        if (name == "inUseCpuCeiling") setInUseCpuCeiling(std::get<double>(value));
        if (name == "inUseRamCeilingGB") setInUseRamCeilingGB(std::get<double>(value));
        if (name == "scheduleGrid") setScheduleGrid(std::get<ScheduleGrid>(value));
        if (name == "idleMinutes") setIdleMinutes(std::get<double>(value));
        if (name == "pauseOnMeeting") setPauseOnMeeting(std::get<bool>(value));
        if (name == "pauseOnHeavyApp") setPauseOnHeavyApp(std::get<bool>(value));
        if (name == "payoutMethod") setPayoutMethod(std::get<std::string>(value));
        if (name == "payoutSchedule") setPayoutSchedule(std::get<std::string>(value));
    }
}

// ---- reading ----

void WorkerConfigStore::clearPayoutSyncState() {
    if (payoutPrefsSyncJob_) {
        payoutPrefsSyncJob_->cancel();
        payoutPrefsSyncCancelled_ = true;
    }
    queuedPayoutPrefsSync_.reset();
    setRequiredSetup(std::nullopt);
    setBanner(std::nullopt);
}

void WorkerConfigStore::reload() {
    auto text = configfile::read(configURL_);
    if (!text) {
        clearPayoutSyncState();
        log::get("WorkerConfigStore")
            ->info("config.yaml not found at {} — using defaults", configURL_.string());
        rawYAML_.clear();
        resetToDefaults();
        return;
    }
    // Another text may mean another account, whose payout state isn't ours.
    if (*text != rawYAML_) clearPayoutSyncState();
    rawYAML_ = *text;
    applyParsed(*text);
    log::get("WorkerConfigStore")->debug("WorkerConfigStore reloaded from {}", configURL_.string());
}

void WorkerConfigStore::followFileChange() {
    auto text = configfile::read(configURL_);
    // A removal is sign-out's business (which reloads); a text the store wrote itself is known.
    if (!text || *text == rawYAML_) return;
    if (payoutPrefsDefaultsNamespace(*text) != payoutPrefsDefaultsNamespace(rawYAML_))
        clearPayoutSyncState();
    // The owner's fresh edits win over the file for their own fields only; they stay dirty, and
    // their pending save writes the file's other values back as they now stand. Merged first, so
    // that observers never see an edit flicker back to the file's value.
    WorkerSettings merged = parseSettings(*text);
    for (const auto& name : dirtyFields_) {
        if (name == "awayCpuCeiling") merged.awayCpuCeiling = settings_.awayCpuCeiling;
        if (name == "awayRamCeilingGB") merged.awayRamCeilingGB = settings_.awayRamCeilingGB;
        if (name == "inUseCpuCeiling") merged.inUseCpuCeiling = settings_.inUseCpuCeiling;
        if (name == "inUseRamCeilingGB") merged.inUseRamCeilingGB = settings_.inUseRamCeilingGB;
        if (name == "scheduleGrid") merged.scheduleGrid = settings_.scheduleGrid;
        if (name == "idleMinutes") merged.idleMinutes = settings_.idleMinutes;
        if (name == "pauseOnMeeting") merged.pauseOnMeeting = settings_.pauseOnMeeting;
        if (name == "pauseOnHeavyApp") merged.pauseOnHeavyApp = settings_.pauseOnHeavyApp;
        if (name == "payoutMethod") merged.payoutMethod = settings_.payoutMethod;
        if (name == "payoutSchedule") merged.payoutSchedule = settings_.payoutSchedule;
    }
    rawYAML_ = *text;
    applySettingsExternally(merged);
    log::get("WorkerConfigStore")
        ->info("WorkerConfigStore followed a change of {}", configURL_.string());
}

WorkerSettings WorkerConfigStore::parseSettings(std::string_view yaml) {
    WorkerSettings settings;
    readBool("idle_detection", "pause_on_meeting", yaml, settings.pauseOnMeeting);
    readBool("idle_detection", "pause_on_heavy_app", yaml, settings.pauseOnHeavyApp);
    readNumber("idle_detection", "min_idle_minutes", yaml, kIdleMinutesRange, settings.idleMinutes);
    readNumber("resource_policy", "away_cpu_ceiling_pct", yaml, kCpuPercentRange,
               settings.awayCpuCeiling);
    readNumber("resource_policy", "away_ram_ceiling_gb", yaml, kRamGBRange,
               settings.awayRamCeilingGB);
    readNumber("resource_policy", "in_use_cpu_ceiling_pct", yaml, kCpuPercentRange,
               settings.inUseCpuCeiling);
    readNumber("resource_policy", "in_use_ram_ceiling_gb", yaml, kRamGBRange,
               settings.inUseRamCeilingGB);
    auto grid = configyaml::nestedWeeklyGrid("schedule", "weekly_grid", yaml);
    if (!grid) grid = configyaml::nestedWeeklyGrid("run_schedule", "weekly_grid", yaml);
    if (grid) settings.scheduleGrid = ScheduleGrid::normalize(*grid);
    // An empty payout value is no choice; the default stands.
    if (auto method = configyaml::scalarFlat("payout_method", yaml); method && !method->empty()) {
        settings.payoutMethod = *method;
    }
    if (auto schedule = configyaml::scalarFlat("payout_schedule", yaml);
        schedule && !schedule->empty()) {
        settings.payoutSchedule = *schedule;
    }
    return settings;
}

void WorkerConfigStore::applyParsed(std::string_view text) {
    applySettingsExternally(parseSettings(text));
}

void WorkerConfigStore::applySettingsExternally(const WorkerSettings& settings) {
    isApplyingExternalState_ = true;
    // Each field is assigned once, so observers see one change, not a trip through the default.
    assign(Field::awayCpuCeiling, settings_.awayCpuCeiling, settings.awayCpuCeiling);
    assign(Field::awayRamCeilingGB, settings_.awayRamCeilingGB, settings.awayRamCeilingGB);
    assign(Field::inUseCpuCeiling, settings_.inUseCpuCeiling, settings.inUseCpuCeiling);
    assign(Field::inUseRamCeilingGB, settings_.inUseRamCeilingGB, settings.inUseRamCeilingGB);
    assign(Field::scheduleGrid, settings_.scheduleGrid, settings.scheduleGrid);
    assign(Field::idleMinutes, settings_.idleMinutes, settings.idleMinutes);
    assign(Field::pauseOnMeeting, settings_.pauseOnMeeting, settings.pauseOnMeeting);
    assign(Field::pauseOnHeavyApp, settings_.pauseOnHeavyApp, settings.pauseOnHeavyApp);
    assign(Field::payoutMethod, settings_.payoutMethod, settings.payoutMethod);
    assign(Field::payoutSchedule, settings_.payoutSchedule, settings.payoutSchedule);
    isApplyingExternalState_ = false;
}

void WorkerConfigStore::resetToDefaults() {
    applySettingsExternally(WorkerSettings{});
    setRequiredSetup(std::nullopt);
}

std::string WorkerConfigStore::currentYAMLForRuntimeReads() const {
    if (!rawYAML_.empty()) return rawYAML_;
    return configfile::read(configURL_).value_or("");
}

int WorkerConfigStore::currentEffectiveResourcePercentFallback() const {
    double requiredIdle = std::max(settings_.idleMinutes, 0.0) * 60.0;
    // A failed reading counts as not idle.
    double idle = secondsSinceLastInput_ ? secondsSinceLastInput_().value_or(0.0) : 0.0;
    double percent = idle >= requiredIdle ? settings_.awayCpuCeiling : settings_.inUseCpuCeiling;
    return static_cast<int>(std::lround(percent));
}

std::optional<std::string> WorkerConfigStore::extractTranscribeQuantization(std::string_view yaml) {
    return configyaml::extractTranscribeQuantization(yaml);
}

bool WorkerConfigStore::extractKeepModelLoaded(std::string_view yaml) {
    bool keep = false;
    readBool("resource_policy", "keep_model_loaded", yaml, keep);
    return keep;
}

std::string WorkerConfigStore::buildYAML(std::string_view base, const WorkerSettings& settings) {
    auto [hasBom, body] = cl::splitBom(base);
    auto lines = cl::split(body);
    configyaml::setFlatScalar("payout_method", settings.payoutMethod, lines);
    configyaml::setFlatScalar("payout_schedule", settings.payoutSchedule, lines);
    configyaml::setNestedScalar("idle_detection", "pause_on_meeting",
                                boolText(settings.pauseOnMeeting), lines);
    configyaml::setNestedScalar("idle_detection", "pause_on_heavy_app",
                                boolText(settings.pauseOnHeavyApp), lines);
    configyaml::setNestedScalar("idle_detection", "min_idle_minutes",
                                wholeNumber(settings.idleMinutes), lines);
    configyaml::setNestedScalar("resource_policy", "away_cpu_ceiling_pct",
                                wholeNumber(settings.awayCpuCeiling), lines);
    configyaml::setNestedScalar("resource_policy", "away_ram_ceiling_gb",
                                wholeNumber(settings.awayRamCeilingGB), lines);
    configyaml::setNestedScalar("resource_policy", "in_use_cpu_ceiling_pct",
                                wholeNumber(settings.inUseCpuCeiling), lines);
    configyaml::setNestedScalar("resource_policy", "in_use_ram_ceiling_gb",
                                wholeNumber(settings.inUseRamCeilingGB), lines);
    configyaml::setNestedWeeklyGrid("schedule", "weekly_grid", settings.scheduleGrid, lines);
    return cl::withBom(hasBom, cl::join(lines));
}

void WorkerConfigStore::writeAtomic(std::string_view text, const std::filesystem::path& to) {
    configfile::writeAtomic(text, to);
}

}  // namespace corvane
