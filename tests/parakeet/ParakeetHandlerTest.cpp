// The Parakeet handler and its cache on scripted networks: stage timings and result fields, bad
// input, and a set that is removed or that no runtime can run.

#include <gtest/gtest.h>

#include "CorvaneApp/models/ParakeetCacheError.h"
#include "CorvaneApp/models/ParakeetHandler.h"
#include "SpeechEngine/ASRError.h"
#include "tests/parakeet/ParakeetFixtures.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {
namespace {

TEST(ParakeetHandlerTest, ShardsBadInputAndARemovedSet) {
    ScratchFolder folder;
    ParakeetCache cache(installScriptedParakeet(folder), scriptedParakeetRuntime());
    FakeClock clock;
    std::optional<std::vector<float>> audio = helloWorldAudio();
    auto decode = [&](const std::filesystem::path&) {
        clock.advance(1);
        if (!audio) throw std::runtime_error("cannot decode");
        return *audio;
    };
    auto make = [&] { return ParakeetHandler(cache.directory(), ChipTier::t2, cache.runtime(), {decode, clock.function()}); };
    std::vector<std::string> stages;
    auto handle = [&](ParakeetHandler& h, ModelCategory category = ModelCategory::transcription) {
        return h.handle({"job-1", "s-1", category, {}, "/shard.wav", {}, {}},
                        [&](ModelHandlerStage stage, double seconds) { stages.push_back(std::string(rawValue(stage)) + "=" + std::to_string(seconds)); },
                        {});
    };

    auto handler = make();
    auto result = handle(handler);
    EXPECT_EQ(result.backendUsed, "speech-engine-parakeet");
    EXPECT_EQ(std::get<TranscriptResult>(result.output.value), (TranscriptResult{"hello world", std::nullopt, {}}));
    EXPECT_EQ(stages, (std::vector<std::string>{"decode=1.000000", "inference=0.000000"}));
    EXPECT_DOUBLE_EQ(result.wallTimeSeconds, 1.0);

    stages.clear();
    EXPECT_EQ(modelErrorOf([&] { handle(handler, ModelCategory::llm); }),
              R"(invalidInput(reason: "ParakeetHandler only handles .transcription jobs, got llm"))");
    audio.reset();  // the decoder's own error, after its stage is timed
    EXPECT_THROW(handle(handler), std::runtime_error);
    audio = std::vector<float>(1000, 0.0f);  // below the engine's minimum: its error, not invalidInput
    EXPECT_THROW(handle(handler), speech::ASRError);
    EXPECT_EQ(stages, (std::vector<std::string>{"decode=1.000000", "decode=1.000000", "inference=0.000000"}));

    // A complete set installs without a transfer (no hub is reachable); without a runtime it is
    // never servable, and can't be installed.
    EXPECT_NO_THROW(cache.install({}));
    ParakeetCache noRuntime(cache.directory(), nullptr);
    EXPECT_TRUE(cache.canServe());
    EXPECT_FALSE(noRuntime.canServe());
    EXPECT_THROW(noRuntime.install({}), ParakeetCacheError);

    // After removal the running handler keeps its networks; a new one can't start.
    audio = helloWorldAudio();
    cache.remove();
    EXPECT_NO_THROW(cache.remove()) << "a missing folder is fine";
    EXPECT_FALSE(cache.isInstalled());
    EXPECT_EQ(std::get<TranscriptResult>(handle(handler).output.value).text, "hello world");
    EXPECT_EQ(modelErrorOf([&] { make(); }), "modelNotInstalled");
    std::vector<double> fractions;
    EXPECT_ANY_THROW(cache.install([&](double f) { fractions.push_back(f); }));
    for (double f : fractions) EXPECT_TRUE(f >= 0.0 && f <= 1.0) << f;
}

}  // namespace
}  // namespace corvane::testing
