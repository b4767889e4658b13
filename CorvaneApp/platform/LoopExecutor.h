#pragma once
// The headless main sequence: runs posted work and timers on the thread that calls run().

#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>

#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/TimerQueue.h"

namespace corvane {

class LoopExecutor final : public Executor {
  public:
    LoopExecutor();

    void post(std::function<void()> work) override;
    TimerHandle scheduleOnce(double delaySeconds, std::function<void()> work) override;
    TimerHandle scheduleRepeating(double intervalSeconds, std::function<void()> work) override;

    // Runs until `stop` is requested or quit() is called.
    void run(std::stop_token stop = {});
    void quit();

  private:
    double now() const;
    void wake();

    std::shared_ptr<TimerQueue> queue_;
    std::mutex mutex_;
    std::condition_variable_any wakeUp_;
    bool quit_ = false;     // guarded by mutex_
    bool pending_ = false;  // guarded by mutex_: something was added since the last look
};

}  // namespace corvane
