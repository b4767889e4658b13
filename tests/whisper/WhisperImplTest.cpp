// WhisperImpl on the generated model: threads, what reaches whisper_full, library and file
// failures.

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <atomic>
#include <cstring>
#include <stdexcept>

#include <whisper.h>

#include "CorvaneApp/models/WhisperCpuBackend.h"
#include "CorvaneApp/models/WhisperModelFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace corvane::testing {
namespace {

// Allocations made while it lives are not reported as leaks (under AddressSanitizer).
struct LeakCheckPause {
#if defined(__SANITIZE_ADDRESS__)
    LeakCheckPause() {
        __lsan_disable();
    }
    ~LeakCheckPause() {
        __lsan_enable();
    }
#endif
};

class WhisperImplTest : public ::testing::Test {
  protected:
    std::unique_ptr<WhisperImpl> load(WhisperImpl::FullFunction full = {}) {
        return std::make_unique<WhisperImpl>(whisperTestModelFile(),
                                             knobs.options(std::move(full)));
    }
    ThreadKnobs knobs;
};

TEST_F(WhisperImplTest, ModeCeilingAndRuntimePercentDecideTheThreadsAndAreLogged) {
    auto impl = load();
    const struct {
        WhisperThreadInputs::Settings settings;
        std::optional<double> idleSeconds;
        std::optional<std::int64_t> runtime;
        std::int64_t cpus;
        const char* mode;
        std::int64_t user, effective, threads;
    } rows[] = {
        {{5, 50, 100}, 299, {}, 8, "in_use", 50, 50, 4},
        {{5, 50, 100}, 300, {}, 8, "away", 100, 100, 8},  // at the threshold it is away
        {{-3, 50, 100}, {}, {}, 8, "away", 100, 100, 8},  // no threshold (or a negative one):
                                                          // always away
        {{5, 50, 100}, {}, {}, 8, "in_use", 50, 50, 4},   // no idle reading: not idle
        {{5, 50, 100}, 600, 25, 10, "away", 100, 25, 3},  // the daemon's percentage wins
        {{5, 49.5, 100}, 1, {}, 8, "in_use", 50, 50, 4},  // ceilings are rounded half away from
                                                          // zero
        {{0, 50, 150}, {}, {}, 8, "away", 150, 150, 8},  // threads: never more than the processors,
        {{0, 50, 74}, {}, {}, 2, "away", 74, 74, 1},     // rounded to the nearest,
        {{0, 50, 0}, {}, {}, 0, "away", 0, 0, 1},        // and at least one
    };
    for (const auto& row : rows) {
        knobs.settings = row.settings;
        knobs.idleSeconds = row.idleSeconds;
        knobs.runtimePercent = row.runtime;
        knobs.cpuCount = row.cpus;
        LogCapture logs;
        const WhisperThreadSelection s = impl->currentThreadCount();
        EXPECT_EQ(s.resourceMode, row.mode)
            << row.settings.idleMinutes << " min, " << row.idleSeconds.value_or(-1) << " s";
        EXPECT_EQ(std::tie(s.userPercent, s.effectivePercent, s.threads),
                  std::tie(row.user, row.effective, row.threads));

        // Two lines tied by one nonce.
        const auto lines = logs.lines();
        ASSERT_EQ(lines.size(), 2u);
        const std::string head = "WhisperHandler info: whisper_thread_select nonce=";
        const std::string nonce = lines[0].substr(head.size(), 8);
        EXPECT_EQ(lines[0], head + nonce + " threads=" + std::to_string(row.threads) +
                                " effective_percent=" + std::to_string(row.effective) +
                                " user_percent=" + std::to_string(row.user));
        EXPECT_EQ(lines[1], head + nonce + " cpu_count=" + std::to_string(row.cpus) +
                                " resource_mode=" + row.mode);
    }
}

TEST_F(WhisperImplTest, WhisperGetsTheSamplesUncopiedInEnglishAndRunTakesOnly16kAudio) {
    whisper_full_params seen{};
    const float* seenSamples = nullptr;
    auto impl = load([&](whisper_context* ctx, whisper_state* state, whisper_full_params params,
                         const float* samples, int count) {
        seen = params;
        seenSamples = samples;
        return whisper_full_with_state(ctx, state, params, samples, count);
    });
    knobs.settings.awayCpuCeiling = 50;
    knobs.cpuCount = 4;
    const std::vector<float> pcm = sineSamples(3);
    EXPECT_FALSE(impl->transcribe(pcm).empty());

    EXPECT_EQ(seenSamples, pcm.data());
    EXPECT_EQ(seen.strategy, WHISPER_SAMPLING_GREEDY);
    EXPECT_EQ(seen.n_threads, 2);
    EXPECT_STREQ(seen.language, "en");
    EXPECT_FALSE(seen.detect_language || seen.translate || seen.no_timestamps);

    // The generic entry takes only 16 kHz audio.
    EXPECT_EQ(modelErrorOf([&] {
                  impl->run({ModelInput::ImagePrompt{"a cat", {}}});
              }),
              R"(invalidInput(reason: "WhisperImpl requires .audio input"))");
    EXPECT_EQ(modelErrorOf([&] {
                  impl->run({ModelInput::Audio{sineSamples(1), 44100}});
              }),
              R"(invalidInput(reason: "WhisperImpl requires 16 kHz input, got 44100"))");
    EXPECT_EQ(modelErrorOf([&] {
                  impl->run({ModelInput::Audio{{}, 16000}});
              }),
              R"(invalidInput(reason: "empty PCM input"))");
    const std::string text =
        impl->run({ModelInput::Audio{sineSamples(4), 16000}}).transcript()->text;
    ASSERT_FALSE(text.empty());
    EXPECT_NE(text.front(), ' ');  // segments are joined and trimmed
}

TEST_F(WhisperImplTest, FailuresInsideWhisperAreBackendCrashedAndTheContextServesOn) {
    int call = 0;
    std::stop_source stopping;
    auto impl = load([&](whisper_context* ctx, whisper_state* state, whisper_full_params params,
                         const float* samples, int count) {
        if (++call == 1)
            params.abort_callback = [](void*) { return true; };  // the spectrogram then fails
        if (call == 2) throw std::out_of_range("map::at");       // C++ through the C interface
        if (call == 4) stopping.request_stop();                  // the worker stops mid-run
        return whisper_full_with_state(ctx, state, params, samples, count);
    });
    const std::vector<float> pcm = sineSamples(2);
    EXPECT_EQ(modelErrorOf([&] { impl->transcribe(pcm); }),
              "backendCrashed(underlying: inferenceFailed(status: -2))");
    EXPECT_EQ(modelErrorOf([&] { impl->transcribe(pcm); }), "backendCrashed(underlying: map::at)");
    EXPECT_FALSE(impl->transcribe(pcm).empty());
    EXPECT_EQ(modelErrorOf([&] { impl->transcribe(pcm, stopping.get_token()); }),
              "backendCrashed(underlying: inference cancelled)");
    EXPECT_FALSE(impl->transcribe(pcm).empty());
}

// The file check names what is wrong before whisper.cpp sees a file it would divide by zero on,
// assert on, or read past; the model then fails to load with a ModelError and that name logged.
TEST_F(WhisperImplTest, ModelFilesThatCannotLoadAreModelErrorsWithTheirProblemLogged) {
    ScratchFolder folder;
    const std::string model = tools::makeWhisperTestModel({});
    auto withHeaderField = [&](int index, std::int32_t value) {
        std::string bytes = model;
        std::memcpy(bytes.data() + 4 + 4 * index, &value, 4);
        return bytes;
    };
    // The first tensor header follows the vocabulary: n_dims, name length, type, ne0, ne1, name.
    std::string nineDims = model;
    const std::int32_t dims = 9;
    std::memcpy(nineDims.data() + nineDims.find("encoder.positional_embedding") - 20, &dims, 4);
    const std::pair<std::string, std::string> rows[] = {
        {"", "not a ggml model (bad magic)"},
        {model.substr(0, 30), "file ends inside the header"},
        {model.substr(0, 100'000), "file ends inside the vocabulary"},
        {model.substr(0, model.size() - 10),
         "file ends inside tensor decoder.ln.bias"},  // whisper.cpp would take it
        {nineDims, "tensor with 9 dimensions"},
        {withHeaderField(3, 0), "n_audio_head of 0 is out of range"},
        {withHeaderField(7, 3), "a width does not divide by its heads"},
        {withHeaderField(10, 99), "unknown weight type 99"},
        {withHeaderField(9, 128), "mel filters do not fit the model"},
    };
    for (const auto& [bytes, problem] : rows) {
        const auto path = folder.write("model.bin", bytes);
        EXPECT_EQ(WhisperModelFile::problem(path), problem);
        LogCapture logs;
        EXPECT_EQ(modelErrorOf([&] { WhisperImpl(path, knobs.options()); }),
                  "backendCrashed(underlying: contextInitFailed)");
        EXPECT_TRUE(logs.contains("is not a whole whisper model: " + problem)) << problem;
    }

    // A file only whisper.cpp itself can refuse. The library keeps the weights it read then: its
    // leak, kept out of the leak check.
    std::string renamed = model;
    renamed.replace(renamed.rfind("decoder.ln.bias"), 15, "decoder.ln.bian");
    const auto path = folder.write("renamed", renamed);
    LogCapture logs;
    {
        [[maybe_unused]] LeakCheckPause pause;
        EXPECT_EQ(modelErrorOf([&] { WhisperImpl(path, knobs.options()); }),
                  "backendCrashed(underlying: contextInitFailed)");
    }
    EXPECT_TRUE(logs.contains(
        "WhisperHandler error: whisper_init_from_file_with_params returned NULL for " +
        path.string()));
    EXPECT_TRUE(
        logs.contains("whisper.cpp error: whisper_model_load: unknown tensor 'decoder.ln.bian'"));
}

// A stopping worker must not wait for a phase of the run to end: the spectrogram of all the audio
// (seconds for an hour of it) or the window being encoded (seconds at the real model's size). The
// stop is checked inside both, so a stop asked for at their start ends the run there.
TEST_F(WhisperImplTest, AStopLandsInsideTheSpectrogramAndInsideTheEncoderWindow) {
    loadWhisperCpuBackend();
    std::unique_ptr<whisper_context, void (*)(whisper_context*)> ctx(
        whisper_init_from_file_with_params(whisperTestModelFile().c_str(),
                                           whisper_context_default_params()),
        whisper_free);
    ASSERT_TRUE(ctx);
    const std::vector<float> pcm = sineSamples(3);
    std::atomic<bool> stop = false;
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = 2;
    params.language = "en";
    params.abort_callback = [](void* flag) {
        return static_cast<std::atomic<bool>*>(flag)->load();
    };
    params.abort_callback_user_data = &stop;
    auto run = [&] {
        return whisper_full(ctx.get(), params, pcm.data(), static_cast<int>(pcm.size()));
    };

    stop = true;  // before the spectrogram's first frame
    EXPECT_EQ(run(), -2) << "the spectrogram stops; no window is encoded";

    stop = false;
    params.encoder_begin_callback = [](whisper_context*, whisper_state*, void* flag) {
        static_cast<std::atomic<bool>*>(flag)->store(true);  // asked for as the window begins
        return true;
    };
    params.encoder_begin_callback_user_data = &stop;
    EXPECT_EQ(run(), -6);
    const std::unique_ptr<whisper_timings> timings(whisper_get_timings(ctx.get()));
    EXPECT_EQ(timings->encode_ms, 0.0f) << "no window was encoded to its end";
}

// The generator's quantised weights (what the real-size model is made of), on a small shape.
TEST_F(WhisperImplTest, AGeneratedModelQuantisedToQ5_0LoadsAndTranscribes) {
    ScratchFolder folder;
    tools::WhisperTestModelShape shape;
    shape.weights = tools::WhisperWeightType::q5_0;
    const std::string bytes = tools::makeWhisperTestModel(shape);
    std::int32_t ftype = 0;
    std::memcpy(&ftype, bytes.data() + 4 + 4 * 10, 4);
    EXPECT_EQ(ftype, 2008) << "q5_0 (8) of quantisation version 2, as whisper.cpp writes it";
    EXPECT_LT(bytes.size(), tools::makeWhisperTestModel({}).size()) << "smaller than f16";
    const auto path = folder.write("q5_0.bin", bytes);
    EXPECT_EQ(WhisperModelFile::problem(path), std::nullopt);
    WhisperImpl impl(path, knobs.options());  // whisper.cpp checks every tensor's size
    EXPECT_FALSE(impl.transcribe(sineSamples(3)).empty());

    shape.nAudioState = shape.nTextState = 48;  // not whole blocks of 32
    EXPECT_THROW(tools::makeWhisperTestModel(shape), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::testing
