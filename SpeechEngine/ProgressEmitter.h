#pragma once
// Progress of long transcriptions as a stream: one session per transcription, each ending with a
// final event that says whether it failed.

#include <memory>
#include <mutex>

#include "CorvaneApp/platform/EventStream.h"

namespace speech {

struct TranscriptionProgress {
    double fraction = 0;  // 0.0 to 1.0
    bool finished = false;
    bool failed = false;

    bool operator==(const TranscriptionProgress&) const = default;
};

class ProgressEmitter {
  public:
    using Stream = corvane::EventStream<TranscriptionProgress>;

    // The stream of the running session, or of the next one when none runs.
    std::shared_ptr<Stream> stream();

    void startSession();
    // Ignored outside a session; fractions are limited to 0.0 to 1.0.
    void report(double fraction);
    // Sends the final event and closes the session's stream.
    void finishSession(bool failed);
    // Ends any session without a final event and starts afresh.
    void reset();

  private:
    std::mutex mutex_;
    std::shared_ptr<Stream> stream_;  // guarded by mutex_
    bool active_ = false;             // guarded by mutex_
    double lastFraction_ = 0;         // guarded by mutex_
};

}  // namespace speech
