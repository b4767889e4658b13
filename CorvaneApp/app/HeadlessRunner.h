#pragma once
// Runs the worker without a display: the same AppDelegate on a plain main loop, logs to stderr and
// to the log file, and an orderly stop on SIGTERM or SIGINT.

#include <iosfwd>
#include <string>
#include <thread>

#include "CorvaneApp/platform/LoopExecutor.h"

namespace corvane {

// Blocks SIGTERM and SIGINT for the calling thread and every thread it starts later, so that one
// thread can wait for them. Call first thing in main().
void blockTerminationSignals();

// A thread that ends `loop` on the first SIGTERM or SIGINT (blocked beforehand, see above) and
// logs which one came. Stops looking when the returned thread is destroyed.
[[nodiscard]] std::jthread quitOnTerminationSignal(LoopExecutor& loop);

class Session;

// Runs `loop` until SIGTERM or SIGINT, then ends `session` (shards in flight are reported) and
// logs the stop. Returns 0.
int runUntilTerminated(LoopExecutor& loop, Session& session);

// Returns the process's exit status: 0 after a clean stop, 2 when the computer is not enrolled.
int runHeadless(const std::string& version, std::ostream& out, std::ostream& err);

}  // namespace corvane
