#pragma once
// A Parakeet model set of scripted networks whose joint turns frame codes 11 and 12 into "hello"
// and "world", and the runtime that runs it, so the text of a transcription is known in advance.

#include <memory>
#include <vector>

#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "SpeechEngine/ScriptedRuntime.h"
#include "tests/support/ManualSleeper.h"
#include "tests/support/WhisperFixtures.h"

namespace corvane::testing {

// 1.6 s, above the engine's 0.3 s minimum.
inline std::vector<float> helloWorldAudio() {
    std::vector<int> codes(20, 0);
    codes[2] = 11;
    codes[6] = 12;
    return speech::ScriptedRuntime::frameCodedAudio(codes);
}

// Its downloader can reach no hub, so an unintended fetch fails.
inline std::shared_ptr<const ParakeetRuntime> scriptedParakeetRuntime() {
    return std::make_shared<const ParakeetRuntime>(
        std::make_shared<const http::Session>(speech::DownloadUtils::sessionConfig()),
        std::make_shared<const speech::ScriptedRuntime>(),
        [](const std::string& name) -> std::optional<std::string> {
            if (name == "REGISTRY_URL") return std::string("http://127.0.0.1:9");
            return std::nullopt;
        },
        std::make_shared<ManualSleeper>());
}

inline std::shared_ptr<ModelCache> modelCacheAt(const std::filesystem::path& root) {
    ModelCache::Dependencies cache;
    cache.rootDirectory = root;
    cache.session = std::make_shared<const http::Session>();
    return std::make_shared<ModelCache>(std::move(cache));
}

// <scratch>/models/parakeet-tdt-0.6b-v2 with the whole v2 set installed.
inline std::filesystem::path installScriptedParakeet(const ScratchFolder& folder) {
    const std::string mark = "\xE2\x96\x81";
    auto directory = folder.path() / "models" / "parakeet-tdt-0.6b-v2";
    speech::ScriptedRuntime::installModelSet(directory, speech::AsrModelVersion::v2,
                                             {{11, {1}, {1}, {0.9f}}, {12, {2}, {1}, {0.9f}}}, 1024,
                                             {{1, mark + "hello"}, {2, mark + "world"}});
    return directory;
}

}  // namespace corvane::testing
