#include "CorvaneApp/platform/LoopExecutor.h"

#include <chrono>

namespace corvane {

LoopExecutor::LoopExecutor() : queue_(std::make_shared<TimerQueue>()) {}

double LoopExecutor::now() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void LoopExecutor::wake() {
    {
        std::lock_guard lock(mutex_);
        pending_ = true;
    }
    wakeUp_.notify_all();
}

void LoopExecutor::post(std::function<void()> work) {
    queue_->post(std::move(work));
    wake();
}

TimerHandle LoopExecutor::scheduleOnce(double delaySeconds, std::function<void()> work) {
    auto handle = queue_->schedule(now() + delaySeconds, 0, std::move(work));
    wake();
    return handle;
}

TimerHandle LoopExecutor::scheduleRepeating(double intervalSeconds, std::function<void()> work) {
    auto handle = queue_->schedule(now() + intervalSeconds, intervalSeconds, std::move(work));
    wake();
    return handle;
}

void LoopExecutor::quit() {
    {
        std::lock_guard lock(mutex_);
        quit_ = true;
    }
    wakeUp_.notify_all();
}

void LoopExecutor::run(std::stop_token stop) {
    while (!stop.stop_requested()) {
        {
            std::lock_guard lock(mutex_);
            if (quit_) {
                quit_ = false;
                return;
            }
            pending_ = false;
        }
        while (auto work = queue_->takeDue(now())) {
            (*work)();
            if (stop.stop_requested()) return;
        }
        std::unique_lock lock(mutex_);
        auto due = queue_->nextDue(now());
        auto predicate = [this] { return pending_ || quit_; };
        if (due) {
            auto wait = std::chrono::duration<double>(std::max(0.0, *due - now()));
            wakeUp_.wait_for(lock, stop, wait, predicate);
        } else {
            wakeUp_.wait(lock, stop, predicate);
        }
    }
}

}  // namespace corvane
