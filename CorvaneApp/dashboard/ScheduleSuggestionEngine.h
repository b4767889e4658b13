#pragma once
// Compares the weekly schedule with the owner's own activity per weekday and hour, and proposes
// opening the blocked hours in which they are rarely at the machine. Pure values: nothing changes
// until the owner applies the suggestions.

#include "CorvaneApp/config/ScheduleGrid.h"

#include <string>
#include <vector>

namespace corvane {

struct ScheduleSuggestionEngine {
    // Activity under this many minutes in a blocked hour makes it worth opening.
    static constexpr int quietThresholdMinutes = 30;
    // Activity above this many minutes in an allowed hour marks it as busy.
    static constexpr int busyThresholdMinutes = 600;

    enum class CellState { allowed = 0, blocked = 1, quietSuggest = 2, allowedBusy = 3 };

    struct RunBlock {
        int dayStart = 0;
        int dayEnd = 0;  // inclusive
        int hourStart = 0;
        int hourEnd = 0;  // exclusive
        int cellCount = 0;
        friend bool operator==(const RunBlock&, const RunBlock&) = default;
    };

    struct SuggestionBlock {
        std::string id;
        int dayStart = 0;
        int dayEnd = 0;
        int hourStart = 0;
        int hourEnd = 0;
        double hoursSaved = 0;
        friend bool operator==(const SuggestionBlock&, const SuggestionBlock&) = default;
    };

    // Minutes of activity per day (Monday first) and hour. May be ragged or hold negative
    // values as received; every reader goes through activityMinutes.
    std::vector<std::vector<int>> histogram;

    // Any rows to seven by 24: missing cells and rows read 0, negative values 0.
    static ScheduleSuggestionEngine fromRaw(const std::vector<std::vector<int>>& rows);

    bool hasHistory() const;
    int activityMinutes(int day, int hour) const;  // 0 out of range or below zero
    CellState cellState(const ScheduleGrid& grid, int day, int hour) const;
    std::vector<RunBlock> quietSuggestRuns(const ScheduleGrid& grid) const;
    std::vector<SuggestionBlock> quietSuggestionBlocks(
        const ScheduleGrid& grid) const;  // at most 3
    std::string suggestionBannerText(const ScheduleGrid& grid, double ratePerHour,
                                     bool loadedButEmpty) const;
    // Opens every quiet blocked cell, not only those the banner names; returns how many changed.
    int applySuggestions(ScheduleGrid& grid) const;

    static std::vector<RunBlock> mergeAdjacentRuns(std::vector<RunBlock> runs);
    static std::string dayRangeLabel(int dayStart, int dayEnd);
    static std::string hourRangeLabel(int hourStart, int hourEnd);
    static std::string hourLabel(int hour);
};

inline constexpr std::string_view kNoActivityHistoryText =
    "No activity history yet, so Corvane is not guessing where to open up the schedule.";

}  // namespace corvane
