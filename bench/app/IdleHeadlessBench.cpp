// What an idle worker costs its owner: `corvane --headless` in a scratch home, enrolled against the
// local coordinator, the generated model loaded, and every hour of the week switched off in its
// schedule so it stays paused. Samples the process's RSS every second and its CPU time over the
// window. Usage: idle_headless_bench [seconds=60]

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/SpawnInHome.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double kTargetRssMB = 60.0;
constexpr double kTargetCorePercent = 0.2;

// The schedule of a worker that may never run.
std::string neverScheduled() {
    std::string row = "    - [";
    for (int hour = 0; hour < 24; ++hour) row += hour ? ", false" : "false";
    row += "]\n";
    std::string text = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 7; ++day) text += row;
    return text;
}

// The process's resident set in kB, or -1 once it is gone.
long rssKB(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("VmRSS:")) return std::stol(line.substr(6));
    }
    return -1;
}

// User plus system CPU time, in seconds.
double cpuSeconds(pid_t pid) {
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

// The worker under measurement; stopped as a service manager would stop it.
class Child {
  public:
    Child(const fs::path& home, const fs::path& output)
        : pid_(corvane::testing::SpawnInHome{
              CORVANE_BINARY, home, {"--headless"}, output, {}, true}()) {}
    ~Child() {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    pid_t pid() const { return pid_; }

  private:
    pid_t pid_;
};

}  // namespace

int main(int argc, char** argv) {
    using namespace corvane;
    const int seconds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 60;
    testing::ScratchFolder home;
    corvane::dev::DevCoordinator coordinator({});
    const fs::path varnix = home.path() / ".varnix-compute";
    fs::create_directories(home.path() / "tmp");
    fs::create_directories(varnix);
    writeFileAtomically(varnix / "config.yaml",
                        "coordinator_url: \"" + coordinator.baseURL() +
                            "\"\nworker_id: \"worker-idle\"\n" + neverScheduled(),
                        0600);
    KeychainStore(std::make_shared<FileCredentialBackend>(varnix / "credentials"))
        .storePythonWorkerToken("dev-token", coordinator.baseURL(), "worker-idle");
    const fs::path models = home.path() / "data" / "VarnixCompute" / "models" /
                            "whisper-cpp-swift--whisper-large-v3-turbo-q4--1";
    fs::create_directories(models);
    fs::copy_file(testing::whisperTestModelFile(), models / WhisperImpl::defaultModelFilename);

    const fs::path log = home.path() / "state" / "Corvane" / "logs" / "corvane-app.log";
    Child child(home.path(), home.path() / "stdout.txt");
    const auto started = Clock::now();
    while (readFile(log).value_or("").find("worker bridge started") == std::string::npos) {
        if (Clock::now() - started > 120s || rssKB(child.pid()) < 0) {
            std::fprintf(stderr, "the worker did not start; its log:\n%s\n",
                         readFile(log).value_or("(none)").c_str());
            return 1;
        }
        std::this_thread::sleep_for(100ms);
    }
    std::this_thread::sleep_for(3s);  // past start-up's one-off work

    // The worker's own traffic; the account refresh a minute apart is the app model's, not work.
    auto workRequests = [&coordinator] {
        std::size_t count = 0;
        for (const auto& request : coordinator.requests()) {
            if (request.path.starts_with("/api/v1/workers/poll") ||
                request.path.starts_with("/api/v1/jobs/"))
                ++count;
        }
        return count;
    };
    const auto pollsBefore = workRequests();
    const double cpuBefore = cpuSeconds(child.pid());
    const auto windowStart = Clock::now();
    long peakKB = 0, lastKB = 0;
    for (int second = 0; second < seconds; ++second) {
        lastKB = rssKB(child.pid());
        if (lastKB < 0) {
            std::fprintf(stderr, "the worker ended during the window\n");
            return 1;
        }
        peakKB = std::max(peakKB, lastKB);
        std::this_thread::sleep_until(windowStart + std::chrono::seconds(second + 1));
    }
    const double wall = std::chrono::duration<double>(Clock::now() - windowStart).count();
    const double corePercent = 100.0 * (cpuSeconds(child.pid()) - cpuBefore) / wall;
    const auto requests = workRequests() - pollsBefore;
    const auto logText = readFile(log).value_or("");
    if (logText.find("WorkerController.runLoop paused: ineligible") == std::string::npos ||
        requests != 0) {
        std::fprintf(stderr, "the worker was not paused by its schedule; its log:\n%s\n",
                     logText.c_str());
        return 1;
    }

    std::printf("idle headless worker, paused by its schedule, over %.0f s\n", wall);
    std::printf("  RSS  last %.1f MB, peak %.1f MB   (target < %.0f MB)\n", lastKB / 1024.0,
                peakKB / 1024.0, kTargetRssMB);
    std::printf("  CPU  %.3f%% of one core            (target < %.1f%%)\n", corePercent,
                kTargetCorePercent);
    return peakKB / 1024.0 < kTargetRssMB && corePercent < kTargetCorePercent ? 0 : 3;
}
