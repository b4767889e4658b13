#include "CorvaneApp/platform/Subprocess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace corvane {

SubprocessResult runSubprocess(const std::vector<std::string>& arguments) {
    SubprocessResult result;
    if (arguments.empty()) return result;
    int pipeFds[2];
    if (::pipe2(pipeFds, O_CLOEXEC) != 0) return result;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<std::string> words = arguments;
    std::vector<char*> argv;
    for (auto& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int failed = ::posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);
    if (failed == 0) {
        char buffer[4096];
        for (;;) {
            const ssize_t got = ::read(pipeFds[0], buffer, sizeof buffer);
            if (got > 0) {
                result.output.append(buffer, std::size_t(got));
            } else if (got == 0 || errno != EINTR) {
                break;
            }
        }
    }
    ::close(pipeFds[0]);
    if (failed != 0) return result;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    return result;
}

}  // namespace corvane
