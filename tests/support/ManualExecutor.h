#pragma once
// An Executor for tests: nothing runs until the test drains it or advances its fake time.

#include <memory>

#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/TimerQueue.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {

class ManualExecutor final : public Executor {
  public:
    explicit ManualExecutor(FakeClock* clock = nullptr)
        : clock_(clock), queue_(std::make_shared<TimerQueue>()) {}

    void post(std::function<void()> work) override { queue_->post(std::move(work)); }
    TimerHandle scheduleOnce(double delay, std::function<void()> work) override {
        return queue_->schedule(elapsed_ + delay, 0, std::move(work));
    }
    TimerHandle scheduleRepeating(double interval, std::function<void()> work) override {
        return queue_->schedule(elapsed_ + interval, interval, std::move(work));
    }

    // Runs everything that is due now, including work that the work posts.
    int runUntilIdle() {
        int ran = 0;
        while (auto work = queue_->takeDue(elapsed_)) {
            (*work)();
            ++ran;
        }
        return ran;
    }

    // Moves time forward, running each timer at its own due time, in order.
    void advance(double seconds) {
        double target = elapsed_ + seconds;
        runUntilIdle();
        while (auto due = queue_->nextDue(elapsed_)) {
            if (*due > target) break;
            if (*due > elapsed_) {
                if (clock_) clock_->advance(*due - elapsed_);
                elapsed_ = *due;
            }
            runUntilIdle();
        }
        if (clock_) clock_->advance(target - elapsed_);
        elapsed_ = target;
        runUntilIdle();
    }

    size_t timerCount() const { return queue_->timerCount(); }

  private:
    FakeClock* clock_;
    std::shared_ptr<TimerQueue> queue_;
    double elapsed_ = 0;
};

}  // namespace corvane::testing
