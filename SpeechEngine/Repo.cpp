#include "SpeechEngine/Repo.h"

namespace speech {

std::string Repo::name() const {
    switch (id_) {
        case Id::parakeetV2:
            return "parakeet-tdt-0.6b-v2-coreml";
        case Id::parakeetV3:
            return "parakeet-tdt-0.6b-v3-coreml";
        case Id::parakeetTdtCtc110m:
            return "parakeet-tdt-ctc-110m";
        case Id::parakeetJa:
            return "parakeet-ja";
    }
    return {};
}

std::string Repo::remotePath(const std::string& owner) const {
    if (owner.empty()) return name();
    return owner.back() == '/' ? owner + name() : owner + "/" + name();
}

std::string Repo::folderName() const {
    std::string folder = name();
    static constexpr std::string_view suffix = "-coreml";
    if (folder.ends_with(suffix)) folder.erase(folder.size() - suffix.size());
    return folder;
}

std::vector<std::string> Repo::requiredModelNames() const {
    switch (id_) {
        case Id::parakeetV2:
            return {"Preprocessor.mlmodelc", "Encoder.mlmodelc", "Decoder.mlmodelc",
                    "JointDecision.mlmodelc", "parakeet_vocab.json"};
        case Id::parakeetV3:
            return {"Preprocessor.mlmodelc", "Encoder.mlmodelc", "Decoder.mlmodelc",
                    "JointDecisionv3.mlmodelc", "parakeet_vocab.json"};
        case Id::parakeetTdtCtc110m:
            return {"Preprocessor.mlmodelc", "Decoder.mlmodelc", "JointDecision.mlmodelc",
                    "parakeet_vocab.json"};
        case Id::parakeetJa:
            return {"Preprocessor.mlmodelc", "Encoder.mlmodelc", "Decoderv2.mlmodelc",
                    "Jointerv2.mlmodelc", "vocab.json"};
    }
    return {};
}

}  // namespace speech
