#pragma once
// A SleepProvider for tests: every sleep is recorded and waits until the test releases it (or the
// sleeper is opened for good). A released sleep advances the fake clock by its length.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

#include "CorvaneApp/platform/SleepProvider.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {

class ManualSleeper final : public SleepProvider {
  public:
    explicit ManualSleeper(FakeClock* clock = nullptr) : clock_(clock) {}

    bool sleep(double seconds, std::stop_token stop) override {
        std::unique_lock lock(mutex_);
        requests_.push_back(seconds);
        auto entry = pending_.insert(pending_.end(), Pending{seconds, open_});
        changed_.notify_all();
        bool released = changed_.wait(lock, stop, [&] { return entry->released; });
        pending_.erase(entry);
        changed_.notify_all();
        if (!released) return false;
        if (clock_) clock_->advance(seconds < 0 ? 0 : seconds);
        return true;
    }

    // Waits for the oldest pending sleep (of exactly `seconds`, when given) and lets it finish.
    // False when none came within the safety limit, which only a broken worker reaches.
    bool releaseNext(std::optional<double> seconds = std::nullopt,
                     std::chrono::seconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(mutex_);
        Pending* found = nullptr;
        bool ok = changed_.wait_for(lock, limit, [&] {
            for (auto& p : pending_) {
                if (!p.released && (!seconds || p.seconds == *seconds)) {
                    found = &p;
                    return true;
                }
            }
            return false;
        });
        if (!ok) return false;
        found->released = true;
        changed_.notify_all();
        return true;
    }

    // Every sleep from now on passes at once.
    void open() {
        std::lock_guard lock(mutex_);
        open_ = true;
        for (auto& p : pending_) p.released = true;
        changed_.notify_all();
    }

    // Blocks until at least `count` sleeps (of `seconds`, when given) were requested.
    bool waitForRequests(std::size_t count, std::optional<double> seconds = std::nullopt,
                         std::chrono::seconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return countLocked(seconds) >= count; });
    }

    std::vector<double> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }
    std::size_t requestCount(std::optional<double> seconds = std::nullopt) const {
        std::lock_guard lock(mutex_);
        return countLocked(seconds);
    }

  private:
    struct Pending {
        double seconds;
        bool released;
    };
    std::size_t countLocked(std::optional<double> seconds) const {
        if (!seconds) return requests_.size();
        std::size_t n = 0;
        for (double s : requests_) n += (s == *seconds);
        return n;
    }

    FakeClock* clock_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<double> requests_;  // guarded by mutex_
    std::list<Pending> pending_;    // guarded by mutex_
    bool open_ = false;             // guarded by mutex_
};

}  // namespace corvane::testing
