#pragma once
// The lines two versions of a file don't share, by longest common subsequence: a line that
// moved counts as removed and added.

#include <algorithm>
#include <string>
#include <vector>

namespace corvane::testing {

struct Diff {
    std::vector<std::string> removed, added;
};

inline Diff diffLines(const std::vector<std::string>& before,
                      const std::vector<std::string>& after) {
    size_t n = before.size(), m = after.size();
    std::vector<std::vector<int>> common(n + 1, std::vector<int>(m + 1, 0));
    for (size_t i = n; i-- > 0;) {
        for (size_t j = m; j-- > 0;) {
            common[i][j] = before[i] == after[j] ? common[i + 1][j + 1] + 1
                                                 : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    Diff diff;
    for (size_t i = 0, j = 0; i < n || j < m;) {
        if (i < n && j < m && before[i] == after[j]) {
            ++i, ++j;
        } else if (j < m && (i == n || common[i][j + 1] >= common[i + 1][j])) {
            diff.added.push_back(after[j++]);
        } else {
            diff.removed.push_back(before[i++]);
        }
    }
    return diff;
}

}  // namespace corvane::testing
