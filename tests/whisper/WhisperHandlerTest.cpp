// WhisperHandler from an audio file to a JobResult on the generated model: result fields, stage
// reports in success and failure, short, long and silent audio, and shards sharing one context.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "CorvaneApp/models/AudioDecodeError.h"
#include "CorvaneApp/models/AudioPipeline.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "tests/support/FakeClock.h"
#include "tests/support/WhisperFixtures.h"

namespace corvane::testing {
namespace {

using Stage = std::pair<ModelHandlerStage, double>;

class WhisperHandlerTest : public ::testing::Test {
  protected:
    std::unique_ptr<WhisperHandler> handler(WhisperHandler::Options options = {}) {
        options.impl.threadInputs = knobs.inputs();
        options.now = clock.function();
        return std::make_unique<WhisperHandler>(whisperTestModelDirectory(), ChipTier::t1,
                                                std::move(options));
    }
    ClaimedJob job(const std::filesystem::path& input,
                   ModelCategory category = ModelCategory::transcription) {
        return {"job-1",        "shard-7",   category,    whisperModelIdentifier(),
                input.string(), systemNow(), std::nullopt};
    }
    std::filesystem::path wav(const std::string& name, const std::vector<float>& samples) {
        return folder.write(name, wavBytes(samples));
    }
    StageObserver recorder() {
        return [this](ModelHandlerStage stage, double seconds) {
            stages.emplace_back(stage, seconds);
        };
    }

    FakeClock clock;
    ThreadKnobs knobs;
    ScratchFolder folder;
    std::vector<Stage> stages;
};

using enum ModelHandlerStage;

TEST_F(WhisperHandlerTest, ShortLongAndSilentAudioAllBecomeTranscriptResults) {
    auto h = handler();
    const JobResult result = h->handle(job(wav("short.wav", sineSamples(0.2))), recorder(), {});
    EXPECT_EQ(result.shardID, "shard-7");
    ASSERT_NE(result.output.transcript(), nullptr);
    EXPECT_FALSE(result.output.transcript()->text.empty()) << "0.2 s is still one window";
    EXPECT_EQ(stages, (std::vector<Stage>{{decode, 0}, {inference, 0}}));

    // Each of the twenty 30 s windows of ten minutes says a few words of its own.
    const std::string tenMinutes =
        h->handle(job(wav("ten-minutes.wav", sineSamples(600))), {}, {}).output.transcript()->text;
    EXPECT_GE(std::ranges::count(tenMinutes, ' '), 40);
    // Whatever silence says, empty included, is a result.
    EXPECT_NE(
        h->handle(job(wav("silence.wav", sineSamples(5, 440, 0))), {}, {}).output.transcript(),
        nullptr);
}

TEST_F(WhisperHandlerTest, StagesAreTimedByTheInjectedClockAlsoWhenAShardFails) {
    int run = 0;
    WhisperHandler::Options options;
    options.decode = [&](const std::filesystem::path& path) {
        clock.advance(1.5);
        return AudioPipeline::decodeTo16kMonoPCM(path);
    };
    options.impl.full = [&](whisper_context* ctx, whisper_state* state, whisper_full_params params,
                            const float* samples, int count) {
        clock.advance(2.0);
        return ++run == 2 ? -6 : whisper_full_with_state(ctx, state, params, samples, count);
    };
    auto h = handler(std::move(options));
    const auto input = wav("a.wav", sineSamples(1));
    EXPECT_EQ(h->handle(job(input), recorder(), {}).wallTimeSeconds, 3.5);
    EXPECT_EQ(stages, (std::vector<Stage>{{decode, 1.5}, {inference, 2.0}}));

    // whisper.cpp fails: reported after the inference stage; the next shard runs as before.
    EXPECT_EQ(modelErrorOf([&] { h->handle(job(input), recorder(), {}); }),
              "backendCrashed(underlying: inferenceFailed(status: -6))");
    EXPECT_EQ(stages.size(), 4u);
    EXPECT_EQ(stages.back(), (Stage{inference, 2.0}));

    // Not a transcription: refused before any stage.
    stages.clear();
    EXPECT_EQ(
        modelErrorOf([&] { h->handle(job(input, ModelCategory::llm), recorder(), {}); }),
        R"(invalidInput(reason: "WhisperHandler only handles .transcription jobs, got llm"))");
    EXPECT_TRUE(stages.empty());

    // The decoder's own error passes through, after the decode report.
    EXPECT_THROW(
        h->handle(job(folder.write("notes.mp3", "just some text, not audio")), recorder(), {}),
        AudioDecodeError);
    EXPECT_EQ(stages, (std::vector<Stage>{{decode, 1.5}}));
}

TEST_F(WhisperHandlerTest, ShardsInFlightTogetherTakeTurnsOnTheOneContext) {
    std::atomic<bool> busy{false}, overlapped{false};
    std::atomic<int> runs{0};
    WhisperHandler::Options options;
    options.impl.full = [&](whisper_context* ctx, whisper_state* state, whisper_full_params params,
                            const float* samples, int count) {
        if (busy.exchange(true)) overlapped = true;
        const int status = whisper_full_with_state(ctx, state, params, samples, count);
        busy = false;
        ++runs;
        return status;
    };
    auto h = handler(std::move(options));
    const auto input = wav("c.wav", sineSamples(12));
    const std::string alone = h->handle(job(input), {}, {}).output.transcript()->text;

    std::vector<std::string> texts(6);
    {
        std::vector<std::jthread> shards;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            shards.emplace_back(
                [&, i] { texts[i] = h->handle(job(input), {}, {}).output.transcript()->text; });
        }
    }
    EXPECT_EQ(runs, 7);
    EXPECT_FALSE(overlapped);
    for (const auto& text : texts) EXPECT_EQ(text, alone);
}

}  // namespace
}  // namespace corvane::testing
