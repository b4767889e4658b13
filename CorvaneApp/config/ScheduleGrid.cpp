#include "CorvaneApp/config/ScheduleGrid.h"

#include <cstddef>

namespace corvane {
namespace {

bool inRange(int day, int hour) {
    return day >= 0 && day < ScheduleGrid::dayCount && hour >= 0 && hour < ScheduleGrid::hourCount;
}

}  // namespace

bool ScheduleGrid::recommendedValue(int day, int hour) {
    bool weekday = day >= 0 && day <= 4;
    bool workingHour = hour >= 9 && hour <= 16;
    return !(weekday && workingHour);
}

ScheduleGrid ScheduleGrid::recommended() {
    return normalize({});
}

ScheduleGrid ScheduleGrid::normalize(const std::vector<std::vector<bool>>& rows) {
    ScheduleGrid grid;
    grid.weeklyGrid.resize(dayCount);
    for (int day = 0; day < dayCount; ++day) {
        auto& row = grid.weeklyGrid[static_cast<size_t>(day)];
        row.resize(hourCount);
        for (int hour = 0; hour < hourCount; ++hour) {
            auto d = static_cast<size_t>(day);
            auto h = static_cast<size_t>(hour);
            bool present = d < rows.size() && h < rows[d].size();
            row[h] = present ? static_cast<bool>(rows[d][h]) : recommendedValue(day, hour);
        }
    }
    return grid;
}

bool ScheduleGrid::isAllowed(int day, int hour) const {
    if (inRange(day, hour)) {
        auto d = static_cast<size_t>(day);
        auto h = static_cast<size_t>(hour);
        if (d < weeklyGrid.size() && h < weeklyGrid[d].size()) return weeklyGrid[d][h];
    }
    return recommendedValue(day, hour);
}

void ScheduleGrid::setAllowed(bool allowed, int day, int hour) {
    if (!inRange(day, hour)) return;
    // A ragged grid is completed first so that the cell exists; the other cells read the same.
    if (weeklyGrid.size() != dayCount || weeklyGrid[static_cast<size_t>(day)].size() != hourCount) {
        *this = normalize(weeklyGrid);
    }
    weeklyGrid[static_cast<size_t>(day)][static_cast<size_t>(hour)] = allowed;
}

}  // namespace corvane
