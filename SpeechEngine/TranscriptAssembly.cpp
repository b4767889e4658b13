#include "SpeechEngine/TranscriptAssembly.h"

#include <algorithm>
#include <numeric>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace speech::TranscriptAssembly {

std::string convertTokensToText(std::span<const int> tokens, const Vocabulary& vocabulary) {
    std::string joined;
    for (int token : tokens) {
        auto it = vocabulary.find(token);
        if (it != vocabulary.end()) joined += it->second;
    }
    static constexpr std::string_view wordMark = "\xE2\x96\x81";  // U+2581, the word-start mark
    std::string text;
    text.reserve(joined.size());
    for (std::size_t i = 0; i < joined.size();) {
        if (joined.compare(i, wordMark.size(), wordMark) == 0) {
            text.push_back(' ');
            i += wordMark.size();
        } else {
            text.push_back(joined[i++]);
        }
    }
    return std::string(corvane::trimAsciiWhitespace(text));
}

std::vector<TokenTiming> createTokenTimings(std::span<const int> tokenIds,
                                            std::span<const int> timestamps,
                                            std::span<const float> confidences,
                                            std::span<const int> durations,
                                            const Vocabulary& vocabulary) {
    std::vector<TokenTiming> timings;
    std::size_t count = tokenIds.size();
    if (count == 0 || timestamps.size() != count || confidences.size() != count) return timings;
    bool haveDurations = durations.size() == count;
    timings.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        double start = timestamps[i] * frameSeconds;
        int duration = haveDurations ? durations[i] : 0;
        double end;
        if (duration >= 1) {
            end = start + std::max(duration * frameSeconds, frameSeconds);
        } else if (i + 1 < count) {
            end = std::max(timestamps[i + 1] * frameSeconds, start + frameSeconds);
        } else {
            end = start + frameSeconds;
        }
        end = std::max(end, start + 0.001);
        auto it = vocabulary.find(tokenIds[i]);
        std::string text =
            it != vocabulary.end() ? it->second : "token_" + std::to_string(tokenIds[i]);
        timings.push_back(TokenTiming{std::move(text), tokenIds[i], start, end, confidences[i]});
    }
    return timings;
}

float calculateConfidence(std::size_t tokenCount, bool isEmpty,
                          std::span<const float> tokenConfidences) {
    if (isEmpty) return 0.1f;
    if (!tokenConfidences.empty() && tokenConfidences.size() == tokenCount) {
        float mean = std::accumulate(tokenConfidences.begin(), tokenConfidences.end(), 0.0f) /
                     static_cast<float>(tokenConfidences.size());
        return std::max(std::min(mean, 1.0f), 0.1f);
    }
    corvane::log::get("AsrManager")
        ->warn("Expected token confidences but got none - this should not happen");
    return 0.5f;
}

}  // namespace speech::TranscriptAssembly
