#pragma once
// Every five seconds, folds the weekly schedule, the power source and the time since the last
// input into the gate's schedule input, with the reason when it says no.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class IdleEligibilityMonitor {
  public:
    // The live settings, read on every tick; the owner binds them to the settings store.
    struct Settings {
        std::function<double()> idleMinutes;
        std::function<double()> inUseCpuCeiling;
        std::function<double()> inUseRamCeilingGB;
    };

    // The four readings; every member may be replaced by a test.
    struct Probes {
        std::function<bool(Date)> isScheduleAllowing;
        std::function<double()> idleSeconds;  // NaN when no source answers
        std::function<bool()> isOnACPower;
        NowFunction now;

        // The machine's own readings. `scheduleGrid` gives the store's grid, or absent when the
        // store is gone (the schedule then allows). Must be built and used on the main sequence.
        static Probes system(std::function<std::optional<ScheduleGrid>()> scheduleGrid);
    };

    IdleEligibilityMonitor(std::shared_ptr<EligibilityGate> gate, Executor& mainSequence,
                           Settings settings, Probes probes, double tickInterval = 5.0);
    IdleEligibilityMonitor(const IdleEligibilityMonitor&) = delete;
    IdleEligibilityMonitor& operator=(const IdleEligibilityMonitor&) = delete;

    // Evaluates once at once, then every five seconds. A second call does nothing.
    void start();
    void evaluate();

    double tickInterval() const { return tickInterval_; }

    // The grid's cell for the local weekday and hour of `at`; allowed when the calendar can't say.
    static bool scheduleAllowsClaim(const ScheduleGrid& grid, Date at);
    // The grid's day (0 Monday .. 6 Sunday) and hour of `at` in the local time zone.
    static std::optional<std::pair<int, int>> localDayAndHour(Date at);
    // On mains power, from /sys/class/power_supply; true (with an error logged) when unknown.
    static bool systemIsOnACPower();
    static bool isOnACPower(const std::filesystem::path& powerSupplyRoot);

  private:
    std::shared_ptr<EligibilityGate> gate_;
    Executor& mainSequence_;
    Settings settings_;
    Probes probes_;
    double tickInterval_;
    TimerHandle timer_;
};

}  // namespace corvane
