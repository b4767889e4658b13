#include "SpeechEngine/Vocabulary.h"

#include <charconv>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "CorvaneApp/platform/Log.h"
#include "SpeechEngine/AsrModelsError.h"

namespace speech {
namespace {

std::optional<int> decimalId(const std::string& key) {
    int value = 0;
    auto [end, error] = std::from_chars(key.data(), key.data() + key.size(), value);
    if (error != std::errc() || end != key.data() + key.size() || key.empty()) return std::nullopt;
    return value;
}

}  // namespace

Vocabulary loadVocabulary(const std::filesystem::path& path) {
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        throw AsrModelsError::loadingFailed(
            "Vocabulary file not found at " + path.string() +
            ". Please ensure the vocab file is downloaded with the models.");
    }
    nlohmann::json document;
    try {
        std::ifstream file(path, std::ios::binary);
        if (!file) throw std::runtime_error("unreadable");
        std::stringstream contents;
        contents << file.rdbuf();
        document = nlohmann::json::parse(contents.str());
    } catch (const std::exception&) {
        throw AsrModelsError::loadingFailed("Failed to load or parse vocabulary file at " +
                                            path.string());
    }
    if (!document.is_object())
        throw AsrModelsError::loadingFailed("Vocabulary file has unexpected format");

    Vocabulary vocabulary;
    for (const auto& [key, value] : document.items()) {
        if (!value.is_string())
            throw AsrModelsError::loadingFailed("Vocabulary file has unexpected format");
        if (auto id = decimalId(key)) vocabulary[*id] = value.get<std::string>();
    }
    corvane::log::get("AsrModels")->info("Loaded vocabulary with {} tokens", vocabulary.size());
    return vocabulary;
}

}  // namespace speech
