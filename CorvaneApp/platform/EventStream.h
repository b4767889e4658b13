#pragma once
// An unbounded, thread-safe queue of events with one reader; emission order is kept.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

namespace corvane {

template <typename T>
class EventStream {
public:
    void push(T value) {
        {
            std::lock_guard lock(mutex_);
            if (closed_) return;
            queue_.push_back(std::move(value));
        }
        ready_.notify_one();
    }

    // Ends the stream: the reader drains what is queued and then gets nothing.
    void close() {
        {
            std::lock_guard lock(mutex_);
            closed_ = true;
        }
        ready_.notify_all();
    }

    // Blocks until an event arrives, the stream is closed and drained, or `stop` is requested.
    std::optional<T> next(std::stop_token stop = {}) {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, stop, [this] { return !queue_.empty() || closed_; });
        return popLocked();
    }

    // Like next(), giving up after `limit`.
    template <typename Rep, typename Period>
    std::optional<T> nextFor(std::chrono::duration<Rep, Period> limit) {
        std::unique_lock lock(mutex_);
        ready_.wait_for(lock, limit, [this] { return !queue_.empty() || closed_; });
        return popLocked();
    }

    std::optional<T> tryNext() {
        std::lock_guard lock(mutex_);
        return popLocked();
    }

    std::deque<T> drain() {
        std::lock_guard lock(mutex_);
        return std::exchange(queue_, {});
    }

private:
    std::optional<T> popLocked() {
        if (queue_.empty()) return std::nullopt;
        T value = std::move(queue_.front());
        queue_.pop_front();
        return value;
    }

    std::mutex mutex_;
    std::condition_variable_any ready_;
    std::deque<T> queue_;  // guarded by mutex_
    bool closed_ = false;  // guarded by mutex_
};

}  // namespace corvane
