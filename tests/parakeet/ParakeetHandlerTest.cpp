// The Parakeet handler and its cache on scripted networks, and the handler loader: what it refuses
// (leaving the box as it was), a fresh handler per load, and lookups racing a stream of swaps,
// which must see the old handler or the new one, never a torn value.

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "CorvaneApp/models/HandlerLoader.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ParakeetCacheError.h"
#include "CorvaneApp/models/ParakeetHandler.h"
#include "tests/parakeet/ParakeetFixtures.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {
namespace {

TEST(ParakeetHandlerTest, ShardsBadInputAndARemovedSet) {
    ScratchFolder folder;
    ParakeetCache cache(installScriptedParakeet(folder), scriptedParakeetRuntime());
    FakeClock clock;
    auto decode = [&](const std::filesystem::path&) {
        clock.advance(1);
        return helloWorldAudio();
    };
    auto make = [&] {
        return ParakeetHandler(cache.directory(), ChipTier::t2, cache.runtime(),
                               {decode, clock.function()});
    };
    std::vector<std::string> stages;
    auto handle = [&](ParakeetHandler& h, ModelCategory category = ModelCategory::transcription) {
        return h.handle(
            {"job-1", "s-1", category, {}, "/shard.wav", {}, {}},
            [&](ModelHandlerStage stage, double seconds) {
                stages.push_back(std::string(rawValue(stage)) + "=" + std::to_string(seconds));
            },
            {});
    };

    auto handler = make();
    auto result = handle(handler);
    EXPECT_EQ(std::get<TranscriptResult>(result.output.value),
              (TranscriptResult{"hello world", std::nullopt, {}}));
    EXPECT_EQ(stages, (std::vector<std::string>{"decode=1.000000", "inference=0.000000"}));
    EXPECT_DOUBLE_EQ(result.wallTimeSeconds, 1.0);
    EXPECT_EQ(
        modelErrorOf([&] { handle(handler, ModelCategory::llm); }),
        R"(invalidInput(reason: "ParakeetHandler only handles .transcription jobs, got llm"))");

    // Whole on disk, but nothing can run it: never servable, and can't be installed.
    ParakeetCache noRuntime(cache.directory(), nullptr);
    EXPECT_TRUE(cache.canServe());
    EXPECT_FALSE(noRuntime.canServe());
    EXPECT_THROW(noRuntime.install({}), ParakeetCacheError);

    // After removal the running handler keeps its networks; a new one can't start.
    cache.remove();
    EXPECT_EQ(std::get<TranscriptResult>(handle(handler).output.value).text, "hello world");
    EXPECT_EQ(modelErrorOf([&] { make(); }), "modelNotInstalled");
}

TEST(HandlerSwapTest, RefusalsLeaveTheBoxAndLookupsNeverSeeATornHandler) {
    ScratchFolder folder;
    auto box = std::make_shared<HandlerBox>();
    auto loader = [&](std::shared_ptr<const ParakeetRuntime> runtime) {
        return HandlerLoader(
            {box,
             modelCacheAt(folder / "cache"),
             [] { return ChipTier::t1; },
             {},
             std::make_shared<const ParakeetCache>(folder / "models/parakeet-tdt-0.6b-v2", runtime),
             {}});
    };
    auto load = loader(scriptedParakeetRuntime());
    const auto invalid = [](const std::string& reason) {
        return "invalidInput(reason: \"" + reason + "\")";
    };
    EXPECT_EQ(modelErrorOf([&] { load(parakeetModelIdentifier()); }),
              invalid("handlerLoader: Parakeet weights not installed \u2014 cannot swap to "
                      "parakeet-tdt-0.6b-v2"));
    installScriptedParakeet(folder);
    // Whole on disk, but nothing can run it: a real build, where only the test runtime exists.
    EXPECT_EQ(modelErrorOf([&] { loader(nullptr)(parakeetModelIdentifier()); }),
              invalid("handlerLoader: no runtime on this computer can run Parakeet \u2014 cannot "
                      "swap to parakeet-tdt-0.6b-v2"));
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
            ASSERT_LT(at, generations.size())
                << "a reader saw a handler no swap installed, or saw them out of order";
        }
    }
}

}  // namespace
}  // namespace corvane::testing
