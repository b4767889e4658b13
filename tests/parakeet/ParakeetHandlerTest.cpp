// The Parakeet handler and its cache on scripted networks: stage timings and result fields, bad
// input, and a set that is removed or that no runtime can run. The handler loader: what it
// refuses (leaving the box as it was), a fresh handler per load, and lookups racing a stream of
// swaps, which must see the old handler or the new one, never a torn value.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
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
}

TEST(HandlerSwapTest, RefusalsLeaveTheBoxAndLookupsNeverSeeATornHandler) {
    ScratchFolder folder;
    auto box = std::make_shared<HandlerBox>();
    auto loader = [&](std::shared_ptr<const ParakeetRuntime> runtime) {
        return HandlerLoader({box, modelCacheAt(folder / "cache"),
                              [] { return ChipTier::t1; }, {},
                              std::make_shared<const ParakeetCache>(folder / "models/parakeet-tdt-0.6b-v2", runtime), {}});
    };
    auto load = loader(scriptedParakeetRuntime());
    const auto invalid = [](const std::string& reason) { return "invalidInput(reason: \"" + reason + "\")"; };
    const std::pair<ModelIdentifier, std::string> refused[] = {
        {{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "7"},
         invalid("handlerLoader: no ModelSpec registered for whisper identifier whisper-large-v3-turbo-q4")},
        {parakeetModelIdentifier(),
         invalid("handlerLoader: Parakeet weights not installed \u2014 cannot swap to parakeet-tdt-0.6b-v2")},
        {{"speech-engine-next", "m", "1"}, invalid("handlerLoader: unknown backend 'speech-engine-next' for model m")},
    };
    for (const auto& row : refused) EXPECT_EQ(modelErrorOf([&] { load(row.first); }), row.second);
    installScriptedParakeet(folder);
    // Whole on disk, but nothing can run it: a real build, where only the test runtime exists.
    EXPECT_EQ(modelErrorOf([&] { loader(nullptr)(parakeetModelIdentifier()); }),
              invalid("handlerLoader: no runtime on this computer can run Parakeet \u2014 cannot swap to parakeet-tdt-0.6b-v2"));
    EXPECT_EQ(box->current(), nullptr);

    load({"speech-engine-native", "any-model-string", "9"});  // only the backend decides
    ASSERT_NE(std::dynamic_pointer_cast<ParakeetHandler>(box->current()), nullptr);

    // Every handler stays alive in `generations`, so no address is reused and each one that a
    // reader sees can be placed in the order of the swaps.
    std::vector<std::shared_ptr<ModelHandler>> generations{box->current()};
    std::atomic<bool> done{false};
    std::vector<std::vector<const ModelHandler*>> seen(3);
    std::vector<std::jthread> readers;
    for (auto& mine : seen) {
        readers.emplace_back([&, list = &mine] {
            while (!done.load()) {
                auto handler = box->current();
                ASSERT_EQ(handler->activeImplName(), "speech-engine-parakeet");
                if (list->empty() || list->back() != handler.get()) list->push_back(handler.get());
            }
        });
    }
    for (int i = 0; i < 200; ++i) {
        load(parakeetModelIdentifier());
        ASSERT_NE(box->current(), generations.back()) << "each load builds a fresh handler";
        generations.push_back(box->current());
    }
    done = true;
    readers.clear();
    for (const auto& mine : seen) {
        std::size_t at = 0;
        for (const ModelHandler* handler : mine) {
            while (at < generations.size() && generations[at].get() != handler) ++at;
            ASSERT_LT(at, generations.size()) << "a reader saw a handler no swap installed, or saw them out of order";
        }
    }
}

}  // namespace
}  // namespace corvane::testing
