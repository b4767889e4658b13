#include "CorvaneApp/dashboard/ScheduleSuggestionEngine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace corvane {

ScheduleSuggestionEngine ScheduleSuggestionEngine::fromRaw(
    const std::vector<std::vector<int>>& rows) {
    ScheduleSuggestionEngine engine;
    engine.histogram.assign(ScheduleGrid::dayCount, std::vector<int>(ScheduleGrid::hourCount, 0));
    for (size_t day = 0; day < rows.size() && day < ScheduleGrid::dayCount; ++day) {
        for (size_t hour = 0; hour < rows[day].size() && hour < ScheduleGrid::hourCount; ++hour) {
            engine.histogram[day][hour] = std::max(0, rows[day][hour]);
        }
    }
    return engine;
}

bool ScheduleSuggestionEngine::hasHistory() const {
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        for (int hour = 0; hour < ScheduleGrid::hourCount; ++hour) {
            if (activityMinutes(day, hour) > 0) return true;
        }
    }
    return false;
}

int ScheduleSuggestionEngine::activityMinutes(int day, int hour) const {
    if (day < 0 || hour < 0 || static_cast<size_t>(day) >= histogram.size()) return 0;
    const auto& row = histogram[static_cast<size_t>(day)];
    if (static_cast<size_t>(hour) >= row.size()) return 0;
    return std::max(0, row[static_cast<size_t>(hour)]);
}

ScheduleSuggestionEngine::CellState ScheduleSuggestionEngine::cellState(const ScheduleGrid& grid,
                                                                        int day, int hour) const {
    bool allowed = grid.isAllowed(day, hour);
    if (!hasHistory()) return allowed ? CellState::allowed : CellState::blocked;
    int minutes = activityMinutes(day, hour);
    if (allowed)
        return minutes > busyThresholdMinutes ? CellState::allowedBusy : CellState::allowed;
    return minutes < quietThresholdMinutes ? CellState::quietSuggest : CellState::blocked;
}

std::vector<ScheduleSuggestionEngine::RunBlock> ScheduleSuggestionEngine::quietSuggestRuns(
    const ScheduleGrid& grid) const {
    std::vector<RunBlock> runs;
    if (!hasHistory()) return runs;
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        int start = -1;
        for (int hour = 0; hour <= ScheduleGrid::hourCount; ++hour) {
            bool quiet = hour < ScheduleGrid::hourCount &&
                         cellState(grid, day, hour) == CellState::quietSuggest;
            if (quiet && start < 0) start = hour;
            if (!quiet && start >= 0) {
                runs.push_back({day, day, start, hour, hour - start});
                start = -1;
            }
        }
    }
    return mergeAdjacentRuns(std::move(runs));
}

std::vector<ScheduleSuggestionEngine::RunBlock> ScheduleSuggestionEngine::mergeAdjacentRuns(
    std::vector<RunBlock> runs) {
    std::stable_sort(runs.begin(), runs.end(), [](const RunBlock& a, const RunBlock& b) {
        return std::tie(a.hourStart, a.hourEnd, a.dayStart) <
               std::tie(b.hourStart, b.hourEnd, b.dayStart);
    });
    std::vector<RunBlock> merged;
    for (const auto& run : runs) {
        if (!merged.empty()) {
            auto& last = merged.back();
            if (last.hourStart == run.hourStart && last.hourEnd == run.hourEnd &&
                last.dayEnd + 1 == run.dayStart) {
                last.dayEnd = run.dayEnd;
                last.cellCount += run.cellCount;
                continue;
            }
        }
        merged.push_back(run);
    }
    return merged;
}

std::vector<ScheduleSuggestionEngine::SuggestionBlock>
ScheduleSuggestionEngine::quietSuggestionBlocks(const ScheduleGrid& grid) const {
    std::vector<SuggestionBlock> blocks;
    for (const auto& run : quietSuggestRuns(grid)) {
        std::string id = std::to_string(run.dayStart) + "-" + std::to_string(run.dayEnd) + "-" +
                         std::to_string(run.hourStart) + "-" + std::to_string(run.hourEnd);
        blocks.push_back({std::move(id), run.dayStart, run.dayEnd, run.hourStart, run.hourEnd,
                          static_cast<double>(run.cellCount)});
    }
    std::sort(blocks.begin(), blocks.end(), [](const SuggestionBlock& a, const SuggestionBlock& b) {
        if (a.hoursSaved != b.hoursSaved) return a.hoursSaved > b.hoursSaved;
        return std::tie(a.dayStart, a.hourStart, a.id) < std::tie(b.dayStart, b.hourStart, b.id);
    });
    if (blocks.size() > 3) blocks.resize(3);
    return blocks;
}

std::string ScheduleSuggestionEngine::suggestionBannerText(const ScheduleGrid& grid,
                                                           double ratePerHour,
                                                           bool loadedButEmpty) const {
    auto blocks = quietSuggestionBlocks(grid);
    if (!blocks.empty()) {
        std::string text;
        for (const auto& block : blocks) {
            if (!text.empty()) text += " · ";
            std::array<char, 64> amount{};
            std::snprintf(amount.data(), amount.size(), "%.2f", block.hoursSaved * ratePerHour);
            text += dayRangeLabel(block.dayStart, block.dayEnd) + " " +
                    hourRangeLabel(block.hourStart, block.hourEnd) + ", adds ~$" + amount.data() +
                    "/wk";
        }
        return text;
    }
    if (loadedButEmpty) return "Activity history loaded, but no active minutes were recorded yet.";
    if (hasHistory()) return "No quiet-suggest hours right now.";
    return std::string(kNoActivityHistoryText);
}

int ScheduleSuggestionEngine::applySuggestions(ScheduleGrid& grid) const {
    if (!hasHistory()) return 0;
    int changed = 0;
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        for (int hour = 0; hour < ScheduleGrid::hourCount; ++hour) {
            if (cellState(grid, day, hour) != CellState::quietSuggest) continue;
            // A ragged stored grid is completed first, so the cell exists to be set.
            if (static_cast<size_t>(day) >= grid.weeklyGrid.size() ||
                static_cast<size_t>(hour) >= grid.weeklyGrid[static_cast<size_t>(day)].size()) {
                grid = ScheduleGrid::normalize(grid.weeklyGrid);
            }
            grid.setAllowed(true, day, hour);
            ++changed;
        }
    }
    return changed;
}

std::string ScheduleSuggestionEngine::dayRangeLabel(int dayStart, int dayEnd) {
    static constexpr std::array<std::string_view, 7> names{"Mon", "Tue", "Wed", "Thu",
                                                           "Fri", "Sat", "Sun"};
    auto valid = [](int day) { return day >= 0 && day < 7; };
    if (!valid(dayStart) || !valid(dayEnd))
        return "Days " + std::to_string(dayStart) + "-" + std::to_string(dayEnd);
    if (dayStart == dayEnd) return std::string(names[static_cast<size_t>(dayStart)]);
    return std::string(names[static_cast<size_t>(dayStart)]) + "-" +
           std::string(names[static_cast<size_t>(dayEnd)]);
}

std::string ScheduleSuggestionEngine::hourLabel(int hour) {
    int h = ((hour % 24) + 24) % 24;
    int twelve = h % 12 == 0 ? 12 : h % 12;
    return std::to_string(twelve) + (h < 12 ? " AM" : " PM");
}

std::string ScheduleSuggestionEngine::hourRangeLabel(int hourStart, int hourEnd) {
    if (hourStart < 0 || hourStart >= hourEnd || (hourStart == 0 && hourEnd == 24))
        return "All day";
    return hourLabel(hourStart) + "–" + hourLabel(hourEnd);
}

}  // namespace corvane
