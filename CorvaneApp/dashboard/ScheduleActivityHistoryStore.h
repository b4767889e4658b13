#pragma once
// The loading state of the activity histogram behind the schedule page. Lives on the main
// sequence; the page's load task calls the transitions there. A late answer for a worker the
// page no longer shows is ignored.

#include <optional>
#include <string>
#include <variant>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "CorvaneApp/dashboard/ScheduleSuggestionEngine.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

class ScheduleActivityHistoryStore {
  public:
    struct Idle {
        friend bool operator==(const Idle&, const Idle&) = default;
    };
    struct Loading {
        std::string workerID;
        friend bool operator==(const Loading&, const Loading&) = default;
    };
    struct Loaded {
        std::string workerID;
        friend bool operator==(const Loaded&, const Loaded&) = default;
    };
    struct Failed {
        std::string workerID;
        std::string message;
        friend bool operator==(const Failed&, const Failed&) = default;
    };
    using LoadState = std::variant<Idle, Loading, Loaded, Failed>;

    const std::optional<ActivityHistogramResponse>& histogram() const { return histogram_; }
    const LoadState& loadState() const { return loadState_; }

    std::optional<ScheduleSuggestionEngine> suggestionEngine() const;
    bool isLoadedButEmpty() const;
    std::string bannerText(const ScheduleGrid& grid, double ratePerHour) const;

    void beginLoad(const std::string& workerID);
    void completeLoad(const std::string& workerID, ActivityHistogramResponse response);
    void failLoad(const std::string& workerID, std::string message);

    // Called after every change of either field.
    [[nodiscard]] Subscription observe(std::function<void()> callback) {
        return changed_.subscribe(std::move(callback));
    }

  private:
    // The worker the current state belongs to; absent when idle.
    std::optional<std::string> currentWorker() const;

    std::optional<ActivityHistogramResponse> histogram_;
    LoadState loadState_ = Idle{};
    ObserverList<> changed_;
};

}  // namespace corvane
