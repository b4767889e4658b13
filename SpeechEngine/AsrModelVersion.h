#pragma once
// The recogniser model sets the engine knows, and the file names each one needs.

#include <optional>
#include <string>

#include "SpeechEngine/Repo.h"

namespace speech {

enum class AsrModelVersion { v2, v3, tdtCtc110m, ctcZhCn, tdtJa };

// "v2", "v3", "tdtCtc110m", "ctcZhCn", "tdtJa"
const char* name(AsrModelVersion version);

// The files of one version's folder.
struct AsrModelFiles {
    std::string preprocessor;
    std::optional<std::string> encoder;  // absent when the preprocessor holds the encoder
    std::string decoder;
    std::string joint;
    std::string vocabulary;
};

// Throws AsrModelsError for ctcZhCn, which has its own loader.
AsrModelFiles modelFiles(AsrModelVersion version);
Repo repoFor(AsrModelVersion version);

}  // namespace speech
