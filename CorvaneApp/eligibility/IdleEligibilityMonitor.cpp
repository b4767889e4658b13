#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"

#include <algorithm>
#include <cmath>
#include <ctime>

#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/PowerSupplyReader.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

IdleEligibilityMonitor::Probes IdleEligibilityMonitor::Probes::system(
    std::function<std::optional<ScheduleGrid>()> scheduleGrid) {
    auto chain = std::make_shared<IdleTimeChain>(IdleTimeChain::system());
    return Probes{
        [scheduleGrid = std::move(scheduleGrid)](Date at) {
            auto grid = scheduleGrid();
            return grid ? scheduleAllowsClaim(*grid, at) : true;
        },
        [chain] { return chain->idleSeconds().value_or(std::nan("")); },
        [] { return systemIsOnACPower(); },
        systemNow,
    };
}

IdleEligibilityMonitor::IdleEligibilityMonitor(std::shared_ptr<EligibilityGate> gate,
                                               Executor& mainSequence, Settings settings,
                                               Probes probes, double tickInterval)
    : gate_(std::move(gate)),
      mainSequence_(mainSequence),
      settings_(std::move(settings)),
      probes_(std::move(probes)),
      tickInterval_(tickInterval) {}

void IdleEligibilityMonitor::start() {
    if (timer_.active()) return;
    evaluate();
    // The timer is owned here and runs on the same sequence, so it never outlives the monitor.
    timer_ = mainSequence_.scheduleRepeating(5.0, [this] { evaluate(); });
}

void IdleEligibilityMonitor::evaluate() {
    Date now = probes_.now();
    bool scheduleOK = probes_.isScheduleAllowing(now);
    double requiredIdle = std::max(settings_.idleMinutes(), 0.0) * 60.0;
    double reading = probes_.idleSeconds();
    double idle = std::isnan(reading) ? 0.0 : std::max(reading, 0.0);
    bool idleOK = idle >= requiredIdle;
    bool onAC = probes_.isOnACPower();
    bool inUseAllowed = settings_.inUseCpuCeiling() > 0 && settings_.inUseRamCeilingGB() > 0;

    if (!scheduleOK) {
        gate_->setScheduledOn(false, "schedule off");
    } else if (!onAC) {
        gate_->setScheduledOn(false, "on battery");
    } else if (inUseAllowed || idleOK) {
        gate_->setScheduledOn(true);
    } else {
        gate_->setScheduledOn(false, "waiting for idle");
    }
}

std::optional<std::pair<int, int>> IdleEligibilityMonitor::localDayAndHour(Date at) {
    std::time_t seconds = std::chrono::system_clock::to_time_t(at);
    std::tm local{};
    if (!localtime_r(&seconds, &local)) return std::nullopt;
    int weekday = local.tm_wday + 1;  // 1 Sunday .. 7 Saturday
    return std::pair{(weekday + 5) % 7, local.tm_hour};
}

bool IdleEligibilityMonitor::scheduleAllowsClaim(const ScheduleGrid& grid, Date at) {
    auto dayAndHour = localDayAndHour(at);
    if (!dayAndHour) return true;
    return grid.isAllowed(dayAndHour->first, dayAndHour->second);
}

bool IdleEligibilityMonitor::systemIsOnACPower() {
    return isOnACPower("/sys/class/power_supply");
}

bool IdleEligibilityMonitor::isOnACPower(const std::filesystem::path& powerSupplyRoot) {
    auto reading = PowerSupplyReader(powerSupplyRoot).read();
    if (!reading.folderReadable) {
        log::get("IdleEligibilityMonitor")
            ->error(
                "power supply information unavailable \u2014 assuming AC to avoid false pauses");
        return true;
    }
    if (!reading.providingSourceType) {
        log::get("IdleEligibilityMonitor")
            ->error("providing power source type unknown \u2014 assuming AC");
        return true;
    }
    return *reading.providingSourceType == "AC Power";
}

}  // namespace corvane
