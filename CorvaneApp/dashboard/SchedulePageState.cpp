#include "CorvaneApp/dashboard/SchedulePageState.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

using CellState = ScheduleSuggestionEngine::CellState;

constexpr int kCpuTop = 95;  // percent; the rest keeps the system responsive
constexpr std::array<const char*, 7> kDayNames{"Monday", "Tuesday",  "Wednesday", "Thursday",
                                               "Friday", "Saturday", "Sunday"};
constexpr std::array<const char*, 7> kDayLabels{"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

int settingValue(double setting, int minimum, int maximum) {
    if (!std::isfinite(setting)) return minimum;
    return std::clamp(int(std::lround(setting)), minimum, maximum);
}

LimitSliderState slider(ScheduleSetting setting, std::string label, double current, int minimum,
                        int maximum, std::optional<int> recommended, const std::string& unit) {
    LimitSliderState state{setting,
                           std::move(label),
                           settingValue(current, minimum, maximum),
                           minimum,
                           maximum,
                           recommended,
                           "",
                           "",
                           ""};
    state.valueText = std::to_string(state.value) + unit;
    if (recommended) state.recommendedText = "Recommended " + std::to_string(*recommended) + unit;
    return state;
}

std::string ramHintHead(int value, int ramGB) {
    return std::to_string(value) + " GB of " + std::to_string(ramGB) + " (2 GB reserved). ";
}

// The word a screen reader says for a cell, after its day and hour.
std::string_view cellWords(CellState state) {
    switch (state) {
        case CellState::allowed:
            return "open";
        case CellState::blocked:
            return "quiet";
        case CellState::quietSuggest:
            return "quiet, suggested to open";
        case CellState::allowedBusy:
            return "open, risky to run";
    }
    return "open";
}

std::string twoDigits(int value) {
    return (value < 10 ? "0" : "") + std::to_string(value);
}

HeatmapState heatmapState(const ScheduleGrid& grid,
                          const std::optional<ScheduleSuggestionEngine>& engine) {
    HeatmapState heatmap;
    std::array<int, 4> counts{};
    for (int day = 0; day < 7; ++day) {
        heatmap.dayLabels[day] = kDayLabels[day];
        for (int hour = 0; hour < 24; ++hour) {
            const CellState state =
                engine ? engine->cellState(grid, day, hour)
                       : (grid.isAllowed(day, hour) ? CellState::allowed : CellState::blocked);
            ++counts[std::size_t(state)];
            heatmap.cells[day][hour] = {state, std::string(kDayNames[day]) + " " + twoDigits(hour) +
                                                   ":00, " + std::string(cellWords(state))};
        }
    }
    for (int hour : {0, 6, 12, 18})
        heatmap.hourMarks.emplace_back(hour, ScheduleSuggestionEngine::hourLabel(hour));
    for (auto [state, text] : {std::pair{CellState::allowedBusy, "Risky to run — consider quiet"},
                               std::pair{CellState::quietSuggest, "Consider marking quiet"},
                               std::pair{CellState::blocked, "Quiet — Corvane never runs"}}) {
        const int count = counts[std::size_t(state)];
        heatmap.legend.push_back(
            {state, text, count, std::string(text) + " · " + std::to_string(count) + " h"});
    }
    return heatmap;
}

std::string limitPair(int cpu, int ram) {
    return std::to_string(cpu) + "% · " + std::to_string(ram) + " GB";
}

}  // namespace

std::string_view rawValue(SchedulePageTab tab) {
    return tab == SchedulePageTab::inUse ? "using" : "away";
}

SchedulePageTab schedulePageTabFromRaw(const std::optional<std::string>& raw) {
    return raw && *raw == "using" ? SchedulePageTab::inUse : SchedulePageTab::away;
}

std::string formatHourlyRate(double dollarsPerHour) {
    return "$" + fixed(dollarsPerHour, 2) + "/hr";
}

SchedulePageState schedulePageState(const AppModel& model, const WorkerSettings& settings,
                                    const ScheduleGrid& grid, SchedulePageTab tab,
                                    const ScheduleActivityHistoryStore& history) {
    WorkerSettings shown = settings;
    shown.scheduleGrid = grid;
    const int ram = installedRAMGB(model.machine().totalRAM_GB);
    const int ramTop = ramSliderTop(ram);
    const std::string cores = std::to_string(std::max(model.machine().totalCores, 1));
    const double away = awayRate(shown), inUse = inUseRate(shown);

    SchedulePageState state;
    state.estimate = monthlyEstimate(shown);
    state.estimateText =
        formatWholeUSD(state.estimate.low) + " – " + formatWholeUSD(state.estimate.high);
    state.away = {formatHourlyRate(away), "Away projection",
                  "heuristic from your away CPU/RAM limits"};
    state.inUse = {formatHourlyRate(inUse), "In-use projection",
                   "heuristic from your in-use CPU/RAM limits"};
    state.tab = tab;

    state.idle = slider(ScheduleSetting::idleMinutes, "Idle for at least", settings.idleMinutes, 1,
                        30, std::nullopt, " min");
    state.idle.hint = "No keyboard, mouse, or trackpad input.";
    state.toggles = {
        {ScheduleSetting::pauseOnMeeting, "Pause when in a meeting",
         "Zoom, Meet, Teams, FaceTime, or any app using the mic + camera.",
         settings.pauseOnMeeting},
        {ScheduleSetting::pauseOnHeavyApp, "Pause when a heavy app is in the foreground",
         "Final Cut, Xcode builds, Blender, Logic — anything >50% CPU / RAM for >5 minutes.",
         settings.pauseOnHeavyApp},
    };

    state.awayCpu =
        slider(ScheduleSetting::awayCpuCeiling, "Computer CPU Allowed", settings.awayCpuCeiling, 0,
               kCpuTop, int(std::lround(kCpuTop * 0.75)), "%");
    state.awayCpu.hint = std::to_string(state.awayCpu.value) + "% of " + cores +
                         " cores. Capped at 95% so the system stays responsive in the background.";
    state.awayRam =
        slider(ScheduleSetting::awayRamCeilingGB, "Max RAM Allowed", settings.awayRamCeilingGB, 0,
               ramTop, std::min(int(std::lround(ram * 0.75)), ramTop), " GB");
    state.awayRam.hint =
        ramHintHead(state.awayRam.value, ram) +
        (state.awayRam.value >= 20 ? "Enough for a parallel worker when demand is high."
                                   : "Single worker only — bump to 20+ GB for parallel jobs.");

    state.inUseCpu = slider(ScheduleSetting::inUseCpuCeiling, "Computer CPU Allowed",
                            settings.inUseCpuCeiling, 0, kCpuTop, 20, "%");
    state.inUseCpu.hint =
        std::to_string(state.inUseCpu.value) + "% of " + cores +
        " cores. Below 25% goes unnoticed while you work; above 40% may show up on "
        "fans during video calls.";
    state.inUseRam =
        slider(ScheduleSetting::inUseRamCeilingGB, "Max RAM Allowed", settings.inUseRamCeilingGB, 0,
               ramTop, std::min(int(std::lround(ram * 0.15625)), ramTop), " GB");
    state.inUseRam.hint =
        ramHintHead(state.inUseRam.value, ram) + "Small jobs only — " +
        (state.inUseRam.value >= kLargeModelsInUseGB ? "whisper-large, small LLMs"
                                                     : "whisper-tiny, embeddings");

    const auto engine = history.suggestionEngine();
    state.heatmap = heatmapState(grid, engine);
    state.bannerText = history.bannerText(grid, away);
    if (engine) {
        ScheduleGrid trial = grid;
        state.canApplySuggestions = engine->applySuggestions(trial) > 0;
    }

    const auto table = ScenarioTable::make(shown, ram);
    for (const auto& row : table.rows) {
        state.scenarios.push_back({row.label, limitPair(row.aCpu, row.aRam),
                                   limitPair(row.uCpu, row.uRam),
                                   formatWholeUSD(table.monthly(row)), row.highlight});
    }
    return state;
}

}  // namespace corvane
