#pragma once
// The lines two versions of a file don't share, by longest common subsequence: a line that
// moved counts as removed and added.

#include <algorithm>
#include <cstddef>
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

// The lines an edit of a file changed: diffLines of the stretch between the common head and tail
// (so that large files stay cheap), not counting the CR that the former last line of a CRLF file
// gains once lines are added after it.
inline Diff diffEditedLines(const std::vector<std::string>& before,
                            const std::vector<std::string>& after) {
    size_t head = 0;
    while (head < before.size() && head < after.size() && before[head] == after[head]) ++head;
    size_t tail = 0;
    while (tail < before.size() - head && tail < after.size() - head &&
           before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
        ++tail;
    auto stretch = [&](const std::vector<std::string>& lines) {
        return std::vector<std::string>(lines.begin() + static_cast<std::ptrdiff_t>(head),
                                        lines.end() - static_cast<std::ptrdiff_t>(tail));
    };
    Diff diff = diffLines(stretch(before), stretch(after));
    if (!before.empty()) {
        auto removed = std::find(diff.removed.begin(), diff.removed.end(), before.back());
        auto added = std::find(diff.added.begin(), diff.added.end(), before.back() + "\r");
        if (removed != diff.removed.end() && added != diff.added.end()) {
            diff.removed.erase(removed);
            diff.added.erase(added);
        }
    }
    return diff;
}

}  // namespace corvane::testing
