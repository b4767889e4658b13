#pragma once
// An unbounded, thread-safe queue of events with one reader; emission order is kept. Its buffer
// keeps its capacity once grown, so a steady stream of events allocates nothing.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

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
        ready_.wait(lock, stop, [this] { return head_ != queue_.size() || closed_; });
        return popLocked();
    }

    // Like next(), giving up after `limit`.
    template <typename Rep, typename Period>
    std::optional<T> nextFor(std::chrono::duration<Rep, Period> limit) {
        std::unique_lock lock(mutex_);
        ready_.wait_for(lock, limit, [this] { return head_ != queue_.size() || closed_; });
        return popLocked();
    }

    std::optional<T> tryNext() {
        std::lock_guard lock(mutex_);
        return popLocked();
    }

    std::vector<T> drain() {
        std::lock_guard lock(mutex_);
        std::vector<T> events(std::make_move_iterator(queue_.begin() + std::ptrdiff_t(head_)),
                              std::make_move_iterator(queue_.end()));
        queue_.clear();
        head_ = 0;
        return events;
    }

  private:
    std::optional<T> popLocked() {
        if (head_ == queue_.size()) return std::nullopt;
        T value = std::move(queue_[head_++]);
        if (head_ == queue_.size()) {
            queue_.clear();  // keeps the capacity
            head_ = 0;
        } else if (head_ > 64 && head_ * 2 > queue_.size()) {
            // A reader that never quite catches up: drop the consumed front in place.
            queue_.erase(queue_.begin(), queue_.begin() + std::ptrdiff_t(head_));
            head_ = 0;
        }
        return value;
    }

    std::mutex mutex_;
    std::condition_variable_any ready_;
    std::vector<T> queue_;  // guarded by mutex_; [head_, end) not yet read
    std::size_t head_ = 0;  // guarded by mutex_
    bool closed_ = false;   // guarded by mutex_
};

}  // namespace corvane
