#pragma once
// Every wait of a worker goes through a SleepProvider, so that tests can drive time by hand.

#include <stop_token>

namespace corvane {

class SleepProvider {
  public:
    virtual ~SleepProvider() = default;
    // Waits `seconds` (negative counts as 0). Returns false when `stop` was requested before the
    // time was up: that is the cancellation of the sleep.
    virtual bool sleep(double seconds, std::stop_token stop) = 0;
};

// Production sleeper: a condition-variable wait that wakes at once on a stop request.
class TaskSleepProvider final : public SleepProvider {
  public:
    bool sleep(double seconds, std::stop_token stop) override;
};

}  // namespace corvane
