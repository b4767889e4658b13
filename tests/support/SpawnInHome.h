#pragma once
// Starts a program as its owner would, but in a scratch home: HOME and the XDG folders point into
// `home`, and nothing else of this machine's environment goes along (no display, no session bus).

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

namespace corvane::testing {

struct SpawnInHome {
    std::filesystem::path binary;
    std::filesystem::path home;
    std::vector<std::string> arguments;
    std::filesystem::path output;          // the child's stdout
    std::vector<std::string> environment;  // more "NAME=value" entries
    bool quietStderr = false;              // stderr to /dev/null instead of ours

    // The child's process id; throws when it cannot be started.
    pid_t operator()() const {
        std::vector<std::string> env = environment;
        env.insert(env.end(), {"HOME=" + home.string(), "XDG_DATA_HOME=" + (home / "data").string(),
                               "XDG_CONFIG_HOME=" + (home / "config").string(),
                               "XDG_STATE_HOME=" + (home / "state").string(),
                               "XDG_CACHE_HOME=" + (home / "cache").string(),
                               "TMPDIR=" + (home / "tmp").string(), "PATH=/usr/bin:/bin"});
        std::vector<char*> envp;
        for (auto& entry : env) envp.push_back(entry.data());
        envp.push_back(nullptr);
        std::string program = binary.string();
        std::vector<std::string> words = arguments;
        std::vector<char*> argv{program.data()};
        for (auto& word : words) argv.push_back(word.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (quietStderr)
            posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        pid_t pid = -1;
        const int failed =
            posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
        posix_spawn_file_actions_destroy(&actions);
        if (failed) throw std::runtime_error("could not start " + program);
        return pid;
    }
};

}  // namespace corvane::testing
