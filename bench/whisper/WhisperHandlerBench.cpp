// whisper_bench [rounds]: the same 60 s of speech through WhisperHandler::handle and through bare
// calls (decode, whisper_full with the handler's parameters, segment texts) on the generated
// model, alternating in one run so that machine load falls on both alike. Prints the median and
// best of each, their ratios (target: at most 1.02), and the peak RSS of the handler alone.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneApp/models/AudioPipeline.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "CorvaneApp/models/WhisperLogRouting.h"
#include "CorvaneApp/platform/Log.h"
#include "tests/support/WhisperFixtures.h"

namespace {

using namespace corvane;
using Clock = std::chrono::steady_clock;

constexpr int kThreads = 2;

double seconds(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const std::size_t n = values.size();
    return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

double peakRSSMegabytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss) / 1024.0;  // kilobytes on Linux
}

// What the handler does around whisper_full, done by hand with the same parameters.
std::string bareTranscription(whisper_context* ctx, const std::filesystem::path& audio) {
    const std::vector<float> pcm = AudioPipeline::decodeTo16kMonoPCM(audio);
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = kThreads;
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
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::max(1, std::atoi(argv[1])) : 7;
    testing::ScratchFolder folder;

    // Exactly 60 s of the spoken text, as 16 kHz 16-bit WAV.
    std::vector<float> speech = AudioPipeline::decodeTo16kMonoPCM(WHISPER_BENCH_SPEECH);
    speech.resize(60 * 16000, 0.0f);
    const auto audio = folder.write("speech-60s.wav", testing::wavBytes(speech));

    // The handler alone first, so that its peak RSS is its own.
    testing::ThreadKnobs knobs;  // away, 100 % of 2 processors: 2 threads, as the bare calls use
    knobs.cpuCount = kThreads;
    WhisperHandler::Options options;
    options.impl.threadInputs = knobs.inputs();
    auto handler = std::make_unique<WhisperHandler>(testing::whisperTestModelDirectory(),
                                                    ChipTier::t1, std::move(options));
    corvane::log::get("WhisperHandler")->set_level(spdlog::level::warn);
    const ClaimedJob job{"bench",
                         "s",
                         ModelCategory::transcription,
                         WhisperHandler::identifier(),
                         audio.string(),
                         systemNow(),
                         {}};
    std::string handlerText;
    const double handlerFirst =
        seconds([&] { handlerText = handler->handle(job, {}, {}).output.transcript()->text; });
    const double handlerRSS = peakRSSMegabytes();

    routeWhisperLogs();
    std::unique_ptr<whisper_context, void (*)(whisper_context*)> bare(
        whisper_init_from_file_with_params(testing::whisperTestModelFile().c_str(),
                                           whisper_context_default_params()),
        whisper_free);
    if (!bare) return 1;
    std::string bareText;
    const double bareFirst = seconds([&] { bareText = bareTranscription(bare.get(), audio); });

    std::vector<double> handlerTimes, bareTimes;
    for (int round = 0; round < rounds; ++round) {
        auto runHandler = [&] {
            handlerTimes.push_back(seconds([&] { handler->handle(job, {}, {}); }));
        };
        auto runBare = [&] {
            bareTimes.push_back(seconds([&] { bareTranscription(bare.get(), audio); }));
        };
        if (round % 2) {
            runBare();
            runHandler();
        } else {
            runHandler();
            runBare();
        }
    }

    // The handler trims what the bare calls leave as whisper.cpp wrote it.
    const auto start = bareText.find_first_not_of(" \t\r\n");
    const auto end = bareText.find_last_not_of(" \t\r\n");
    const bool sameText =
        start != std::string::npos && handlerText == bareText.substr(start, end - start + 1);
    std::printf(
        "60 s of speech, generated model, %d threads, %d rounds (first runs: handler %.3f s, bare "
        "%.3f s)\n",
        kThreads, rounds, handlerFirst, bareFirst);
    std::printf("handler: median %.3f s, best %.3f s\n", median(handlerTimes),
                *std::min_element(handlerTimes.begin(), handlerTimes.end()));
    std::printf("bare:    median %.3f s, best %.3f s\n", median(bareTimes),
                *std::min_element(bareTimes.begin(), bareTimes.end()));
    // Each round's two runs are neighbours in time, so their ratio is the least disturbed by load.
    std::vector<double> pairRatios;
    for (std::size_t i = 0; i < handlerTimes.size(); ++i)
        pairRatios.push_back(handlerTimes[i] / bareTimes[i]);
    std::printf(
        "ratio handler/bare: median of rounds %.4f, of medians %.4f, of bests %.4f (target <= "
        "1.02)\n",
        median(pairRatios), median(handlerTimes) / median(bareTimes),
        *std::min_element(handlerTimes.begin(), handlerTimes.end()) /
            *std::min_element(bareTimes.begin(), bareTimes.end()));
    std::printf("peak RSS of the handler with the generated model: %.1f MB\n", handlerRSS);
    std::printf("same transcript: %s\n", sameText ? "yes" : "NO");
    return sameText ? 0 : 1;
}
