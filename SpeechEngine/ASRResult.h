#pragma once
// What one transcription gives: text, overall confidence, audio and processing seconds, and the
// timing of every token.

#include <optional>
#include <string>
#include <vector>

namespace speech {

struct TokenTiming {
    std::string token;
    int tokenId = 0;
    double startTime = 0;  // seconds
    double endTime = 0;
    float confidence = 0;

    bool operator==(const TokenTiming&) const = default;
};

// Timing figures of one transcription; unused on the worker's road.
struct ASRPerformanceMetrics {
    double preprocessorSeconds = 0;
    double encoderSeconds = 0;
    double decoderSeconds = 0;

    bool operator==(const ASRPerformanceMetrics&) const = default;
};

struct ASRResult {
    std::string text;
    float confidence = 0;
    double duration = 0;        // seconds of audio
    double processingTime = 0;  // seconds
    std::optional<std::vector<TokenTiming>> tokenTimings;
    std::optional<ASRPerformanceMetrics> performanceMetrics;
    std::optional<std::vector<std::string>> ctcDetectedTerms;
    std::optional<std::vector<std::string>> ctcAppliedTerms;

    bool operator==(const ASRResult&) const = default;
};

}  // namespace speech
