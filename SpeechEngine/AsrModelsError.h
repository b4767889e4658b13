#pragma once
// Why a model set could not be found, fetched, loaded or compiled.

#include <exception>
#include <string>

namespace speech {

class AsrModelsError : public std::exception {
  public:
    enum class Kind { modelNotFound, downloadFailed, loadingFailed, modelCompilationFailed };

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

    Kind kind() const { return kind_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    AsrModelsError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
};

}  // namespace speech
