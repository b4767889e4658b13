#pragma once
// Runs the worker without a display: the same AppDelegate on a plain main loop, logs to stderr and
// to the log file, and an orderly stop on SIGTERM or SIGINT.

#include <iosfwd>
#include <string>

namespace corvane {

// Blocks SIGTERM and SIGINT for the calling thread and every thread it starts later, so that one
// thread can wait for them. Call first thing in main().
void blockTerminationSignals();

// Returns the process's exit status: 0 after a clean stop, 2 when the computer is not enrolled.
int runHeadless(const std::string& version, std::ostream& out, std::ostream& err);

}  // namespace corvane
