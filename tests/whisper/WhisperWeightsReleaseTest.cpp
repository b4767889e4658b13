// A paused worker's Whisper engine lets go of its weights and the next shard loads them again, on
// the generated model: the same text afterwards, never while a run holds them, refused by memory
// admission before the load starts, and a model file that went or changed meanwhile.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WeightsReleaseTimer.h"
#include "CorvaneApp/models/WhisperHandler.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace corvane::testing {
namespace {

class WhisperWeightsReleaseTest : public ::testing::Test {
  protected:
    // A private copy of the generated model, so that a test may remove or replace it.
    void SetUp() override { std::filesystem::copy_file(whisperTestModelFile(), modelFile()); }
    std::filesystem::path modelFile() const {
        return folder.path() / WhisperImpl::defaultModelFilename;
    }
    WhisperImpl::Options options(WhisperImpl::FullFunction full = {}) {
        WhisperImpl::Options o = knobs.options(std::move(full));
        o.admitReload = [this]() -> std::optional<std::string> { return refusal; };
        o.reloadFailed = [this] { ++reloadFailures; };
        return o;
    }

    ScratchFolder folder;
    ThreadKnobs knobs;
    std::optional<std::string> refusal;  // what memory admission answers
    std::atomic<int> reloadFailures = 0;
    const std::vector<float> pcm = sineSamples(4);
};

// The whole cycle as the worker lives it: a shard, a pause past the delay (the engine says it let
// go), and the next shard after the pause, with the same text as before.
TEST_F(WhisperWeightsReleaseTest, PausedPastTheDelayTheWeightsGoAndTheNextShardSaysTheSame) {
    WhisperHandler::Options handlerOptions;
    handlerOptions.impl = options();
    auto box = std::make_shared<HandlerBox>();
    box->replace(std::make_shared<WhisperHandler>(folder.path(), ChipTier::t1, handlerOptions));
    const auto audio = folder.write("speech.wav", wavBytes(pcm));
    const ClaimedJob job{"job-1",
                         "s-1",
                         ModelCategory::transcription,
                         whisperModelIdentifier(),
                         audio.string(),
                         systemNow(),
                         std::nullopt};
    auto transcribe = [&] { return box->current()->handle(job, {}, {}).output.transcript()->text; };
    const std::string before = transcribe();

    ManualExecutor main;
    WeightsReleaseTimer timer(
        main, [&] { return box->current()->releaseWeights(); }, [] { return false; }, {600, 30});
    LogCapture logs;
    timer.setPaused(true);
    main.advance(599);
    auto& engine = dynamic_cast<WhisperHandler&>(*box->current()).impl();
    EXPECT_TRUE(engine.weightsLoaded());
    main.advance(1);
    EXPECT_FALSE(engine.weightsLoaded());
    EXPECT_TRUE(logs.contains(
        "WhisperHandler info: Whisper weights released while the worker is paused; the next "
        "shard loads them again from " +
        modelFile().string()));

    timer.setPaused(false);
    std::vector<std::pair<ModelHandlerStage, double>> stages;
    const auto result = box->current()->handle(
        job, [&](ModelHandlerStage stage, double seconds) { stages.emplace_back(stage, seconds); },
        {});
    EXPECT_EQ(result.output.transcript()->text, before);
    EXPECT_TRUE(engine.weightsLoaded());
    EXPECT_TRUE(logs.contains("reloading the Whisper weights from " + modelFile().string()));
    ASSERT_EQ(stages.size(), 2u);
    EXPECT_EQ(stages[1].first, ModelHandlerStage::inference) << "the reload is the inference's";
    EXPECT_EQ(reloadFailures, 0);
}

TEST_F(WhisperWeightsReleaseTest, AReleaseNeverWaitsForARunAndAReleasedEngineHasNothingMore) {
    std::optional<WeightsRelease> duringRun;
    WhisperImpl* self = nullptr;
    WhisperImpl engine(modelFile(),
                       options([&](whisper_context* ctx, whisper_state* state,
                                   whisper_full_params params, const float* samples, int count) {
                           duringRun = self->releaseWeights();  // the paused worker's timer
                           return whisper_full_with_state(ctx, state, params, samples, count);
                       }));
    self = &engine;
    const std::string text = engine.transcribe(pcm);
    EXPECT_EQ(duringRun, WeightsRelease::busy);
    EXPECT_TRUE(engine.weightsLoaded());
    self = nullptr;

    WhisperImpl quiet(modelFile(), options());
    EXPECT_EQ(quiet.releaseWeights(), WeightsRelease::released);
    EXPECT_EQ(quiet.releaseWeights(), WeightsRelease::nothingHeld);
    EXPECT_EQ(quiet.transcribe(pcm), text);
}

// A pause that ends while the weights are being let go: the shard that starts then waits for the
// release to finish and loads them again. Under ASan, any use of freed weights would show here.
TEST_F(WhisperWeightsReleaseTest, ReleasesRacingWithRunsNeverTearAWindow) {
    WhisperImpl engine(modelFile(), options());
    const std::string expected = engine.transcribe(pcm);
    std::atomic<bool> done = false;
    std::atomic<int> released = 0;
    std::atomic<int> attempts = 0;
    std::jthread pauses([&] {
        while (!done) {
            if (engine.releaseWeights() == WeightsRelease::released) ++released;
            ++attempts;
            std::this_thread::yield();
        }
    });
    for (int run = 0; run < 8; ++run) {
        EXPECT_EQ(engine.transcribe(pcm), expected) << run;
        // Between runs the releaser gets at least one turn, however busy the machine is.
        for (const int seen = attempts; attempts < seen + 2;) std::this_thread::yield();
    }
    done = true;
    pauses.join();
    EXPECT_GT(released, 0) << "the two sides did meet";
}

TEST_F(WhisperWeightsReleaseTest, MemoryAdmissionRefusesTheReloadBeforeItStarts) {
    WhisperImpl engine(modelFile(), options());
    ASSERT_EQ(engine.releaseWeights(), WeightsRelease::released);
    refusal = "RAM budget exhausted (13.2 / 16.0 GB)";
    LogCapture logs;
    EXPECT_EQ(modelErrorOf([&] { engine.transcribe(pcm); }),
              "backendCrashed(underlying: weights not reloaded: RAM budget exhausted (13.2 / 16.0 "
              "GB))");
    EXPECT_FALSE(engine.weightsLoaded());
    EXPECT_FALSE(logs.contains("reloading")) << "nothing was loaded";
    EXPECT_EQ(reloadFailures, 0) << "the file is fine: nothing to repair";

    refusal.reset();  // room again
    EXPECT_FALSE(engine.transcribe(pcm).empty());
}

// The model file after the release: gone, cut short, not a model at all, or another whole model.
TEST_F(WhisperWeightsReleaseTest,
       AModelFileThatWentOrChangedMeanwhileFailsTheShardWithTheModelError) {
    const std::string model = tools::makeWhisperTestModel({});
    tools::WhisperTestModelShape other;
    other.seed = 2;
    const struct {
        const char* name;
        std::optional<std::string> bytes;  // absent: removed
        const char* error;                 // absent: transcribes
        const char* logged;
    } rows[] = {
        {"removed", std::nullopt, "modelNotInstalled", "Model file missing at "},
        {"truncated", model.substr(0, model.size() / 2),
         "backendCrashed(underlying: contextInitFailed)", "is not a whole whisper model"},
        {"garbage", std::string(4096, 'x'), "backendCrashed(underlying: contextInitFailed)",
         "not a ggml model (bad magic)"},
        {"another model", tools::makeWhisperTestModel(other), nullptr, "Whisper weights reloaded"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        std::filesystem::copy_file(whisperTestModelFile(), modelFile(),
                                   std::filesystem::copy_options::overwrite_existing);
        WhisperImpl engine(modelFile(), options());
        ASSERT_EQ(engine.releaseWeights(), WeightsRelease::released);
        if (row.bytes)
            folder.write(WhisperImpl::defaultModelFilename, *row.bytes);
        else
            std::filesystem::remove(modelFile());
        reloadFailures = 0;
        LogCapture logs;
        if (row.error) {
            EXPECT_EQ(modelErrorOf([&] { engine.transcribe(pcm); }), row.error);
            EXPECT_EQ(reloadFailures, 1) << "the owner is asked to fetch the file again";
            EXPECT_FALSE(engine.weightsLoaded());
        } else {
            EXPECT_FALSE(engine.transcribe(pcm).empty());
            EXPECT_EQ(reloadFailures, 0);
        }
        EXPECT_TRUE(logs.contains(row.logged));
    }
}

TEST_F(WhisperWeightsReleaseTest, AStopThatCameWhileWaitingForTheModelStartsNoRun) {
    int runs = 0;
    WhisperImpl engine(modelFile(),
                       options([&](whisper_context* ctx, whisper_state* state,
                                   whisper_full_params params, const float* samples, int count) {
                           ++runs;
                           return whisper_full_with_state(ctx, state, params, samples, count);
                       }));
    std::stop_source stopping;
    stopping.request_stop();
    EXPECT_EQ(modelErrorOf([&] { engine.transcribe(pcm, stopping.get_token()); }),
              "backendCrashed(underlying: inference cancelled)");
    EXPECT_EQ(runs, 0);
}

}  // namespace
}  // namespace corvane::testing
