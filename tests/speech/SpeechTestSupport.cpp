#include "tests/speech/SpeechTestSupport.h"

#include <fstream>
#include <random>

namespace speech::testing {

TemporaryDirectory::TemporaryDirectory() {
    std::random_device random;
    path_ = std::filesystem::temp_directory_path() /
            ("speech-test-" + std::to_string(random()) + std::to_string(random()));
    std::filesystem::create_directories(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ignored);
    std::filesystem::remove_all(path_, ignored);
}

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
