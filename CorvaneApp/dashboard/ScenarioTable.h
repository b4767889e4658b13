#pragma once
// What the limits are worth: the hourly rate a CPU and RAM ceiling earn, the monthly estimate of
// the schedule and limits together, and the table of what other settings would earn. A heuristic
// over the settings alone; no coordinator figure enters it.

#include <string>
#include <vector>

#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/config/WorkerSettings.h"

namespace corvane {

// Dollars per hour for a CPU ceiling in percent and a RAM ceiling in gigabytes: 0.014 a CPU
// percent, plus 0.0006 a gigabyte from 20 GB on (counted up to 62 GB), since below 20 GB only a
// single worker fits.
double scheduleRate(double cpuPercent, double ramGB);
double awayRate(const WorkerSettings& settings);
double inUseRate(const WorkerSettings& settings);
// Allowed cells of the week over 7: the hours a day the away profile may run.
double allowedHoursAway(const ScheduleGrid& grid);

struct MonthlyEstimate {
    int low = 0;
    int high = 0;
    friend bool operator==(const MonthlyEstimate&, const MonthlyEstimate&) = default;
};
// (away rate x allowed hours + in-use rate x the rest of the day) x 7 x 4.1 (low) or 4.6 (high),
// truncated to whole dollars.
MonthlyEstimate monthlyEstimate(const WorkerSettings& settings);

// Installed gigabytes as the limits count them, and the top of a RAM slider on such a machine:
// two gigabytes stay reserved, but a slider never ends below 4.
int installedRAMGB(double totalRAM_GB);
int ramSliderTop(int ramGB);

struct ScenarioTable {
    struct Row {
        std::string label;
        int aCpu = 0;
        int aRam = 0;
        int uCpu = 0;
        int uRam = 0;
        bool highlight = false;
        friend bool operator==(const Row&, const Row&) = default;
    };
    std::vector<Row> rows;
    int current = 0;  // the index of the owner's own settings
    int hoursAway = 0;
    int hoursIn = 0;

    // Minimum, Conservative, Current (the settings), Open and Maximum for a machine of `ramGB`
    // installed gigabytes, over the hours the grid allows.
    static ScenarioTable make(const WorkerSettings& settings, int ramGB);
    // (rate(away) x hoursAway + rate(in use) x hoursIn) x 7 x 4.1, whole dollars.
    int monthly(const Row& row) const;

    friend bool operator==(const ScenarioTable&, const ScenarioTable&) = default;
};

}  // namespace corvane
