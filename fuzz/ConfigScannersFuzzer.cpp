// Feeds a config.yaml, as an owner may have edited it by hand, to every scanner that reads it:
// identity, settings, schedule grid, quantization, the payout namespace.
//
// Holds: no scanner throws; a value comes from one line; settings stay in their ranges and the
// grid is full; a missing identity is absent rather than empty; and the same file with CRLF line
// ends, or with a byte-order mark in front, reads exactly alike.

#include <cstdint>
#include <string>
#include <vector>

#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "fuzz/FuzzCheck.h"

namespace corvane {
namespace {

// Every key of the file's schema, by section ("" for top level).
constexpr std::pair<const char*, const char*> kKeys[] = {
    {"", "coordinator_url"},
    {"", "worker_id"},
    {"", "onboarding_completed_at"},
    {"", "payout_method"},
    {"", "payout_schedule"},
    {"worker_token_keychain", "service"},
    {"worker_token_keychain", "account"},
    {"idle_detection", "min_idle_minutes"},
    {"idle_detection", "require_ac_power"},
    {"idle_detection", "pause_on_meeting"},
    {"idle_detection", "pause_on_heavy_app"},
    {"polling", "interval_seconds"},
    {"resource_policy", "level_percent"},
    {"resource_policy", "away_cpu_ceiling_pct"},
    {"resource_policy", "away_ram_ceiling_gb"},
    {"resource_policy", "in_use_cpu_ceiling_pct"},
    {"resource_policy", "in_use_ram_ceiling_gb"},
    {"run_schedule", "enabled"},
    {"run_schedule", "start_time"},
    {"run_schedule", "end_time"},
};

// Everything the program reads of one file, as text, so two readings compare as a whole.
std::vector<std::string> readingOf(std::string_view yaml) {
    std::vector<std::string> out;
    auto add = [&](const std::optional<std::string>& value) {
        if (value) {
            fuzz::require(value->find('\n') == std::string::npos, "a value comes from one line",
                          *value);
        }
        out.push_back(value ? "=" + *value : "absent");
    };
    for (const auto& [section, key] : kKeys) {
        add(*section ? configyaml::scalarTop(section, key, yaml)
                     : configyaml::scalarFlat(key, yaml));
        add(WorkerConfig::extractTopLevelString(key, yaml));
    }
    add(configyaml::extractTranscribeQuantization(yaml));
    for (const char* section : {"schedule", "run_schedule"}) {
        auto grid = configyaml::nestedWeeklyGrid(section, "weekly_grid", yaml);
        std::string rows;
        if (grid) {
            for (const auto& row : *grid) {
                for (bool cell : row) rows += cell ? '1' : '0';
                rows += '/';
            }
        }
        add(grid ? std::optional(rows) : std::nullopt);
    }

    if (auto config = WorkerConfig::parse(yaml)) {
        fuzz::require(!config->coordinatorURL.empty() && !config->workerID.empty(),
                      "an enrolled identity has a coordinator and a worker id");
        add(config->coordinatorURL + "|" + config->workerID + "|" +
            config->onboardingCompletedAt.value_or("-"));
    } else {
        add(std::nullopt);
    }
    out.push_back(WorkerConfigStore::payoutPrefsDefaultsNamespace(yaml));

    const auto settings = WorkerConfigStore::parseSettings(yaml);
    auto inRange = [](double value, SettingRange range) {
        return value >= range.min && value <= range.max;
    };
    fuzz::require(inRange(settings.awayCpuCeiling, kCpuPercentRange) &&
                      inRange(settings.inUseCpuCeiling, kCpuPercentRange) &&
                      inRange(settings.awayRamCeilingGB, kRamGBRange) &&
                      inRange(settings.inUseRamCeilingGB, kRamGBRange) &&
                      inRange(settings.idleMinutes, kIdleMinutesRange),
                  "settings read from a file stay in their ranges");
    fuzz::require(settings.scheduleGrid.weeklyGrid.size() == ScheduleGrid::dayCount,
                  "the schedule read has seven days");
    for (const auto& day : settings.scheduleGrid.weeklyGrid) {
        fuzz::require(day.size() == ScheduleGrid::hourCount, "each day read has 24 hours");
    }
    out.push_back(
        std::to_string(settings.awayCpuCeiling) + " " + std::to_string(settings.awayRamCeilingGB) +
        " " + std::to_string(settings.inUseCpuCeiling) + " " +
        std::to_string(settings.inUseRamCeilingGB) + " " + std::to_string(settings.idleMinutes) +
        " " + std::to_string(settings.pauseOnMeeting) + std::to_string(settings.pauseOnHeavyApp) +
        " " + settings.payoutMethod + " " + settings.payoutSchedule);
    return out;
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const std::string yaml(fuzz::textOf(data, size));
    const auto reading = readingOf(yaml);

    if (yaml.find('\r') == std::string::npos) {
        std::string crlf;
        for (char c : yaml) crlf += c == '\n' ? std::string("\r\n") : std::string(1, c);
        fuzz::require(readingOf(crlf) == reading, "CRLF line ends read like LF ones", yaml);
    }
    if (yaml.rfind("\xEF\xBB\xBF", 0) != 0) {
        fuzz::require(readingOf("\xEF\xBB\xBF" + yaml) == reading,
                      "a byte-order mark in front changes no reading", yaml);
    }
    return 0;
}
