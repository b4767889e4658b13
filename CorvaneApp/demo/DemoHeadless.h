#pragma once
// The headless worker in dummy mode: no coordinator, no worker, no settings file; only the demo
// shard's rhythm, logged at each change so a watcher sees the sample session at work.

#include <optional>
#include <string>

#include "CorvaneApp/demo/DemoShardProgress.h"

namespace corvane {

// The log line for each change of the live shard; fed the seconds since the session began.
class DemoShardLog {
  public:
    std::optional<std::string> tick(double sessionElapsed);

  private:
    bool started_ = false;
    std::optional<DemoShardProgress> last_;
};

// Runs until SIGTERM or SIGINT (blocked by the caller beforehand); returns the exit status.
int runDemoHeadless(const std::string& version);

}  // namespace corvane
