#pragma once
// What the process benchmarks share: `corvane --headless` in a scratch home, enrolled against the
// local coordinator with a model where the model cache keeps it, its log, and its RSS and CPU
// time read from /proc. Stopped as a service manager would stop it.

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/models/WhisperImpl.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/SpawnInHome.h"

namespace corvane::bench {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A schedule of seven days with every hour `open` or not.
inline std::string weeklySchedule(bool open) {
    std::string row = "    - [";
    for (int hour = 0; hour < 24; ++hour)
        row += std::string(hour ? ", " : "") + (open ? "true" : "false");
    row += "]\n";
    std::string text = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 7; ++day) text += row;
    return text;
}

// The process's resident set in kB, or -1 once it is gone.
inline long rssKB(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return -1;
}

// User plus system CPU time, in seconds.
inline double cpuSeconds(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(in)), {});
    std::istringstream fields(text.substr(text.rfind(')') + 2));  // the name may hold spaces
    std::string field;
    long ticks = 0;
    for (int index = 3; fields >> field; ++index) {
        if (index == 14 || index == 15) ticks += std::stol(field);
        if (index == 15) break;
    }
    return double(ticks) / double(::sysconf(_SC_CLK_TCK));
}

class WorkerHome {
  public:
    // Enrolled with `coordinatorURL`; `moreConfig` is appended to config.yaml.
    WorkerHome(const std::string& coordinatorURL, const std::string& moreConfig) {
        fs::create_directories(home_.path() / "tmp");
        fs::create_directories(varnix());
        writeFileAtomically(varnix() / "config.yaml",
                            "coordinator_url: \"" + coordinatorURL +
                                "\"\nworker_id: \"worker-bench\"\n" + moreConfig,
                            0600);
        KeychainStore(std::make_shared<FileCredentialBackend>(varnix() / "credentials"))
            .storePythonWorkerToken("dev-token", coordinatorURL, "worker-bench");
    }

    // `model` where the model cache keeps the Whisper weights (a hard link when it can be).
    void installModel(const fs::path& model) const {
        const fs::path dir = home_.path() / "data" / "VarnixCompute" / "models" /
                             "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
        fs::create_directories(dir);
        std::error_code linked;
        fs::create_hard_link(model, dir / WhisperImpl::defaultModelFilename, linked);
        if (linked) fs::copy_file(model, dir / WhisperImpl::defaultModelFilename);
    }

    fs::path varnix() const { return home_.path() / ".varnix-compute"; }
    const fs::path& path() const { return home_.path(); }
    std::string log() const {
        return readFile(home_.path() / "state" / "Corvane" / "logs" / "corvane-app.log")
            .value_or("");
    }
    std::size_t logCount(const std::string& text) const {
        const std::string all = log();
        std::size_t count = 0;
        for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1))
            ++count;
        return count;
    }
    // Looks every 50 ms until `text` is in the log `times` times; false after `limit` or when
    // the process `pid` ended.
    bool waitForLog(const std::string& text, pid_t pid, std::chrono::seconds limit,
                    std::size_t times = 1) const {
        const auto deadline = Clock::now() + limit;
        while (logCount(text) < times) {
            if (Clock::now() > deadline || rssKB(pid) < 0) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return true;
    }

  private:
    testing::ScratchFolder home_;
};

// The worker under measurement; stopped with SIGTERM at the latest when this goes.
class Worker {
  public:
    Worker(const WorkerHome& home, std::vector<std::string> environment = {})
        : pid_(testing::SpawnInHome{CORVANE_BINARY,
                                    home.path(),
                                    {"--headless"},
                                    home.path() / "stdout.txt",
                                    std::move(environment),
                                    true}()) {}
    ~Worker() {
        if (pid_ > 0) stop();
    }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;
    pid_t pid() const { return pid_; }

    // SIGTERM, then the seconds until the process has ended and its exit status.
    std::pair<double, int> stop() {
        const auto sent = Clock::now();
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
        pid_ = -1;
        return {std::chrono::duration<double>(Clock::now() - sent).count(),
                WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
    }

  private:
    pid_t pid_;
};

}  // namespace corvane::bench
