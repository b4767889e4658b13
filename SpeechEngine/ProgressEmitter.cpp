#include "SpeechEngine/ProgressEmitter.h"

#include <algorithm>

namespace speech {

std::shared_ptr<ProgressEmitter::Stream> ProgressEmitter::stream() {
    std::lock_guard lock(mutex_);
    if (!stream_) stream_ = std::make_shared<Stream>();
    return stream_;
}

void ProgressEmitter::startSession() {
    std::lock_guard lock(mutex_);
    if (!stream_) stream_ = std::make_shared<Stream>();
    active_ = true;
    lastFraction_ = 0;
    stream_->push({0.0, false, false});
}

void ProgressEmitter::report(double fraction) {
    std::lock_guard lock(mutex_);
    if (!active_) return;
    lastFraction_ = std::clamp(fraction, 0.0, 1.0);
    stream_->push({lastFraction_, false, false});
}

void ProgressEmitter::finishSession(bool failed) {
    std::lock_guard lock(mutex_);
    if (!active_) return;
    stream_->push({failed ? lastFraction_ : 1.0, true, failed});
    stream_->close();
    stream_.reset();
    active_ = false;
}

void ProgressEmitter::reset() {
    std::lock_guard lock(mutex_);
    if (stream_) stream_->close();
    stream_.reset();
    active_ = false;
}

}  // namespace speech
