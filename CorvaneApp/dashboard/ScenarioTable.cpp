#include "CorvaneApp/dashboard/ScenarioTable.h"

#include <algorithm>
#include <cmath>

namespace corvane {
namespace {

constexpr double kDollarsPerCpuPercent = 0.014;
constexpr double kDollarsPerGB = 0.0006;
constexpr double kParallelWorkerGB = 20;  // the RAM term counts only from here
constexpr double kRamCountedUpTo = 62;
constexpr double kWeeksLow = 4.1, kWeeksHigh = 4.6;

int rounded(double value) {
    return int(std::lround(value));
}

int monthlyDollars(double awayRate, double inUseRate, double hoursAway, double hoursIn,
                   double weeks) {
    return int((awayRate * hoursAway + inUseRate * hoursIn) * 7.0 * weeks);
}

}  // namespace

double scheduleRate(double cpuPercent, double ramGB) {
    const double ram = ramGB >= kParallelWorkerGB ? std::min(ramGB, kRamCountedUpTo) : 0.0;
    return cpuPercent * kDollarsPerCpuPercent + ram * kDollarsPerGB;
}

double awayRate(const WorkerSettings& settings) {
    return scheduleRate(settings.awayCpuCeiling, settings.awayRamCeilingGB);
}

double inUseRate(const WorkerSettings& settings) {
    return scheduleRate(settings.inUseCpuCeiling, settings.inUseRamCeilingGB);
}

double allowedHoursAway(const ScheduleGrid& grid) {
    int allowed = 0;
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        for (int hour = 0; hour < ScheduleGrid::hourCount; ++hour)
            allowed += grid.isAllowed(day, hour) ? 1 : 0;
    }
    return allowed / 7.0;
}

MonthlyEstimate monthlyEstimate(const WorkerSettings& settings) {
    const double away = allowedHoursAway(settings.scheduleGrid);
    const double in = std::max(24.0 - away, 0.0);
    const double a = awayRate(settings), u = inUseRate(settings);
    return {monthlyDollars(a, u, away, in, kWeeksLow), monthlyDollars(a, u, away, in, kWeeksHigh)};
}

int installedRAMGB(double totalRAM_GB) {
    return std::isfinite(totalRAM_GB) ? std::max(rounded(totalRAM_GB), 0) : 0;
}

int ramSliderTop(int ramGB) {
    return std::max(ramGB - 2, 4);
}

ScenarioTable ScenarioTable::make(const WorkerSettings& settings, int ramGB) {
    const double ram = ramGB;
    const int top = ramSliderTop(ramGB);
    ScenarioTable table;
    table.rows = {
        {"Minimum", 60, rounded(ram * 0.25), 10, rounded(ram * 0.125), false},
        {"Conservative", 80, rounded(ram * 0.5), 15, rounded(ram * 0.15625), false},
        {"Current", int(settings.awayCpuCeiling), int(settings.awayRamCeilingGB),
         int(settings.inUseCpuCeiling), int(settings.inUseRamCeilingGB), true},
        {"Open", 95, std::min(rounded(ram * 0.75), top), 30, rounded(ram * 0.25), false},
        {"Maximum", 95, top, 50, rounded(ram * 0.375), false},
    };
    table.current = 2;
    const double away = allowedHoursAway(settings.scheduleGrid);
    table.hoursAway = rounded(away);
    table.hoursIn = std::max(rounded(24.0 - away), 0);
    return table;
}

int ScenarioTable::monthly(const Row& row) const {
    return monthlyDollars(scheduleRate(row.aCpu, row.aRam), scheduleRate(row.uCpu, row.uRam),
                          hoursAway, hoursIn, kWeeksLow);
}

}  // namespace corvane
