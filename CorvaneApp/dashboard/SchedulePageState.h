#pragma once
// Everything the Schedule & limits page shows, computed from the settings, the page's working
// grid, this computer and the activity history: the earnings estimate, the two tabs of limits
// with their ranges, recommended marks and hints, the weekly heatmap and its legend, the
// suggestions banner and the table of what other settings would earn.

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/config/WorkerSettings.h"
#include "CorvaneApp/dashboard/ScenarioTable.h"
#include "CorvaneApp/dashboard/ScheduleActivityHistoryStore.h"
#include "CorvaneApp/dashboard/ScheduleSuggestionEngine.h"

namespace corvane {

// The tabs of limits; the one shown is remembered in "cvn.schedule.tab".
// `using` is a keyword here; the stored word stays "using".
enum class SchedulePageTab { away, inUse };
inline constexpr std::string_view kScheduleTabKey = "cvn.schedule.tab";
std::string_view rawValue(SchedulePageTab tab);  // "away", "using"
// The stored tab, the away tab for anything else.
SchedulePageTab schedulePageTabFromRaw(const std::optional<std::string>& raw);

// The settings a slider or switch of the page edits.
enum class ScheduleSetting {
    idleMinutes,
    pauseOnMeeting,
    pauseOnHeavyApp,
    awayCpuCeiling,
    awayRamCeilingGB,
    inUseCpuCeiling,
    inUseRamCeilingGB,
};

struct LimitSliderState {
    ScheduleSetting setting;
    std::string label;  // "Computer CPU Allowed"
    int value = 0;      // the setting, within the range
    int minimum = 0;
    int maximum = 0;
    std::optional<int> recommended;
    std::string valueText;        // "71%", "24 GB", "3 min"
    std::string recommendedText;  // "Recommended 71%", empty without a mark
    std::string hint;
    friend bool operator==(const LimitSliderState&, const LimitSliderState&) = default;
};

struct ScheduleToggleState {
    ScheduleSetting setting;
    std::string label;
    std::string detail;
    bool on = false;
    friend bool operator==(const ScheduleToggleState&, const ScheduleToggleState&) = default;
};

struct ScheduleRateState {
    std::string rate;   // "$1.29/hr"
    std::string title;  // "Away projection"
    std::string line;   // "heuristic from your away CPU/RAM limits"
    friend bool operator==(const ScheduleRateState&, const ScheduleRateState&) = default;
};

struct HeatmapState {
    using CellState = ScheduleSuggestionEngine::CellState;
    struct Cell {
        CellState state = CellState::allowed;
        std::string accessibleName;  // "Tuesday 14:00, quiet"
        friend bool operator==(const Cell&, const Cell&) = default;
    };
    struct LegendEntry {
        CellState state;
        std::string text;   // "Quiet — Corvane never runs"
        int count = 0;      // cells in that state
        std::string label;  // "Quiet — Corvane never runs · 40 h"
        friend bool operator==(const LegendEntry&, const LegendEntry&) = default;
    };
    std::array<std::array<Cell, 24>, 7> cells;           // [day][hour], Monday first
    std::array<std::string, 7> dayLabels;                // "Mon"
    std::vector<std::pair<int, std::string>> hourMarks;  // {6, "6 AM"}
    std::vector<LegendEntry> legend;
    friend bool operator==(const HeatmapState&, const HeatmapState&) = default;
};

struct ScenarioRowState {
    std::string label;    // "Conservative"
    std::string away;     // "80% · 16 GB"
    std::string inUse;    // "15% · 5 GB"
    std::string monthly;  // "$612"
    bool highlight = false;
    friend bool operator==(const ScenarioRowState&, const ScenarioRowState&) = default;
};

struct SchedulePageState {
    // The head.
    std::string estimateTitle = "Est. monthly earnings";
    MonthlyEstimate estimate;
    std::string estimateText;  // "$612 – $687"
    std::string estimateBasis = "based on your last 30 days of usage";
    ScheduleRateState away;
    ScheduleRateState inUse;

    // The tabs.
    SchedulePageTab tab = SchedulePageTab::away;
    std::array<std::string, 2> tabTitles{"Away", "In use"};

    // Away: what counts as away, and how hard to run then.
    std::string awayHeading = "What counts as being away?";
    std::string awayLine = "Corvane uses the away profile only when all of these are true.";
    LimitSliderState idle;
    std::vector<ScheduleToggleState> toggles;  // meeting, heavy application
    std::string awayLimitsHeading = "How hard to run while away";
    std::string awayLimitsLine =
        "With no one at the computer, Corvane can lean in. Your machine still yields instantly the "
        "moment you touch it.";
    LimitSliderState awayCpu;
    LimitSliderState awayRam;

    // In use.
    std::string inUseHeading = "How hard to run while you're using the computer";
    std::string inUseLine =
        "Corvane runs quietly in the background. You shouldn't notice it — if you do, pull these "
        "down.";
    LimitSliderState inUseCpu;
    LimitSliderState inUseRam;

    // The quiet hours.
    std::string quietTitle = "Corvane never runs during these hours";
    std::string quietLine =
        "Mark hours when Corvane must stay off. Outside these quiet hours it follows the rules "
        "above.";
    HeatmapState heatmap;
    std::string bannerText;
    std::string applyTitle = "Apply suggestions";
    bool canApplySuggestions = false;  // the history has quiet hours to open

    // What other settings would earn.
    std::string scenarioTitle = "More availability can raise projected earnings";
    std::array<std::string, 4> scenarioColumns{"Profile", "Away", "In use", "Est. monthly"};
    std::vector<ScenarioRowState> scenarios;

    friend bool operator==(const SchedulePageState&, const SchedulePageState&) = default;
};

// "$1.29/hr", the two decimals with a point whatever the locale.
std::string formatHourlyRate(double dollarsPerHour);
// The in-use RAM hint's workload from this many gigabytes on: whisper-large's working set with a
// small language model beside it.
inline constexpr int kLargeModelsInUseGB = 5;

// `settings` as the store holds them; `grid` the page's working copy (a drag in progress shows
// before it is saved).
SchedulePageState schedulePageState(const AppModel& model, const WorkerSettings& settings,
                                    const ScheduleGrid& grid, SchedulePageTab tab,
                                    const ScheduleActivityHistoryStore& history);

}  // namespace corvane
