#include "CorvaneApp/app/ResourceHistory.h"

#include <algorithm>

namespace corvane {

void ResourceHistory::applySamplerSnapshot(const ResourceSampler::Snapshot& snapshot) {
    ModelChanges::Batch batch(changes_);
    auto last = [](const std::vector<double>& series) {
        return series.empty() ? std::nullopt : std::optional<double>(series.back());
    };
    constexpr auto part = ModelPart::resources;
    changes_.assign(liveCpuCorvane_, last(snapshot.cpuCorvane), part);
    changes_.assign(liveCpuOther_, last(snapshot.cpuOther), part);
    changes_.assign(liveRamCorvane_, last(snapshot.ramCorvane), part);
    changes_.assign(liveRamOther_, last(snapshot.ramOther), part);
    if (!snapshot.cpuCorvane.empty()) changes_.assign(history_, snapshot, part);
}

void ResourceHistory::reset() {
    ModelChanges::Batch batch(changes_);
    constexpr auto part = ModelPart::resources;
    changes_.assign(history_, ResourceSampler::Snapshot{}, part);
    changes_.assign(liveCpuCorvane_, std::nullopt, part);
    changes_.assign(liveCpuOther_, std::nullopt, part);
    changes_.assign(liveRamCorvane_, std::nullopt, part);
    changes_.assign(liveRamOther_, std::nullopt, part);
}

std::vector<double> ResourceHistory::cpuProcessHistory(const std::vector<double>& machineShares,
                                                       int totalCores) {
    std::vector<double> out;
    out.reserve(machineShares.size());
    for (double share : machineShares)
        out.push_back(std::max(share, 0.0) * std::max(totalCores, 1));
    return out;
}

std::vector<double> ResourceHistory::ramGBHistory(const std::vector<double>& machineShares,
                                                  double totalRAM_GB) {
    std::vector<double> out;
    out.reserve(machineShares.size());
    for (double share : machineShares) out.push_back(std::max(share, 0.0) / 100 * totalRAM_GB);
    return out;
}

double ResourceHistory::corvaneRamGB(double totalRAM_GB) const {
    const auto latest = liveRamCorvane_ ? liveRamCorvane_
                        : history_.ramCorvane.empty()
                            ? std::nullopt
                            : std::optional<double>(history_.ramCorvane.back());
    return latest.value_or(0) / 100 * totalRAM_GB;
}

double ResourceHistory::corvaneMachineCpuPercent() const {
    if (liveCpuCorvane_) return *liveCpuCorvane_;
    return history_.cpuCorvane.empty() ? 0 : history_.cpuCorvane.back();
}

}  // namespace corvane
