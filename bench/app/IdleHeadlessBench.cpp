// What an idle worker costs its owner: `corvane --headless` in a scratch home, enrolled against the
// local coordinator, a model loaded, and every hour of the week switched off in its schedule so
// that it stays paused. Samples the process's RSS every second and its CPU time over the window.
//
// Usage: idle_headless_bench [seconds=60] [--real-size] [--release-after SECONDS]
//   --real-size          the model of large-v3 turbo's size (generated into the build tree when
//                        first needed) instead of the tiny test model
//   --release-after S    the worker frees the weights after S seconds paused instead of its
//                        default ten minutes (CORVANE_MODEL_RELEASE_SECONDS)
// Prints the RSS with the weights loaded (peak) and at the end of the window (last): once the
// weights are released, the last one is the idle worker's, target < 80 MB. With the weights held
// (a window shorter than the release delay) the target is the old one of the tiny model, < 60 MB.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "bench/app/WorkerHome.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/dev-coordinator/DevCoordinator.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace {

using namespace std::chrono_literals;

constexpr double kLoadedTargetRssMB = 60.0;    // the tiny model's weights held
constexpr double kReleasedTargetRssMB = 80.0;  // no weights held, whichever model
constexpr double kTargetCorePercent = 0.2;

}  // namespace

int main(int argc, char** argv) {
    using namespace corvane;
    using namespace corvane::bench;
    int seconds = 60;
    bool realSize = false;
    std::optional<double> releaseAfter;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--real-size") {
            realSize = true;
        } else if (option == "--release-after" && i + 1 < argc) {
            releaseAfter = std::atof(argv[++i]);
        } else if (std::atoi(argv[i]) > 0) {
            seconds = std::atoi(argv[i]);
        } else {
            std::fprintf(
                stderr, "usage: idle_headless_bench [seconds] [--real-size] [--release-after S]\n");
            return 2;
        }
    }
    fs::path model = testing::whisperTestModelFile();
    if (realSize) {
        model = fs::path(CORVANE_WHISPER_REAL_SIZE_MODEL_DIR) / WhisperImpl::defaultModelFilename;
        tools::ensureWhisperTestModel(model, tools::WhisperTestModelShape::largeV3Turbo());
    }

    dev::DevCoordinator coordinator({});
    WorkerHome home(coordinator.baseURL(), weeklySchedule(false));
    home.installModel(model);
    std::vector<std::string> environment;
    if (releaseAfter)
        environment.push_back("CORVANE_MODEL_RELEASE_SECONDS=" + std::to_string(*releaseAfter));
    Worker worker(home, environment);
    if (!home.waitForLog("worker bridge started", worker.pid(), 300s)) {
        std::fprintf(stderr, "the worker did not start; its log:\n%s\n", home.log().c_str());
        return 1;
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
    const double cpuBefore = cpuSeconds(worker.pid());
    const auto windowStart = Clock::now();
    long peakKB = 0, lastKB = 0;
    for (int second = 0; second < seconds; ++second) {
        lastKB = rssKB(worker.pid());
        if (lastKB < 0) {
            std::fprintf(stderr, "the worker ended during the window\n");
            return 1;
        }
        peakKB = std::max(peakKB, lastKB);
        std::this_thread::sleep_until(windowStart + std::chrono::seconds(second + 1));
    }
    const double wall = std::chrono::duration<double>(Clock::now() - windowStart).count();
    const double corePercent = 100.0 * (cpuSeconds(worker.pid()) - cpuBefore) / wall;
    const auto requests = workRequests() - pollsBefore;
    const std::string log = home.log();
    if (log.find("WorkerController.runLoop paused: ineligible") == std::string::npos ||
        requests != 0) {
        std::fprintf(stderr, "the worker was not paused by its schedule; its log:\n%s\n",
                     log.c_str());
        return 1;
    }
    const bool released = log.find("Whisper weights released") != std::string::npos;

    std::printf(
        "idle headless worker, %s model, paused by its schedule, over %.0f s; weights "
        "released after %.0f s paused: %s\n",
        realSize ? "real-size" : "generated test", wall, releaseAfter.value_or(600),
        released ? "yes" : "not yet");
    const double targetMB = released ? kReleasedTargetRssMB : kLoadedTargetRssMB;
    std::printf(
        "  RSS  peak %.1f MB (weights held), last %.1f MB   (target for the last < %.0f MB)\n",
        peakKB / 1024.0, lastKB / 1024.0, targetMB);
    std::printf("  CPU  %.3f%% of one core            (target < %.1f%%)\n", corePercent,
                kTargetCorePercent);
    return lastKB / 1024.0 < targetMB && corePercent < kTargetCorePercent ? 0 : 3;
}
