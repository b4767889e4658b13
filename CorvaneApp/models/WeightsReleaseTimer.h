#pragma once
// Frees the model's weights once the worker has been paused for a while (by its schedule, its
// owner, a meeting, the battery: anything that makes it ineligible), so that a computer whose
// owner works on it for hours doesn't hold hundreds of megabytes for a worker that waits. The
// next shard loads them again. Lives on the main sequence: the owner reports each change of
// "paused", and this keeps one timer.

#include <functional>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class WeightsReleaseTimer {
  public:
    struct Options {
        double delaySeconds = 600;     // paused this long before the weights go
        double busyRetrySeconds = 30;  // a shard still held them: ask again after this
    };
    // `release` asks the current handler to let go; `keepLoaded` is the owner's choice to keep
    // the weights, read when the delay ends. Both run on the main sequence.
    WeightsReleaseTimer(Executor& mainSequence, std::function<WeightsRelease()> release,
                        std::function<bool()> keepLoaded, Options options);
    WeightsReleaseTimer(const WeightsReleaseTimer&) = delete;
    WeightsReleaseTimer& operator=(const WeightsReleaseTimer&) = delete;

    // Paused: the delay starts, unless it runs already. Not paused: it is called off.
    void setPaused(bool paused);

  private:
    void delayEnded();

    Executor& main_;
    const std::function<WeightsRelease()> release_;
    const std::function<bool()> keepLoaded_;
    const Options options_;
    bool paused_ = false;
    TimerHandle timer_;
};

}  // namespace corvane
