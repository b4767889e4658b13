#pragma once
// The gate's verdict as one lock-protected Boolean, so that the worker can read it from any
// thread without reaching the main sequence.

#include <mutex>

namespace corvane {

class EligibilitySnapshot {
  public:
    explicit EligibilitySnapshot(bool value) : value_(value) {}
    EligibilitySnapshot(const EligibilitySnapshot&) = delete;
    EligibilitySnapshot& operator=(const EligibilitySnapshot&) = delete;

    bool value() const {
        std::lock_guard lock(mutex_);
        return value_;
    }
    void store(bool value) {
        std::lock_guard lock(mutex_);
        value_ = value;
    }

  private:
    mutable std::mutex mutex_;
    bool value_;  // guarded by mutex_
};

}  // namespace corvane
