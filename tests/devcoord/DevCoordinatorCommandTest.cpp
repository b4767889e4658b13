// The command-line coordinator as a developer runs it: bad arguments are refused with a reason,
// a good run prints its base URL, serves, and stops cleanly on Ctrl-C.

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "CorvaneApp/platform/Http.h"

namespace {

struct Child {
    pid_t pid = -1;
    int output = -1;  // stdout when `watchStdout`, else stderr
};

Child spawn(const std::vector<std::string>& arguments, bool watchStdout) {
    std::vector<char*> argv;
    std::string binary = DEVCOORD_BINARY;
    argv.push_back(binary.data());
    std::vector<std::string> copies = arguments;
    for (auto& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);
    int pipeFds[2];
    EXPECT_EQ(pipe(pipeFds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], watchStdout ? 1 : 2);
    posix_spawn_file_actions_addopen(&actions, watchStdout ? 2 : 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    Child child;
    EXPECT_EQ(posix_spawn(&child.pid, binary.c_str(), &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(pipeFds[1]);
    child.output = pipeFds[0];
    return child;
}

std::string readAll(int fd, bool untilNewline) {
    std::string text;
    char c = 0;
    while (read(fd, &c, 1) == 1) {
        if (untilNewline && c == '\n') break;
        text += c;
    }
    return text;
}

int exitCode(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DevCoordinatorCommandTest, RefusesBadArgumentsWithAReason) {
    struct Row {
        std::vector<std::string> arguments;
        int code;
        std::string fragment;
    };
    const std::vector<Row> rows = {
        {{"--port", "http"}, 2, "--port: not a valid number: http"},
        {{"--port", "70000"}, 2, "not a valid number"},
        {{"--token"}, 2, "--token needs a value"},
        {{"--verbose", "1"}, 2, "unknown option --verbose"},
        {{"--jobs", "/nonexistent/jobs.json"}, 1, "cannot read /nonexistent/jobs.json"},
    };
    for (const Row& row : rows) {
        Child child = spawn(row.arguments, false);
        std::string errors = readAll(child.output, false);
        close(child.output);
        EXPECT_EQ(exitCode(child.pid), row.code) << errors;
        EXPECT_NE(errors.find(row.fragment), std::string::npos) << errors;
    }
}

TEST(DevCoordinatorCommandTest, PrintsItsURLServesAndStopsOnInterrupt) {
    Child child = spawn({"--port", "0", "--token", "t0k"}, true);
    const std::string url = readAll(child.output, true);
    ASSERT_EQ(url.rfind("http://127.0.0.1:", 0), 0u) << url;
    corvane::http::Request request;
    request.url = url + "/api/v1/workers/poll?max_shards=1";
    request.headers.add("Authorization", "Bearer t0k");
    EXPECT_EQ(corvane::http::Session().send(request).status, 204);
    kill(child.pid, SIGINT);
    EXPECT_EQ(exitCode(child.pid), 0);
    close(child.output);
}

}  // namespace
