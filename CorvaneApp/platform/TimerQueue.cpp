#include "CorvaneApp/platform/TimerQueue.h"

#include <algorithm>
#include <cmath>

namespace corvane {

void TimerQueue::post(std::function<void()> work) {
    std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
}

TimerHandle TimerQueue::schedule(double dueAt, double repeatInterval, std::function<void()> work) {
    std::uint64_t id;
    {
        std::lock_guard lock(mutex_);
        id = nextID_++;
        timers_.emplace(id, Timer{dueAt, std::max(0.0, repeatInterval),
                                  std::make_shared<std::function<void()>>(std::move(work))});
    }
    std::weak_ptr<TimerQueue> weak = weak_from_this();
    return TimerHandle([weak, id] {
        if (auto self = weak.lock()) self->cancel(id);
    });
}

void TimerQueue::cancel(std::uint64_t id) {
    std::lock_guard lock(mutex_);
    timers_.erase(id);
}

std::optional<std::function<void()>> TimerQueue::takeDue(double now) {
    std::lock_guard lock(mutex_);
    if (!posted_.empty()) {
        auto work = std::move(posted_.front());
        posted_.pop_front();
        return work;
    }
    auto earliest = timers_.end();
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
        if (it->second.dueAt <= now &&
            (earliest == timers_.end() || it->second.dueAt < earliest->second.dueAt)) {
            earliest = it;
        }
    }
    if (earliest == timers_.end()) return std::nullopt;
    auto work = earliest->second.work;
    if (earliest->second.repeatInterval > 0) {
        double interval = earliest->second.repeatInterval;
        double next = earliest->second.dueAt + interval;
        if (next <= now) next = now + interval - std::fmod(now - earliest->second.dueAt, interval);
        earliest->second.dueAt = next;
    } else {
        timers_.erase(earliest);
    }
    // The timer may be cancelled from inside its own work; the shared copy keeps it alive.
    return [work] { (*work)(); };
}

std::optional<double> TimerQueue::nextDue(double now) const {
    std::lock_guard lock(mutex_);
    if (!posted_.empty()) return now;
    std::optional<double> due;
    for (const auto& [id, timer] : timers_) {
        if (!due || timer.dueAt < *due) due = timer.dueAt;
    }
    return due;
}

size_t TimerQueue::timerCount() const {
    std::lock_guard lock(mutex_);
    return timers_.size();
}

}  // namespace corvane
