#pragma once
// The main sequence on a Qt event loop: posted work and timers run on the thread that owns the
// given QObject. post() and TimerHandle cancellation are safe from any thread; create and destroy
// the executor on the Qt thread.

#include <atomic>
#include <cstdint>
#include <memory>
#include <unordered_map>

#include "CorvaneApp/platform/Executor.h"

class QObject;
class QTimer;

namespace corvane {

class QtExecutor final : public Executor {
  public:
    explicit QtExecutor(QObject& context);
    ~QtExecutor() override;
    QtExecutor(const QtExecutor&) = delete;
    QtExecutor& operator=(const QtExecutor&) = delete;

    void post(std::function<void()> work) override;
    [[nodiscard]] TimerHandle scheduleOnce(double delaySeconds,
                                           std::function<void()> work) override;
    [[nodiscard]] TimerHandle scheduleRepeating(double intervalSeconds,
                                                std::function<void()> work) override;

    // Timers armed and not yet retired; for tests of the bookkeeping.
    std::size_t liveTimerCount() const { return timers_.size(); }

  private:
    struct Gate;
    TimerHandle schedule(double seconds, bool repeating, std::function<void()> work);
    void startTimer(std::uint64_t id, int milliseconds, bool repeating,
                    const std::shared_ptr<std::atomic<bool>>& cancelled,
                    std::function<void()> work);
    bool onOwnThread() const;

    std::unique_ptr<QObject> anchor_;  // receives posted work; its death drops what is still queued
    std::shared_ptr<Gate> gate_;       // shared with handles and other threads
    std::unordered_map<std::uint64_t, std::unique_ptr<QTimer>> timers_;  // Qt thread only
    std::atomic<std::uint64_t> nextTimerID_{1};
};

}  // namespace corvane
