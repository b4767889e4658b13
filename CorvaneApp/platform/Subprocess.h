#pragma once
// Runs another program to its end and keeps what it printed: for the few system tools Corvane
// asks (the package manager, systemd). Blocks the calling thread; call it off the main sequence.

#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct SubprocessResult {
    int exitStatus = -1;  // -1 when it could not be started or ended by a signal
    std::string output;   // standard output; standard error is discarded
};

// `arguments[0]` is looked up on PATH. Standard input is empty.
SubprocessResult runSubprocess(const std::vector<std::string>& arguments);

}  // namespace corvane
