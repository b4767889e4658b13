#pragma once
// Why a model set could not be found, fetched, loaded or compiled.

#include <string>

#include "SpeechEngine/TypedError.h"

namespace speech {

enum class AsrModelsErrorKind {
    modelNotFound,
    downloadFailed,
    loadingFailed,
    modelCompilationFailed
};

class AsrModelsError : public TypedError<AsrModelsErrorKind> {
  public:
    static AsrModelsError modelNotFound(const std::string& name, const std::string& path) {
        return {Kind::modelNotFound, "ASR model '" + name + "' not found at: " + path};
    }
    static AsrModelsError downloadFailed(const std::string& message) {
        return {Kind::downloadFailed, "Failed to download ASR models: " + message};
    }
    static AsrModelsError loadingFailed(const std::string& message) {
        return {Kind::loadingFailed, "Failed to load ASR models: " + message};
    }
    static AsrModelsError modelCompilationFailed(const std::string& message) {
        return {Kind::modelCompilationFailed, "Failed to compile ASR models: " + message +
                                                  ". Try deleting the models and re-downloading."};
    }

  private:
    using TypedError::TypedError;
};

}  // namespace speech
