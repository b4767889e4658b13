#include "SpeechEngine/AsrModelVersion.h"

#include "SpeechEngine/AsrModelsError.h"

namespace speech {

const char* name(AsrModelVersion version) {
    switch (version) {
        case AsrModelVersion::v2:
            return "v2";
        case AsrModelVersion::v3:
            return "v3";
        case AsrModelVersion::tdtCtc110m:
            return "tdtCtc110m";
        case AsrModelVersion::ctcZhCn:
            return "ctcZhCn";
        case AsrModelVersion::tdtJa:
            return "tdtJa";
    }
    return "v2";
}

Repo repoFor(AsrModelVersion version) {
    switch (version) {
        case AsrModelVersion::v2:
            return Repo(Repo::Id::parakeetV2);
        case AsrModelVersion::v3:
            return Repo(Repo::Id::parakeetV3);
        case AsrModelVersion::tdtCtc110m:
            return Repo(Repo::Id::parakeetTdtCtc110m);
        case AsrModelVersion::tdtJa:
            return Repo(Repo::Id::parakeetJa);
        case AsrModelVersion::ctcZhCn:
            break;
    }
    throw AsrModelsError::loadingFailed(
        ".ctcZhCn must be loaded via its dedicated manager class (e.g., CtcZhCnManager)");
}

AsrModelFiles modelFiles(AsrModelVersion version) {
    // The repository's list is the one source of names: networks in pipeline order, vocabulary
    // last.
    auto names = repoFor(version).requiredModelNames();
    if (names.size() == 4) return {names[0], std::nullopt, names[1], names[2], names[3]};
    return {names[0], names[1], names[2], names[3], names[4]};
}

}  // namespace speech
