// whisper_bench [--real-size] [--rounds N] [--threads T]: on one model, side by side in one run,
//   - the encoder's seconds per 30 s window (whisper_encode of one window, spectrogram made once),
//   - 60 s of speech through WhisperHandler::handle and through bare calls (decode, whisper_full
//     with the handler's parameters, segment texts), alternating so that machine load falls on
//     both alike, as a real-time factor each and their ratio (target: at most 1.02),
// at 1 thread, 2 threads and all processors. The model is the generated test model, or with
// --real-size one of large-v3 turbo's size at q5_0, generated into the build tree when the tool
// first needs it. Also prints the processor, the CPU back-end ggml chose, the load average around
// the run and the RSS with the weights loaded.
//
// Each figure is given as wall time and as the process's CPU time. On a machine others share,
// the wall time of a run grows with their load while its CPU time mostly does not: at one thread
// the CPU time is the better measure of the work (at more, threads that wait for a descheduled
// peer spin, and CPU time grows too).

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneApp/models/AudioPipeline.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WhisperCpuBackend.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Log.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace {

using namespace corvane;
namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr double kSpeechSeconds = 60;

double seconds(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double processCPUSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return double(now.tv_sec) + double(now.tv_nsec) / 1e9;
}

// Wall and CPU seconds of one run.
struct Timing {
    double wall = 0, cpu = 0;
};
Timing timed(const std::function<void()>& work) {
    const double cpu = processCPUSeconds();
    const double wall = seconds(work);
    return {wall, processCPUSeconds() - cpu};
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

// The first line of `file` that starts with `key`, after the key.
std::string lineAfter(const fs::path& file, const std::string& key) {
    std::ifstream in(file);
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with(key)) return line.substr(key.size());
    }
    return "?";
}

double rssMegabytes() {
    return std::stod(lineAfter("/proc/self/status", "VmRSS:")) / 1024.0;
}

// What the handler does around whisper_full, done by hand with the same parameters.
std::string bareTranscription(whisper_context* ctx, const fs::path& audio, int threads) {
    const std::vector<float> pcm = AudioPipeline::decodeTo16kMonoPCM(audio);
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = threads;
    params.translate = false;
    params.no_timestamps = false;
    params.print_special = params.print_progress = params.print_realtime = params.print_timestamps =
        false;
    params.language = "en";
    if (whisper_full(ctx, params, pcm.data(), static_cast<int>(pcm.size())) != 0)
        throw std::runtime_error("whisper_full failed");
    std::string text;
    for (int i = 0; i < whisper_full_n_segments(ctx); ++i)
        text += whisper_full_get_segment_text(ctx, i);
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

fs::path realSizeModel() {
    const fs::path file =
        fs::path(CORVANE_WHISPER_REAL_SIZE_MODEL_DIR) / WhisperImpl::defaultModelFilename;
    bool wrote = false;
    const double took = seconds([&] {
        wrote = tools::ensureWhisperTestModel(file, tools::WhisperTestModelShape::largeV3Turbo());
    });
    const auto real = catalogueEntry(whisperModelIdentifier())->downloadSizeBytes;
    std::printf("real-size model %s: %.1f MB (the real file: %.1f MB)%s\n", file.c_str(),
                double(fs::file_size(file)) / 1e6, double(real) / 1e6,
                wrote ? (" generated in " + std::to_string(took) + " s").c_str() : "");
    return file;
}

struct Row {
    int threads = 1;
    std::vector<Timing> encoder, handler, bare;
};

double median(const std::vector<Timing>& timings, double Timing::*field) {
    std::vector<double> values;
    for (const Timing& t : timings) values.push_back(t.*field);
    return median(values);
}

}  // namespace

int main(int argc, char** argv) {
    bool realSize = false;
    int rounds = 3;
    std::optional<int> onlyThreads;
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        if (option == "--real-size") {
            realSize = true;
        } else if (option == "--rounds" && i + 1 < argc) {
            rounds = std::max(1, std::atoi(argv[++i]));
        } else if (option == "--threads" && i + 1 < argc) {
            onlyThreads = std::max(1, std::atoi(argv[++i]));  // one setting: comparing builds
        } else {
            std::fprintf(stderr, "usage: whisper_bench [--real-size] [--rounds N] [--threads T]\n");
            return 2;
        }
    }
    const unsigned all = std::max(1u, std::thread::hardware_concurrency());
    std::printf("processor: %s; %u logical processors; load average at start: %s\n",
                lineAfter("/proc/cpuinfo", "model name\t: ").c_str(), all,
                lineAfter("/proc/loadavg", "").c_str());
    const fs::path model = realSize ? realSizeModel() : testing::whisperTestModelFile();
    testing::ScratchFolder folder;

    // Exactly 60 s of the spoken text, as 16 kHz 16-bit WAV.
    std::vector<float> speech = AudioPipeline::decodeTo16kMonoPCM(WHISPER_BENCH_SPEECH);
    speech.resize(static_cast<std::size_t>(kSpeechSeconds * 16000), 0.0f);
    const auto audio = folder.write("speech-60s.wav", testing::wavBytes(speech));

    corvane::log::get("WhisperHandler")->set_level(spdlog::level::warn);
    const double rssBefore = rssMegabytes();
    testing::ThreadKnobs knobs;  // away at 100 %: as many threads as knobs.cpuCount
    WhisperHandler::Options options;
    options.impl.threadInputs = knobs.inputs();
    WhisperHandler handler(model.parent_path(), ChipTier::t1, std::move(options));
    const double rssLoaded = rssMegabytes();
    std::printf("CPU back-end: %s; RSS %.1f MB before the model, %.1f MB with its weights\n",
                loadWhisperCpuBackend().filename().c_str(), rssBefore, rssLoaded);

    std::unique_ptr<whisper_context, void (*)(whisper_context*)> bare(
        whisper_init_from_file_with_params(model.c_str(), whisper_context_default_params()),
        whisper_free);
    if (!bare) return 1;
    // One window's spectrogram, made once: only the encoder is timed.
    std::unique_ptr<whisper_state, void (*)(whisper_state*)> window(whisper_init_state(bare.get()),
                                                                    whisper_free_state);
    whisper_pcm_to_mel_with_state(bare.get(), window.get(), speech.data(), 30 * 16000,
                                  static_cast<int>(all));

    const ClaimedJob job{"bench",
                         "s",
                         ModelCategory::transcription,
                         WhisperHandler::identifier(),
                         audio.string(),
                         systemNow(),
                         {}};
    std::vector<Row> rows;
    for (int threads : {1, 2, static_cast<int>(all)}) {
        if (onlyThreads && threads != *onlyThreads) continue;
        if (std::any_of(rows.begin(), rows.end(),
                        [&](const Row& r) { return r.threads == threads; }))
            continue;  // "all" is 2 on a two-processor machine
        Row row{threads, {}, {}, {}};
        knobs.cpuCount = threads;
        std::string handlerText, bareText;
        for (int round = 0; round < rounds; ++round) {
            row.encoder.push_back(timed([&] {
                if (whisper_encode_with_state(bare.get(), window.get(), 0, threads) != 0)
                    throw std::runtime_error("whisper_encode failed");
            }));
            auto runHandler = [&] {
                row.handler.push_back(timed(
                    [&] { handlerText = handler.handle(job, {}, {}).output.transcript()->text; }));
            };
            auto runBare = [&] {
                row.bare.push_back(
                    timed([&] { bareText = bareTranscription(bare.get(), audio, threads); }));
            };
            if (round % 2) {
                runBare();
                runHandler();
            } else {
                runHandler();
                runBare();
            }
        }
        if (handlerText != bareText) {
            std::fprintf(stderr,
                         "different transcripts at %d threads:\n  handler: %s\n  bare:    %s\n",
                         threads, handlerText.c_str(), bareText.c_str());
            return 1;
        }
        rows.push_back(std::move(row));
        std::printf("  done: %d thread(s)\n", threads);
        std::fflush(stdout);
    }

    std::printf(
        "\n%s model, %.0f s of speech, %d rounds each, medians; RTF = seconds of work per "
        "second of audio; wall | CPU seconds\n",
        realSize ? "real-size" : "generated test", kSpeechSeconds, rounds);
    std::printf(
        "threads  encoder s/window   handler s (RTF)               bare s (RTF)        "
        "          handler/bare wall | CPU (target <= 1.02)\n");
    for (const Row& row : rows) {
        // Each round's two runs are neighbours in time, so their ratio is the least disturbed.
        std::vector<double> wallRatios, cpuRatios;
        for (std::size_t i = 0; i < row.handler.size(); ++i) {
            wallRatios.push_back(row.handler[i].wall / row.bare[i].wall);
            cpuRatios.push_back(row.handler[i].cpu / row.bare[i].cpu);
        }
        const double hw = median(row.handler, &Timing::wall),
                     hc = median(row.handler, &Timing::cpu);
        const double bw = median(row.bare, &Timing::wall), bc = median(row.bare, &Timing::cpu);
        std::printf(
            "%-8d %7.3f | %-8.3f %7.2f (%.3f) | %7.2f (%.3f)  %7.2f (%.3f) | %7.2f (%.3f)  "
            "%.4f | %.4f\n",
            row.threads, median(row.encoder, &Timing::wall), median(row.encoder, &Timing::cpu), hw,
            hw / kSpeechSeconds, hc, hc / kSpeechSeconds, bw, bw / kSpeechSeconds, bc,
            bc / kSpeechSeconds, median(wallRatios), median(cpuRatios));
    }
    std::printf("peak RSS of the process (handler and bare context both loaded): %.1f MB\n", [] {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        return double(usage.ru_maxrss) / 1024.0;
    }());
    std::printf("load average at the end: %s\n", lineAfter("/proc/loadavg", "").c_str());
    return 0;
}
