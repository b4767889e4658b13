#include "CorvaneApp/models/WeightsReleaseTimer.h"

#include <stdexcept>

#include "CorvaneApp/platform/Log.h"

namespace corvane {

WeightsReleaseTimer::WeightsReleaseTimer(Executor& mainSequence,
                                         std::function<WeightsRelease()> release,
                                         std::function<bool()> keepLoaded, Options options)
    : main_(mainSequence),
      release_(std::move(release)),
      keepLoaded_(std::move(keepLoaded)),
      options_(options) {
    if (!release_ || !keepLoaded_)
        throw std::invalid_argument("WeightsReleaseTimer needs release and keepLoaded");
}

void WeightsReleaseTimer::setPaused(bool paused) {
    if (paused == paused_) return;
    paused_ = paused;
    if (!paused) {
        timer_.cancel();
        return;
    }
    timer_ = main_.scheduleOnce(options_.delaySeconds, [this] { delayEnded(); });
}

void WeightsReleaseTimer::delayEnded() {
    timer_ = TimerHandle();
    if (!paused_) return;
    if (keepLoaded_()) {
        log::get("WhisperHandler")
            ->info(
                "keep_model_loaded is set: the weights stay in memory while the worker is "
                "paused");
        return;
    }
    if (release_() == WeightsRelease::busy)
        timer_ = main_.scheduleOnce(options_.busyRetrySeconds, [this] { delayEnded(); });
}

}  // namespace corvane
