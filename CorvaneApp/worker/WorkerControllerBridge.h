#pragma once
// Where the worker meets the main sequence: consumes the worker's events in order, keeps an
// observable copy of its snapshot and two bounded logs of recent events, and turns memory gating
// into a named pause of the eligibility gate. Everything but construction runs on the executor.

#include <cstddef>
#include <deque>
#include <memory>
#include <string>

#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"
#include "CorvaneApp/platform/Task.h"
#include "CorvaneApp/worker/WorkerController.h"

namespace corvane {

class WorkerControllerBridge : public std::enable_shared_from_this<WorkerControllerBridge> {
  public:
    static constexpr std::size_t maxRecentEvents = 200;
    static constexpr std::size_t maxRecentStageTimings = 100;

    struct StageTimingRecord {
        std::string shardID;
        WorkerControllerEvent::Stage stage;
        double seconds;
        Date at;
        bool operator==(const StageTimingRecord&) const = default;
    };

    // Starts observing at once; the first snapshot is copied on the executor.
    static std::shared_ptr<WorkerControllerBridge> create(
        std::shared_ptr<WorkerController> controller,
        std::shared_ptr<EligibilityGate> eligibilityGate, Executor& mainSequence,
        NowFunction now = systemNow);
    WorkerControllerBridge(std::shared_ptr<WorkerController> controller,
                           std::shared_ptr<EligibilityGate> eligibilityGate, Executor& mainSequence,
                           NowFunction now);
    ~WorkerControllerBridge();
    WorkerControllerBridge(const WorkerControllerBridge&) = delete;
    WorkerControllerBridge& operator=(const WorkerControllerBridge&) = delete;

    const WorkerControllerSnapshot& snapshot() const { return snapshot_; }
    const std::deque<WorkerControllerEvent>& recentEvents() const { return recentEvents_; }
    const std::deque<StageTimingRecord>& recentStageTimings() const { return recentStageTimings_; }
    bool isRunning() const { return snapshot_.isRunning; }
    bool hasActiveJob() const { return snapshot_.currentJobID.has_value(); }
    const std::shared_ptr<WorkerController>& controller() const { return controller_; }

    void start();
    // Blocks until the worker's loop has ended.
    void stop();
    void refresh();
    void recordModelLoaded(bool hit, double durationSeconds) {
        controller_->recordModelLoaded(hit, durationSeconds);
    }

    // Told after every change of the snapshot or the logs, on the executor.
    [[nodiscard]] Subscription observe(std::function<void()> observer) {
        return observers_.subscribe(std::move(observer));
    }

  private:
    void observeEvents();
    void apply(const WorkerControllerEvent& event);
    void applyRamGate(const WorkerControllerEvent& event);

    const std::shared_ptr<WorkerController> controller_;
    const std::shared_ptr<EligibilityGate> eligibilityGate_;
    Executor& mainSequence_;
    const NowFunction now_;
    WorkerControllerSnapshot snapshot_ = WorkerControllerSnapshot::empty;
    std::deque<WorkerControllerEvent> recentEvents_;
    std::deque<StageTimingRecord> recentStageTimings_;
    std::shared_ptr<PauseHandle> ramGatePauseHandle_;
    ObserverList<> observers_;
    TaskHandle observationTask_;
};

}  // namespace corvane
