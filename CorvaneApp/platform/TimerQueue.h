#pragma once
// The bookkeeping shared by executors: posted work and timers ordered by a monotonic time in
// seconds. Thread-safe; the executor decides where time comes from and where work runs.

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class TimerQueue : public std::enable_shared_from_this<TimerQueue> {
  public:
    void post(std::function<void()> work);
    TimerHandle schedule(double dueAt, double repeatInterval, std::function<void()> work);

    // The next item that is due at `now`: posted work first, then the earliest due timer. A
    // repeating timer is re-armed one interval after its due time (never in the past of `now`).
    std::optional<std::function<void()>> takeDue(double now);
    // When the earliest timer is due; absent when none is armed. Posted work counts as due now.
    std::optional<double> nextDue(double now) const;
    size_t timerCount() const;

  private:
    struct Timer {
        double dueAt;
        double repeatInterval;  // 0 for a one-shot timer
        std::shared_ptr<std::function<void()>> work;
    };
    void cancel(std::uint64_t id);

    mutable std::mutex mutex_;
    std::deque<std::function<void()>> posted_;  // guarded by mutex_
    std::map<std::uint64_t, Timer> timers_;     // guarded by mutex_
    std::uint64_t nextID_ = 1;                  // guarded by mutex_
};

}  // namespace corvane
