#pragma once
// A clock that moves only when a test says so.

#include <mutex>

#include "CorvaneApp/platform/Clock.h"

namespace corvane::testing {

class FakeClock {
  public:
    explicit FakeClock(Date start = dateFromUnixSeconds(1'780'000'000)) : now_(start) {}

    Date now() const {
        std::lock_guard lock(mutex_);
        return now_;
    }
    void advance(double seconds) {
        std::lock_guard lock(mutex_);
        now_ = addSeconds(now_, seconds);
    }
    void set(Date date) {
        std::lock_guard lock(mutex_);
        now_ = date;
    }
    NowFunction function() {
        return [this] { return now(); };
    }

  private:
    mutable std::mutex mutex_;
    Date now_;  // guarded by mutex_
};

}  // namespace corvane::testing
