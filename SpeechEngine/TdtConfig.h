#pragma once
// Settings of the token-and-duration transducer's greedy decoding.

#include <vector>

namespace speech {

struct TdtConfig {
    bool includeTokenDuration = true;
    int maxSymbolsPerStep = 10;                    // most tokens emitted at one frame
    std::vector<int> durationBins{0, 1, 2, 3, 4};  // frames to jump, by the joint's duration index
    int blankId = 8192;
    int boundarySearchFrames = 20;  // streaming only
    int maxTokensPerChunk = 150;    // limit of one decoder call
    int consecutiveBlankLimit = 5;  // blanks that end the last chunk's tail

    bool operator==(const TdtConfig&) const = default;
};

}  // namespace speech
