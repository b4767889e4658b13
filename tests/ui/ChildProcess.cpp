#include "tests/ui/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char** environ;

namespace corvane::testing {
namespace {

using Clock = std::chrono::steady_clock;

int remainingMs(Clock::time_point deadline) {
    auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left <= 0 ? 0 : static_cast<int>(left);
}

std::vector<std::string> environmentFor(const ChildProcess::Options& options) {
    std::map<std::string, std::string> merged;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        std::string text(*entry);
        auto equals = text.find('=');
        if (equals != std::string::npos) merged[text.substr(0, equals)] = text.substr(equals + 1);
    }
    for (const auto& name : options.unsetEnvironment) merged.erase(name);
    for (const auto& [name, value] : options.setEnvironment) merged[name] = value;
    std::vector<std::string> result;
    for (const auto& [name, value] : merged) result.push_back(name + "=" + value);
    return result;
}

}  // namespace

ChildProcess::ChildProcess(const Options& options) {
    if (options.arguments.empty()) throw std::runtime_error("no program to start");
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("pipe failed");

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (!options.stderrFile.empty()) {
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, options.stderrFile.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
    }
    auto environment = environmentFor(options);
    std::vector<char*> argv, envp;
    for (const auto& argument : options.arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    for (auto& entry : environment) envp.push_back(entry.data());
    envp.push_back(nullptr);

    // The child starts in its own process group, so that a test's Ctrl-C doesn't reach it twice.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    const int error =
        ::posix_spawnp(&pid_, argv[0], &actions, &attributes, argv.data(), envp.data());
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (error != 0) {
        ::close(out[0]);
        pid_ = -1;
        throw std::runtime_error("could not start " + options.arguments[0] + ": " +
                                 std::strerror(error));
    }
    stdoutFd_ = out[0];
    pidFd_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !status_) {
        ::kill(pid_, SIGKILL);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
    if (stdoutFd_ >= 0) ::close(stdoutFd_);
    if (pidFd_ >= 0) ::close(pidFd_);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    for (;;) {
        if (auto newline = buffered_.find('\n'); newline != std::string::npos) {
            std::string line = buffered_.substr(0, newline);
            buffered_.erase(0, newline + 1);
            return line;
        }
        if (stdoutFd_ < 0) return std::nullopt;
        pollfd ready{stdoutFd_, POLLIN, 0};
        const int polled = ::poll(&ready, 1, remainingMs(deadline));
        if (polled < 0 && errno == EINTR) continue;
        if (polled <= 0) return std::nullopt;
        char chunk[4096];
        const auto got = ::read(stdoutFd_, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            ::close(stdoutFd_);
            stdoutFd_ = -1;
            continue;
        }
        buffered_.append(chunk, static_cast<std::size_t>(got));
    }
}

std::optional<std::string> ChildProcess::waitForLine(const std::string& prefix,
                                                     std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (auto line = readLine(std::chrono::milliseconds(remainingMs(deadline)))) {
        if (line->rfind(prefix, 0) == 0) return line;
    }
    return std::nullopt;
}

void ChildProcess::signal(int signalNumber) {
    if (pid_ > 0 && !status_) ::kill(pid_, signalNumber);
}

std::optional<int> ChildProcess::waitForExit(std::chrono::milliseconds limit) {
    if (status_) return status_;
    if (pidFd_ >= 0) {
        pollfd exited{pidFd_, POLLIN, 0};
        int polled;
        do {
            polled = ::poll(&exited, 1, static_cast<int>(limit.count()));
        } while (polled < 0 && errno == EINTR);
        if (polled == 0) return std::nullopt;
    }
    int status = 0;
    if (::waitpid(pid_, &status, pidFd_ >= 0 ? 0 : WNOHANG) == pid_) status_ = status;
    return status_;
}

bool onPath(const std::string& program) {
    const char* path = std::getenv("PATH");
    if (path == nullptr) return false;
    std::string all(path);
    std::size_t start = 0;
    while (start <= all.size()) {
        auto end = all.find(':', start);
        if (end == std::string::npos) end = all.size();
        auto candidate = std::filesystem::path(all.substr(start, end - start)) / program;
        if (::access(candidate.c_str(), X_OK) == 0) return true;
        start = end + 1;
    }
    return false;
}

}  // namespace corvane::testing
