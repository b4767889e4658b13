#include "CorvaneApp/dashboard/PopoverState.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

double clampedFraction(double value) {
    return std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0;
}

}  // namespace

std::optional<DownloadRowState> downloadRowState(const AppModel& model) {
    const auto& progress = model.modelInstall().modelDownloadProgress();
    if (!progress || !progress->isVisible()) return std::nullopt;
    DownloadRowState row;
    row.title = progress->modelDisplayName;
    if (const auto* failed = std::get_if<ModelDownloadProgress::Failed>(&progress->phase)) {
        row.failed = true;
        row.subtitle = "Model download failed: " + failed->description;
        return row;
    }
    const auto& downloading = std::get<ModelDownloadProgress::Downloading>(progress->phase);
    row.fraction = progress->fractionComplete();
    row.subtitle = byteProgressSubtitle(downloading.bytes, downloading.total, row.fraction);
    return row;
}

PopoverState popoverState(const AppModel& model) {
    PopoverState state;
    state.footer = footerActions(true);
    if (model.phase() != AppPhase::enrolled) {
        state.preOnboarding = PreOnboardingState{};
        state.status = WorkerStatus::notEnrolled;
        state.statusLabel = model.statusLabel();
        state.actions = statusActions(model);
        return state;
    }
    state.status = model.status();
    state.statusLabel = model.statusLabel();
    state.statusLine = model.statusSubtitle();
    state.todayEarnings = formatUSD(model.earnings().todayEarnings()) + " today";

    const auto& machine = model.machine();
    const auto& resources = model.resources();
    const int cores = std::max(machine.totalCores, 1);
    // Process CPU: 100% is one core, so the bar's full width is every core of the machine.
    auto cpuBar = [&](std::string label, std::optional<double> machineShare, bool corvane) {
        const double process = std::max(machineShare.value_or(0), 0.0) * cores;
        return ResourceBar{std::move(label), formatPercent(process),
                           clampedFraction(process / (100.0 * cores)), corvane};
    };
    auto ramBar = [&](std::string label, std::optional<double> machineShare, bool corvane) {
        const double gb = std::max(machineShare.value_or(0), 0.0) / 100 * machine.totalRAM_GB;
        return ResourceBar{
            std::move(label), formatGB(gb),
            machine.totalRAM_GB > 0 ? clampedFraction(gb / machine.totalRAM_GB) : 0.0, corvane};
    };
    state.cpuBars = {cpuBar("Corvane", resources.liveCpuCorvanePercent(), true),
                     cpuBar("Other processes", resources.liveCpuOtherPercent(), false)};
    state.ramBars = {ramBar("Corvane", resources.liveRamCorvanePercent(), true),
                     ramBar("Rest of machine", resources.liveRamOtherPercent(), false)};
    state.barsNote =
        "CPU bars use process CPU (100% = one core). RAM bars show Corvane resident memory and "
        "the measured machine memory remainder out of " +
        std::to_string(int(std::lround(machine.totalRAM_GB))) + " GB.";
    state.download = downloadRowState(model);
    state.actions = statusActions(model);
    return state;
}

}  // namespace corvane
