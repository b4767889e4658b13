#pragma once
// From token ids to what the user gets: text, per-token timings and the overall confidence.

#include <span>
#include <string>
#include <vector>

#include "SpeechEngine/ASRResult.h"
#include "SpeechEngine/Vocabulary.h"

namespace speech::TranscriptAssembly {

inline constexpr double frameSeconds = 0.08;  // one encoder frame

// Joins the vocabulary's texts of `tokens` (unknown ids skipped), turns "▁" into spaces, trims.
std::string convertTokensToText(std::span<const int> tokens, const Vocabulary& vocabulary);

// One timing per token; empty unless ids, timestamps and confidences have one equal, non-zero
// length. Durations of another length count as all 0.
std::vector<TokenTiming> createTokenTimings(std::span<const int> tokenIds,
                                            std::span<const int> timestamps,
                                            std::span<const float> confidences,
                                            std::span<const int> durations,
                                            const Vocabulary& vocabulary);

// Mean token confidence in [0.1, 1.0]; 0.1 for an empty transcript.
float calculateConfidence(std::size_t tokenCount, bool isEmpty,
                          std::span<const float> tokenConfidences);

}  // namespace speech::TranscriptAssembly
