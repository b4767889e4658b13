#pragma once
// The recogniser's error: one case per way a transcription can fail, each with a fixed text.

#include <string>

#include "SpeechEngine/TypedError.h"

namespace speech {

enum class ASRErrorKind {
    processingFailed,
    unsupportedPlatform,
    streamingConversionFailed,
    fileAccessFailed,
    notInitialized,
    invalidAudioData,
    modelLoadFailed,
    modelCompilationFailed
};

class ASRError : public TypedError<ASRErrorKind> {
  public:
    static ASRError processingFailed(const std::string& message);
    static ASRError unsupportedPlatform(const std::string& message);
    static ASRError streamingConversionFailed(const std::string& error);
    static ASRError fileAccessFailed(const std::string& path, const std::string& error);
    static ASRError notInitialized();
    static ASRError invalidAudioData();
    static ASRError modelLoadFailed();
    static ASRError modelCompilationFailed();

  private:
    using TypedError::TypedError;
};

}  // namespace speech
