#include "CorvaneApp/dashboard/ScheduleActivityHistoryStore.h"

#include <algorithm>
#include <limits>

namespace corvane {

std::optional<std::string> ScheduleActivityHistoryStore::currentWorker() const {
    return std::visit(
        [](const auto& state) -> std::optional<std::string> {
            if constexpr (std::is_same_v<std::decay_t<decltype(state)>, Idle>) {
                return std::nullopt;
            } else {
                return state.workerID;
            }
        },
        loadState_);
}

std::optional<ScheduleSuggestionEngine> ScheduleActivityHistoryStore::suggestionEngine() const {
    if (!histogram_) return std::nullopt;
    // The wire carries 64-bit counts; anything past an int of minutes is as busy as it gets.
    std::vector<std::vector<int>> rows;
    for (const auto& day : histogram_->histogram) {
        auto& row = rows.emplace_back();
        for (auto minutes : day) {
            row.push_back(static_cast<int>(
                std::clamp<std::int64_t>(minutes, 0, std::numeric_limits<int>::max())));
        }
    }
    return ScheduleSuggestionEngine::fromRaw(rows);
}

bool ScheduleActivityHistoryStore::isLoadedButEmpty() const {
    return std::holds_alternative<Loaded>(loadState_) && histogram_ &&
           histogram_->activeMinutesTotal == 0;
}

std::string ScheduleActivityHistoryStore::bannerText(const ScheduleGrid& grid,
                                                     double ratePerHour) const {
    if (const auto* failed = std::get_if<Failed>(&loadState_)) return failed->message;
    if (auto engine = suggestionEngine())
        return engine->suggestionBannerText(grid, ratePerHour, isLoadedButEmpty());
    if (std::holds_alternative<Loading>(loadState_)) return "Loading activity history...";
    return std::string(kNoActivityHistoryText);
}

void ScheduleActivityHistoryStore::beginLoad(const std::string& workerID) {
    // A reload for the same worker keeps the old histogram on view until the answer comes.
    if (currentWorker() != workerID) histogram_.reset();
    loadState_ = Loading{workerID};
    changed_.notify();
}

void ScheduleActivityHistoryStore::completeLoad(const std::string& workerID,
                                                ActivityHistogramResponse response) {
    if (currentWorker() != workerID) return;
    histogram_ = std::move(response);
    loadState_ = Loaded{workerID};
    changed_.notify();
}

void ScheduleActivityHistoryStore::failLoad(const std::string& workerID, std::string message) {
    if (currentWorker() != workerID) return;
    histogram_.reset();
    loadState_ = Failed{workerID, std::move(message)};
    changed_.notify();
}

}  // namespace corvane
