#pragma once
// Turns the joint's duration index into the number of frames to jump.

#include <string>
#include <vector>

#include "SpeechEngine/ASRError.h"

namespace speech::TdtDurationMapping {

inline int mapDurationBin(int index, const std::vector<int>& durationBins) {
    if (index < 0 || index >= static_cast<int>(durationBins.size())) {
        throw ASRError::processingFailed("Duration bin index out of range: " +
                                         std::to_string(index));
    }
    return durationBins[static_cast<std::size_t>(index)];
}

}  // namespace speech::TdtDurationMapping
