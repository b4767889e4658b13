#pragma once
// A SleepProvider for tests: every sleep is recorded and waits until the test lets it pass (or
// the sleeper is opened for good). A passing sleep advances the fake clock by its length.

#include <chrono>
#include <condition_variable>
#include <mutex>
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
        changed_.notify_all();
        bool passed = changed_.wait(lock, stop, [this] { return open_ || permits_ > 0; });
        if (!passed) return false;
        if (!open_) --permits_;
        if (clock_) clock_->advance(seconds < 0 ? 0 : seconds);
        return true;
    }

    // Lets `count` more sleeps finish.
    void allow(int count = 1) {
        {
            std::lock_guard lock(mutex_);
            permits_ += count;
        }
        changed_.notify_all();
    }
    // Every sleep from now on passes at once.
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        changed_.notify_all();
    }

    // Blocks until at least `count` sleeps were requested; false after a generous safety limit,
    // which only a broken worker reaches.
    bool waitForRequests(size_t count, std::chrono::seconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, limit, [&] { return requests_.size() >= count; });
    }

    std::vector<double> requests() const {
        std::lock_guard lock(mutex_);
        return requests_;
    }

private:
    FakeClock* clock_;
    mutable std::mutex mutex_;
    std::condition_variable_any changed_;
    std::vector<double> requests_;  // guarded by mutex_
    int permits_ = 0;               // guarded by mutex_
    bool open_ = false;             // guarded by mutex_
};

}  // namespace corvane::testing
