// How promptly a worker stops: `corvane --headless` in a scratch home runs two long shards at once
// (the coordinator suggests two in flight) on the model of large-v3 turbo's size, and gets
// SIGTERM while both are in their inference stage. Prints the seconds until the process ended
// (target: under 3 s), what the coordinator heard (each shard "worker_shutdown", no result), and
// the worker's RSS while both shards ran.
//
// Usage: shard_stop_bench [--tiny] [--minutes M=60] [--run-for S=8]
//   --tiny      the generated test model instead of the real-size one
//   --minutes   the length of each shard's audio
//   --run-for   seconds of inference before the signal

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

constexpr double kTargetSeconds = 3.0;
constexpr const char* kShutdown =
    "code=worker_shutdown; retryable=true; message=worker stopped while job was in flight";

}  // namespace

int main(int argc, char** argv) {
    using namespace corvane;
    using namespace corvane::bench;
    bool tiny = false;
    double minutes = 60, runFor = 8;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--tiny") {
            tiny = true;
        } else if (option == "--minutes" && i + 1 < argc) {
            minutes = std::max(1.0, std::atof(argv[++i]));
        } else if (option == "--run-for" && i + 1 < argc) {
            runFor = std::max(0.0, std::atof(argv[++i]));
        } else {
            std::fprintf(stderr, "usage: shard_stop_bench [--tiny] [--minutes M] [--run-for S]\n");
            return 2;
        }
    }
    fs::path model = testing::whisperTestModelFile();
    if (!tiny) {
        model = fs::path(CORVANE_WHISPER_REAL_SIZE_MODEL_DIR) / WhisperImpl::defaultModelFilename;
        tools::ensureWhisperTestModel(model, tools::WhisperTestModelShape::largeV3Turbo());
    }

    // A tone the length of a long shard: the encoder's cost does not depend on what is said.
    testing::ScratchFolder audio;
    audio.write("long.wav", testing::wavBytes(testing::sineSamples(minutes * 60, 220, 0.2)));
    dev::DevCoordinator::Options options;
    options.audioDir = audio.path();
    options.suggestedMaxShards = 2;
    options.shards = {{"job-a", "a", "long.wav", std::nullopt, std::nullopt, std::nullopt},
                      {"job-b", "b", "long.wav", std::nullopt, std::nullopt, std::nullopt}};
    dev::DevCoordinator coordinator(options);
    WorkerHome home(coordinator.baseURL(),
                    "idle_detection:\n  min_idle_minutes: 0\n  pause_on_meeting: false\n"
                    "  pause_on_heavy_app: false\n" +
                        weeklySchedule(true));
    home.installModel(model);

    Worker worker(home);
    // Each shard logs its thread choice as its inference begins; the second then waits for the
    // first to let go of the model.
    if (!home.waitForLog("resource_mode=", worker.pid(), 600s, 2)) {
        std::fprintf(stderr, "the two shards did not reach inference; the log:\n%s\n",
                     home.log().c_str());
        return 1;
    }
    long peakKB = 0;
    const auto inference = Clock::now();
    while (Clock::now() - inference < std::chrono::duration<double>(runFor)) {
        peakKB = std::max(peakKB, rssKB(worker.pid()));
        std::this_thread::sleep_for(200ms);
    }
    const std::size_t inFlight = coordinator.results().size() + coordinator.failures().size();
    const auto [took, status] = worker.stop();

    const auto failures = coordinator.failures();
    const auto shutdowns = std::count_if(failures.begin(), failures.end(),
                                         [](const auto& f) { return f.error == kShutdown; });
    std::printf("%s model, two shards of %.0f min each, SIGTERM after %.0f s of inference\n",
                tiny ? "generated test" : "real-size", minutes, runFor);
    std::printf("  process ended %.2f s after SIGTERM with status %d   (target < %.0f s)\n", took,
                status, kTargetSeconds);
    std::printf(
        "  reports: %zu failures, %ld of them \"worker_shutdown\", %zu results (before the "
        "signal: %zu)\n",
        failures.size(), static_cast<long>(shutdowns), coordinator.results().size(), inFlight);
    std::printf("  RSS while both shards ran: peak %.1f MB\n", peakKB / 1024.0);
    // Where the running shard was stopped, by whisper.cpp's own word for it.
    const std::string log = home.log();
    for (const char* phase :
         {"failed to compute log mel spectrogram", "failed to encode", "failed to decode"}) {
        if (log.find(phase) != std::string::npos) std::printf("  whisper.cpp: %s\n", phase);
    }
    const bool ok = took < kTargetSeconds && status == 0 && failures.size() == 2 &&
                    shutdowns == 2 && coordinator.results().empty() && inFlight == 0;
    if (!ok) std::fprintf(stderr, "the worker's log:\n%s\n", log.c_str());
    return ok ? 0 : 3;
}
