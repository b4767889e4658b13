// WhisperImpl on the generated model: thread selection, what reaches whisper_full, failures of
// the library and of the model file, and the generic run() entry.

#include <gtest/gtest.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <cstring>
#include <stdexcept>

#include "CorvaneApp/models/ModelHandler.h"
#include "tests/support/LogCapture.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace corvane::testing {
namespace {

// Allocations made while it lives are not reported as leaks (under AddressSanitizer).
struct LeakCheckPause {
#if defined(__SANITIZE_ADDRESS__)
    LeakCheckPause() { __lsan_disable(); }
    ~LeakCheckPause() { __lsan_enable(); }
#endif
};

// The ModelError case of `run`, printed; "no error" when it returned.
template <typename Run>
std::string modelErrorOf(Run&& run) {
    try {
        run();
    } catch (const ModelError& error) {
        return error.what();
    }
    return "no error";
}

class WhisperImplTest : public ::testing::Test {
protected:
    std::unique_ptr<WhisperImpl> load(WhisperImpl::FullFunction full = {}) {
        return std::make_unique<WhisperImpl>(whisperTestModelFile(), WhisperImpl::Options{knobs.inputs(), std::move(full)});
    }
    ThreadKnobs knobs;
};

TEST(WhisperThreadCount, PercentOfTheProcessorsRoundedWithinOneAndAll) {
    const struct {
        std::int64_t percent, cpus, threads;
    } rows[] = {{50, 8, 4}, {1, 8, 1}, {100, 8, 8}, {150, 8, 8}, {0, 0, 1}, {25, 10, 3}, {-5, 4, 1}, {75, 2, 2}, {74, 2, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(WhisperImpl::threadCount(row.percent, row.cpus), row.threads) << row.percent << "% of " << row.cpus;
    }
}

TEST_F(WhisperImplTest, ModeCeilingAndRuntimePercentDecideTheThreads) {
    auto impl = load();
    const struct {
        double idleMinutes;
        std::optional<double> idleSeconds;
        std::optional<std::int64_t> runtime;
        std::int64_t cpus;
        const char* mode;
        std::int64_t user, effective, threads;
    } rows[] = {
        {5, 299, {}, 8, "in_use", 50, 50, 4},
        {5, 300, {}, 8, "away", 100, 100, 8},     // at the threshold it is away
        {0, 1, {}, 8, "away", 100, 100, 8},       // no threshold: always away
        {-3, 1, {}, 8, "away", 100, 100, 8},      // a negative threshold counts as none
        {5, {}, {}, 8, "in_use", 50, 50, 4},      // no idle reading: not idle
        {5, 600, 25, 10, "away", 100, 25, 3},     // the daemon's percentage wins
        {5, 10, 0, 4, "in_use", 50, 0, 1},
    };
    for (const auto& row : rows) {
        knobs.idleMinutes = row.idleMinutes;
        knobs.setIdleSeconds(row.idleSeconds);
        knobs.setRuntimePercent(row.runtime);
        knobs.cpuCount = row.cpus;
        const WhisperThreadSelection s = impl->currentThreadCount();
        EXPECT_EQ(s.resourceMode, row.mode) << row.idleMinutes << " min, " << row.idleSeconds.value_or(-1) << " s";
        EXPECT_EQ(s.userPercent, row.user);
        EXPECT_EQ(s.effectivePercent, row.effective);
        EXPECT_EQ(s.threads, row.threads);
    }
    knobs.inUseCpuCeiling = 49.5;  // ceilings are rounded half away from zero
    knobs.idleMinutes = 5;
    knobs.setIdleSeconds(1);
    knobs.setRuntimePercent({});
    EXPECT_EQ(impl->currentThreadCount().userPercent, 50);
}

TEST_F(WhisperImplTest, EachChoiceLogsTwoLinesTiedByOneNonce) {
    auto impl = load();
    knobs.cpuCount = 8;
    knobs.idleMinutes = 5;
    knobs.setIdleSeconds(10);
    LogCapture logs;
    impl->currentThreadCount();
    impl->currentThreadCount();
    const auto lines = logs.lines();
    ASSERT_EQ(lines.size(), 4u);
    // "... nonce=XXXXXXXX <rest>": the nonce, when the line is exactly that with 8 hex digits.
    auto nonceOf = [](const std::string& line, const std::string& rest) -> std::string {
        const std::string head = "WhisperHandler info: whisper_thread_select nonce=";
        if (line.size() != head.size() + 9 + rest.size() || line.rfind(head, 0) != 0 || !line.ends_with(" " + rest)) return "";
        std::string nonce = line.substr(head.size(), 8);
        return nonce.find_first_not_of("0123456789ABCDEF") == std::string::npos ? nonce : "";
    };
    const std::string choice = "threads=4 effective_percent=50 user_percent=50";
    const std::string machine = "cpu_count=8 resource_mode=in_use";
    const std::string first = nonceOf(lines[0], choice);
    ASSERT_FALSE(first.empty()) << lines[0];
    EXPECT_EQ(nonceOf(lines[1], machine), first) << lines[1];
    const std::string second = nonceOf(lines[2], choice);
    EXPECT_EQ(nonceOf(lines[3], machine), second) << lines[3];
    EXPECT_NE(first, second);
}

TEST_F(WhisperImplTest, WhisperGetsTheSamplesUncopiedInEnglishWithTheChosenThreads) {
    whisper_full_params seen{};
    const float* seenSamples = nullptr;
    int seenCount = 0;
    auto impl = load([&](whisper_context* ctx, whisper_full_params params, const float* samples, int count) {
        seen = params;
        seenSamples = samples;
        seenCount = count;
        return whisper_full(ctx, params, samples, count);
    });
    knobs.awayCpuCeiling = 50;
    knobs.cpuCount = 4;
    const std::vector<float> pcm = sineSamples(3);
    EXPECT_FALSE(impl->transcribe(pcm).empty());

    const whisper_full_params defaults = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    EXPECT_EQ(seenSamples, pcm.data());
    EXPECT_EQ(seenCount, 48000);
    EXPECT_EQ(seen.strategy, WHISPER_SAMPLING_GREEDY);
    EXPECT_EQ(seen.n_threads, 2);
    EXPECT_STREQ(seen.language, "en");
    EXPECT_FALSE(seen.detect_language);
    EXPECT_FALSE(seen.translate);
    EXPECT_FALSE(seen.no_timestamps);
    EXPECT_FALSE(seen.print_special || seen.print_progress || seen.print_realtime || seen.print_timestamps);
    EXPECT_EQ(seen.no_context, defaults.no_context);
    EXPECT_EQ(seen.single_segment, defaults.single_segment);
    EXPECT_EQ(seen.temperature_inc, defaults.temperature_inc);
}

TEST_F(WhisperImplTest, AFailedRunIsBackendCrashedAndTheContextServesTheNextRun) {
    bool abortNext = true;
    auto impl = load([&](whisper_context* ctx, whisper_full_params params, const float* samples, int count) {
        if (std::exchange(abortNext, false)) {
            params.abort_callback = [](void*) { return true; };  // whisper.cpp's encoder then fails
        }
        return whisper_full(ctx, params, samples, count);
    });
    const std::vector<float> pcm = sineSamples(2);
    LogCapture logs;
    try {
        impl->transcribe(pcm);
        FAIL() << "an aborted run must fail";
    } catch (const ModelError& error) {
        EXPECT_STREQ(error.what(), "backendCrashed(underlying: inferenceFailed(status: -6))");
        EXPECT_TRUE(error.isRetryable());
    }
    EXPECT_TRUE(logs.contains("WhisperHandler error: whisper_full failed with status -6"));
    EXPECT_TRUE(logs.contains("whisper.cpp error: whisper_full_with_state: failed to encode"));  // routed, not stderr
    EXPECT_FALSE(impl->transcribe(pcm).empty());
}

TEST_F(WhisperImplTest, AnExceptionThroughTheCInterfaceBecomesBackendCrashed) {
    auto impl = load([](whisper_context*, whisper_full_params, const float*, int) -> int { throw std::out_of_range("map::at"); });
    EXPECT_EQ(modelErrorOf([&] { impl->transcribe(sineSamples(1)); }), "backendCrashed(underlying: map::at)");
}

TEST_F(WhisperImplTest, RunTakesOnly16kAudio) {
    auto impl = load();
    ModelInput image{ModelInput::ImagePrompt{"a cat", {}}};
    ModelInput rate{ModelInput::Audio{sineSamples(1), 44100}};
    ModelInput empty{ModelInput::Audio{{}, 16000}};
    EXPECT_EQ(modelErrorOf([&] { impl->run(image); }), R"(invalidInput(reason: "WhisperImpl requires .audio input"))");
    EXPECT_EQ(modelErrorOf([&] { impl->run(rate); }), R"(invalidInput(reason: "WhisperImpl requires 16 kHz input, got 44100"))");
    EXPECT_EQ(modelErrorOf([&] { impl->run(empty); }), R"(invalidInput(reason: "empty PCM input"))");

    const std::vector<float> pcm = sineSamples(4);
    const ModelOutput output = impl->run(ModelInput{ModelInput::Audio{pcm, 16000}});
    ASSERT_NE(output.transcript(), nullptr);
    EXPECT_EQ(*output.transcript(), (TranscriptResult{impl->transcribe(pcm), std::nullopt, {}}));
    ASSERT_FALSE(output.transcript()->text.empty());
    EXPECT_NE(output.transcript()->text.front(), ' ');  // segments are joined and trimmed
}

TEST_F(WhisperImplTest, ModelFilesThatCannotLoadAreModelErrorsWithTheirLogLine) {
    ScratchFolder folder;
    const std::string model = tools::makeWhisperTestModel({});
    std::string badType = model;
    const std::int32_t unknownType = 99;
    std::memcpy(badType.data() + 4 + 10 * 4, &unknownType, 4);  // whisper.cpp would assert on it
    std::string renamed = model;
    renamed.replace(renamed.rfind("decoder.ln.bias"), 15, "decoder.ln.bian");  // well formed, but unknown

    const struct {
        const char* name;
        std::optional<std::string> bytes;  // absent: no file
        const char* error;
        std::string logLine;
    } rows[] = {
        {"missing", std::nullopt, "modelNotInstalled", "WhisperHandler error: Model file missing at "},
        {"empty", "", "backendCrashed(underlying: contextInitFailed)", "is not a whole whisper model: not a ggml model"},
        {"random", std::string(100'000, '\x17'), "backendCrashed(underlying: contextInitFailed)", "(bad magic)"},
        {"half", model.substr(0, model.size() / 2), "backendCrashed(underlying: contextInitFailed)",
         "file ends inside tensor decoder.token_embedding.weight"},
        {"tail", model.substr(0, model.size() - 10), "backendCrashed(underlying: contextInitFailed)",
         "file ends inside tensor decoder.ln.bias"},
        {"bad type", badType, "backendCrashed(underlying: contextInitFailed)", "unknown weight type 99"},
    };
    for (const auto& row : rows) {
        const auto path = folder / row.name;
        if (row.bytes) folder.write(row.name, *row.bytes);
        LogCapture logs;
        EXPECT_EQ(modelErrorOf([&] { WhisperImpl(path, {knobs.inputs(), {}}); }), row.error) << row.name;
        EXPECT_TRUE(logs.contains(row.logLine)) << row.name;
    }
    // A file only whisper.cpp itself can refuse. The library keeps the weights it read then: its
    // leak, kept out of the leak check.
    folder.write("renamed", renamed);
    LogCapture logs;
    {
        LeakCheckPause pause;
        EXPECT_EQ(modelErrorOf([&] { WhisperImpl(folder / "renamed", {knobs.inputs(), {}}); }),
                  "backendCrashed(underlying: contextInitFailed)");
    }
    EXPECT_TRUE(logs.contains("WhisperHandler error: whisper_init_from_file_with_params returned NULL for " +
                              (folder / "renamed").string()));
    EXPECT_TRUE(logs.contains("whisper.cpp error: whisper_model_load: unknown tensor 'decoder.ln.bian'"));

    WhisperThreadInputs partial = knobs.inputs();
    partial.runtimeEffectivePercent = nullptr;
    EXPECT_THROW(WhisperImpl(whisperTestModelFile(), {partial, {}}), std::invalid_argument);
}

}  // namespace
}  // namespace corvane::testing
