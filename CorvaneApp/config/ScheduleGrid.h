#pragma once
// The user's weekly schedule: seven rows (Monday first) of 24 hours in local time; true means
// work is allowed in that hour.

#include <vector>

namespace corvane {

struct ScheduleGrid {
    static constexpr int dayCount = 7;
    static constexpr int hourCount = 24;

    // As stored; may be ragged when it came from an old file. Readers go through isAllowed.
    std::vector<std::vector<bool>> weeklyGrid;

    // Nights and weekends open, Monday to Friday 09:00-16:59 blocked.
    static ScheduleGrid recommended();
    static bool recommendedValue(int day, int hour);

    // Any rows to a full 7x24 grid: present cells keep their value, missing ones take the
    // recommended value, extra rows and columns are dropped.
    static ScheduleGrid normalize(const std::vector<std::vector<bool>>& rows);

    // The stored value, or the recommended one where the stored grid has no such cell.
    bool isAllowed(int day, int hour) const;
    // Out-of-range arguments change nothing.
    void setAllowed(bool allowed, int day, int hour);

    friend bool operator==(const ScheduleGrid&, const ScheduleGrid&) = default;
};

}  // namespace corvane
