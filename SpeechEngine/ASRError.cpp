#include "SpeechEngine/ASRError.h"

namespace speech {

ASRError ASRError::processingFailed(const std::string& message) {
    return {Kind::processingFailed, "ASR processing failed: " + message};
}
ASRError ASRError::unsupportedPlatform(const std::string& message) {
    return {Kind::unsupportedPlatform, message};
}
ASRError ASRError::streamingConversionFailed(const std::string& error) {
    return {Kind::streamingConversionFailed, "Streaming audio conversion failed: " + error};
}
ASRError ASRError::fileAccessFailed(const std::string& path, const std::string& error) {
    return {Kind::fileAccessFailed, "Failed to access audio file at " + path + ": " + error};
}
ASRError ASRError::notInitialized() {
    return {Kind::notInitialized, "AsrManager not initialized. Call initialize() first."};
}
ASRError ASRError::invalidAudioData() {
    return {Kind::invalidAudioData,
            "Invalid audio data provided. Must be at least 300ms of 16kHz audio."};
}
ASRError ASRError::modelLoadFailed() {
    return {Kind::modelLoadFailed, "Failed to load Parakeet CoreML models."};
}
ASRError ASRError::modelCompilationFailed() {
    return {Kind::modelCompilationFailed,
            "CoreML model compilation failed after recovery attempts."};
}

}  // namespace speech
