#pragma once
// A program started by a test: its stdout is read line by line with a deadline, its stderr goes to
// a file, and it is killed and reaped if the test ends before it does.

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace corvane::testing {

class ChildProcess {
  public:
    struct Options {
        std::vector<std::string> arguments;  // arguments[0] is the program (PATH is searched)
        std::map<std::string, std::string> setEnvironment;
        std::vector<std::string> unsetEnvironment;
        std::filesystem::path stderrFile;  // empty: inherit the test's stderr
    };

    // Throws std::runtime_error when the program can't be started.
    explicit ChildProcess(const Options& options);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // The next line of stdout, without its newline; absent at end of output or when `limit` passes.
    std::optional<std::string> readLine(std::chrono::milliseconds limit);
    // Reads lines until one starts with `prefix`; returns it, or absent at the limit or end of
    // output.
    std::optional<std::string> waitForLine(const std::string& prefix,
                                           std::chrono::milliseconds limit);

    void signal(int signalNumber);
    // The exit status as from waitpid, once the process has ended; absent when `limit` passes.
    std::optional<int> waitForExit(std::chrono::milliseconds limit);
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_ = -1;
    int stdoutFd_ = -1;
    int pidFd_ = -1;
    std::string buffered_;
    std::optional<int> status_;
};

// Whether `program` is found on PATH.
bool onPath(const std::string& program);

}  // namespace corvane::testing
