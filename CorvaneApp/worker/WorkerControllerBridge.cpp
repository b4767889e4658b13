#include "CorvaneApp/worker/WorkerControllerBridge.h"

namespace corvane {

std::shared_ptr<WorkerControllerBridge> WorkerControllerBridge::create(
    std::shared_ptr<WorkerController> controller, std::shared_ptr<EligibilityGate> eligibilityGate,
    Executor& mainSequence, NowFunction now) {
    auto bridge = std::make_shared<WorkerControllerBridge>(
        std::move(controller), std::move(eligibilityGate), mainSequence, std::move(now));
    bridge->observeEvents();
    mainSequence.post([weak = std::weak_ptr<WorkerControllerBridge>(bridge)] {
        if (auto self = weak.lock()) self->refresh();
    });
    return bridge;
}

WorkerControllerBridge::WorkerControllerBridge(std::shared_ptr<WorkerController> controller,
                                               std::shared_ptr<EligibilityGate> eligibilityGate,
                                               Executor& mainSequence, NowFunction now)
    : controller_(std::move(controller)),
      eligibilityGate_(std::move(eligibilityGate)),
      mainSequence_(mainSequence),
      now_(std::move(now)) {}

WorkerControllerBridge::~WorkerControllerBridge() {
    if (observationTask_) observationTask_->cancel();
}

void WorkerControllerBridge::observeEvents() {
    // The reader thread only moves events across; each is applied on the main sequence, in order.
    observationTask_ = Task::start([weak = weak_from_this(), controller = controller_,
                                    &mainSequence = mainSequence_](std::stop_token stop) {
        while (auto event = controller->events().next(stop)) {
            if (weak.expired()) return;
            mainSequence.post([weak, event = std::move(*event)] {
                if (auto self = weak.lock()) self->apply(event);
            });
        }
    });
}

void WorkerControllerBridge::apply(const WorkerControllerEvent& event) {
    recentEvents_.push_back(event);
    while (recentEvents_.size() > maxRecentEvents) recentEvents_.pop_front();
    if (const auto* timing = event.as<WorkerControllerEvent::StageTiming>()) {
        recentStageTimings_.push_back(
            {timing->shardID, timing->stage, timing->durationSeconds, now_()});
        while (recentStageTimings_.size() > maxRecentStageTimings) recentStageTimings_.pop_front();
    }
    applyRamGate(event);
    snapshot_ = controller_->snapshot();
    observers_.notify();
}

void WorkerControllerBridge::applyRamGate(const WorkerControllerEvent& event) {
    if (!eligibilityGate_) return;
    using E = WorkerControllerEvent;
    if (event.as<E::RamGated>()) {
        if (!ramGatePauseHandle_)
            ramGatePauseHandle_ = eligibilityGate_->pause("ram budget exhausted");
    } else if (event.as<E::Stopped>() || event.as<E::Resumed>() || event.as<E::Idle>() ||
               event.as<E::ErrorOccurred>()) {
        if (ramGatePauseHandle_) {
            ramGatePauseHandle_->release();
            ramGatePauseHandle_.reset();
        }
    }
}

void WorkerControllerBridge::start() {
    controller_->start();
    refresh();
}

void WorkerControllerBridge::stop() {
    controller_->stop();
    refresh();
}

void WorkerControllerBridge::refresh() {
    snapshot_ = controller_->snapshot();
    observers_.notify();
}

}  // namespace corvane
