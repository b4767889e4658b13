#pragma once
// The owner's settings that live in config.yaml, with their defaults and the ranges a value
// from the file or the interface must lie in.

#include <string>

#include "CorvaneApp/config/ScheduleGrid.h"

namespace corvane {

struct WorkerSettings {
    double awayCpuCeiling = 90.0;  // percent
    double awayRamCeilingGB = 48.0;
    double inUseCpuCeiling = 20.0;  // percent
    double inUseRamCeilingGB = 10.0;
    ScheduleGrid scheduleGrid = ScheduleGrid::recommended();
    double idleMinutes = 3.0;
    bool pauseOnMeeting = true;
    bool pauseOnHeavyApp = true;
    std::string payoutMethod = "ach";
    std::string payoutSchedule = "weekly";

    friend bool operator==(const WorkerSettings&, const WorkerSettings&) = default;
};

// Accepted ranges. Values outside are refused when read from the file and clamped when set.
struct SettingRange {
    double min;
    double max;
};
inline constexpr SettingRange kCpuPercentRange{0, 100};
inline constexpr SettingRange kRamGBRange{0, 1 << 20};  // a terabyte of gigabytes is plenty
inline constexpr SettingRange kIdleMinutesRange{0, 7 * 24 * 60};

}  // namespace corvane
