#pragma once
// The recogniser's error: one case per way a transcription can fail, each with a fixed text.

#include <exception>
#include <string>

namespace speech {

class ASRError : public std::exception {
  public:
    enum class Kind {
        processingFailed,
        unsupportedPlatform,
        streamingConversionFailed,
        fileAccessFailed,
        notInitialized,
        invalidAudioData,
        modelLoadFailed,
        modelCompilationFailed
    };

    static ASRError processingFailed(const std::string& message);
    static ASRError unsupportedPlatform(const std::string& message);
    static ASRError streamingConversionFailed(const std::string& error);
    static ASRError fileAccessFailed(const std::string& path, const std::string& error);
    static ASRError notInitialized();
    static ASRError invalidAudioData();
    static ASRError modelLoadFailed();
    static ASRError modelCompilationFailed();

    Kind kind() const { return kind_; }
    const std::string& errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    ASRError(Kind kind, std::string description)
        : kind_(kind), description_(std::move(description)) {}

    Kind kind_;
    std::string description_;
};

}  // namespace speech
