#include "SpeechEngine/SequenceMatcher.h"

#include <algorithm>

namespace speech::SequenceMatcher {

std::vector<std::pair<std::size_t, std::size_t>> findLongestCommonSubsequence(
    std::size_t leftCount, std::size_t rightCount,
    const std::function<bool(std::size_t, std::size_t)>& agree) {
    // lengths[i][j]: LCS length of left[i..] and right[j..]; walked forward to give pairs in order.
    std::vector<std::vector<std::size_t>> lengths(leftCount + 1,
                                                  std::vector<std::size_t>(rightCount + 1, 0));
    for (std::size_t i = leftCount; i-- > 0;) {
        for (std::size_t j = rightCount; j-- > 0;) {
            lengths[i][j] = agree(i, j) ? lengths[i + 1][j + 1] + 1
                                        : std::max(lengths[i + 1][j], lengths[i][j + 1]);
        }
    }
    std::vector<std::pair<std::size_t, std::size_t>> pairs;
    std::size_t i = 0;
    std::size_t j = 0;
    while (i < leftCount && j < rightCount) {
        if (agree(i, j) && lengths[i][j] == lengths[i + 1][j + 1] + 1) {
            pairs.emplace_back(i++, j++);
        } else if (lengths[i + 1][j] >= lengths[i][j + 1]) {
            ++i;
        } else {
            ++j;
        }
    }
    return pairs;
}

}  // namespace speech::SequenceMatcher
