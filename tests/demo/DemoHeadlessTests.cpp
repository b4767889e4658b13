#include "CorvaneApp/demo/DemoHeadless.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

extern char** environ;

namespace corvane {
namespace {

TEST(DemoShardLogTest, OneLinePerChangeOfTheLiveShard) {
    DemoShardLog log;
    std::vector<std::string> lines;
    for (double s = 0; s < 80; s += 0.5) {
        if (auto line = log.tick(s)) lines.push_back(*line);
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "demo shard shard_demo_live_001 of job_demo_live_900 running, expected 310 s",
                  "demo worker idle between shards",
                  "demo shard shard_demo_live_002 of job_demo_live_901 running, expected 310 s",
                  "demo worker idle between shards",
                  "demo shard shard_demo_live_003 of job_demo_live_902 running, expected 310 s",
              }));
    DemoShardLog quiet;
    EXPECT_EQ(quiet.tick(30), "demo worker idle between shards");  // the first tick always speaks
    EXPECT_FALSE(quiet.tick(31));
}

// The real executable in dummy mode, in an empty home: it logs its shard, holds no socket,
// writes no settings and stops cleanly on SIGTERM.
TEST(DemoHeadlessProcessTest, RunsWithoutNetworkOrSettings) {
    auto home =
        std::filesystem::temp_directory_path() / ("corvane-demo-" + std::to_string(::getpid()));
    std::filesystem::remove_all(home);
    std::filesystem::create_directories(home);
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, pipeFds[1], STDERR_FILENO);
    posix_spawn_file_actions_addclose(&actions, pipeFds[0]);
    std::string homeVar = "HOME=" + home.string();
    std::vector<char*> envp{homeVar.data(), nullptr};
    std::string binary = CORVANE_BINARY;
    std::vector<std::string> args{binary, "--headless", "--data-mode=dummy"};
    std::vector<char*> argv{args[0].data(), args[1].data(), args[2].data(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(posix_spawn(&pid, binary.c_str(), &actions, nullptr, argv.data(), envp.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(pipeFds[1]);

    std::string output;
    char buffer[512];
    while (output.find("demo shard shard_demo_live_001") == std::string::npos) {
        ssize_t n = ::read(pipeFds[0], buffer, sizeof buffer);  // blocks until the child writes
        if (n <= 0) break;
        output.append(buffer, static_cast<size_t>(n));
    }
    EXPECT_NE(output.find("demo shard shard_demo_live_001 of job_demo_live_900 running"),
              std::string::npos)
        << output;

    for (const auto& fd :
         std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code ignored;
        auto target = std::filesystem::read_symlink(fd.path(), ignored).string();
        EXPECT_FALSE(target.starts_with("socket:")) << target;
    }

    ASSERT_EQ(::kill(pid, SIGTERM), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ::close(pipeFds[0]);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_FALSE(std::filesystem::exists(home / ".varnix-compute" / "config.yaml"));
    std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace corvane
