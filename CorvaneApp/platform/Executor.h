#pragma once
// The main sequence: work posted here runs one item at a time, in order, with timers.

#include <functional>
#include <memory>
#include <utility>

namespace corvane {

// Cancels its timer when destroyed or when cancel() is called.
class TimerHandle {
  public:
    TimerHandle() = default;
    explicit TimerHandle(std::function<void()> cancel) : cancel_(std::move(cancel)) {}
    TimerHandle(TimerHandle&& other) noexcept : cancel_(std::exchange(other.cancel_, {})) {}
    TimerHandle& operator=(TimerHandle&& other) noexcept {
        if (this != &other) {
            cancel();
            cancel_ = std::exchange(other.cancel_, {});
        }
        return *this;
    }
    TimerHandle(const TimerHandle&) = delete;
    TimerHandle& operator=(const TimerHandle&) = delete;
    ~TimerHandle() { cancel(); }

    void cancel() {
        if (auto c = std::exchange(cancel_, {})) c();
    }
    bool active() const { return static_cast<bool>(cancel_); }

  private:
    std::function<void()> cancel_;
};

class Executor {
  public:
    virtual ~Executor() = default;
    // Runs `work` on the executor's sequence after what is already posted. Safe from any thread.
    virtual void post(std::function<void()> work) = 0;
    // Runs `work` once after `delaySeconds`.
    [[nodiscard]] virtual TimerHandle scheduleOnce(double delaySeconds,
                                                   std::function<void()> work) = 0;
    // Runs `work` every `intervalSeconds`, the first time one interval from now.
    [[nodiscard]] virtual TimerHandle scheduleRepeating(double intervalSeconds,
                                                        std::function<void()> work) = 0;
};

}  // namespace corvane
