#include "tests/speech/SpeechTestSupport.h"

#include <fstream>

namespace speech::testing {

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

AsrModels loadScriptedModels(const std::filesystem::path& folder, AsrModelVersion version) {
    ScriptedRuntime runtime;
    auto files = modelFiles(version);
    AsrModels models;
    models.version = version;
    models.preprocessor = runtime.load(folder / files.preprocessor, {});
    if (files.encoder) models.encoder = runtime.load(folder / *files.encoder, {});
    models.decoder = runtime.load(folder / files.decoder, {});
    models.joint = runtime.load(folder / files.joint, {});
    models.vocabulary =
        std::make_shared<const Vocabulary>(loadVocabulary(folder / files.vocabulary));
    return models;
}

}  // namespace speech::testing
