#pragma once
// Longest common subsequence of two token lists under a caller's notion of "the same token".

#include <functional>
#include <utility>
#include <vector>

namespace speech::SequenceMatcher {

// Index pairs (i into the left list, j into the right), increasing in both, of one longest
// common subsequence; empty when nothing agrees. `agree(i, j)` compares left[i] with right[j].
std::vector<std::pair<std::size_t, std::size_t>> findLongestCommonSubsequence(
    std::size_t leftCount, std::size_t rightCount,
    const std::function<bool(std::size_t, std::size_t)>& agree);

}  // namespace speech::SequenceMatcher
