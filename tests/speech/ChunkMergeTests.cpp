// The merging of neighbouring chunks' tokens. Frame f starts at f x 0.08 s and ends 0.08 s
// later; every expected list below is worked out from those spans. Tokens are written
// "token@frame".

#include <gtest/gtest.h>

#include <sstream>

#include "SpeechEngine/ChunkProcessor.h"

namespace speech {
namespace {

std::vector<ChunkProcessor::Token> parse(const std::string& text) {
    std::vector<ChunkProcessor::Token> tokens;
    std::istringstream in(text);
    int token = 0, frame = 0;
    char at = 0;
    while (in >> token >> at >> frame) tokens.push_back({token, frame, 1.0f, 1});
    return tokens;
}

std::string show(const std::vector<ChunkProcessor::Token>& tokens) {
    std::string out;
    for (const auto& t : tokens)
        out +=
            (out.empty() ? "" : " ") + std::to_string(t.token) + "@" + std::to_string(t.timestamp);
    return out;
}

TEST(ChunkMergeTest, NeighbouringChunksSayTheirOverlapOnce) {
    struct Row {
        std::string left, right, expected;
    };
    std::vector<Row> rows{
        // An empty side, or chunks that do not reach each other (left ends at 8.08 s, right
        // starts at 8.16 s), join without search.
        {"", "2@5", "2@5"},
        {"1@5", "", "1@5"},
        {"1@100", "1@102", "1@100 1@102"},
        // leftEnd 111 x 0.08 + 0.08 = 8.96, rightStart 109 x 0.08 = 8.72. Right overlap (starts
        // before 10.96): only 3@109, so cut at (8.96 + 8.72) / 2 = 8.84: keep left below it
        // (1@100), right at or after it (4@140). 2@111 (8.88) and 3@109 (8.72) fall out.
        {"1@100 2@111", "3@109 4@140", "1@100 4@140"},
        // Left overlap (ends after 8.48 - 2): 1,2,3,4 -> minimum max(4, 3) / 2 = 2. The run 2,3
        // (starts 0.08 s apart) is long enough: keep left up to it, its left copies, then the
        // right after it. Left's 4@115 is dropped though the right doesn't have it.
        {"9@50 1@100 2@105 3@110 4@115", "2@106 3@111 5@116 6@121",
         "9@50 1@100 2@105 3@110 5@116 6@121"},
        // Two left tokens in the overlap: minimum max(2, 3) / 2 = 1, so the first run of one
        // (1@100 with 1@101) merges, and the right follows it: 7@103, 2@106. The common
        // subsequence would have paired the 2s too and kept left's 2@105.
        {"9@50 1@100 2@105", "1@101 7@103 2@106", "9@50 1@100 7@103 2@106"},
        // Left overlap 1,2,3,4, right 2,7,4,8: the longest run is 1 (below 2). The subsequence
        // 2,4 matches; between them left [3] and right [7] are equally long, so left's stays;
        // then 8.
        {"9@50 1@100 2@105 3@110 4@115", "2@106 7@111 4@116 8@121",
         "9@50 1@100 2@105 3@110 4@115 8@121"},
        // Nine left tokens need a run of 4: a run of 3 (10,11,12) goes to the subsequence, which
        // also pairs 13 after the right's extra 50: the gap [ ] vs [50] keeps the right's 50.
        {"10@100 11@101 12@102 13@103 14@104 15@105 16@106 17@107 18@108",
         "10@100 11@101 12@102 50@103 13@103 60@120", "10@100 11@101 12@102 50@103 13@103 60@120"},
        // Left 1,2,1,2 against right 1,2,5: runs at left 0 and left 2 are both 2 long (starts
        // within 1 s); the first one is used, so left's second 1,2 is dropped.
        {"1@100 2@102 1@104 2@106", "1@101 2@103 5@108", "1@100 2@102 5@108"},
        // Matches 1 and 2 only (five left overlap tokens need a run of 2; only runs of 1
        // exist). Between them the longer side's gap is kept, the left's on a tie.
        {"1@100 10@101 11@102 12@103 2@104", "1@100 20@101 21@102 22@103 2@104 30@110",
         "1@100 10@101 11@102 12@103 2@104 30@110"},
        {"1@100 10@101 11@102 12@103 2@104", "1@100 20@101 21@101 22@102 23@103 2@104 30@110",
         "1@100 20@101 21@101 22@102 23@103 2@104 30@110"},
        // 6@113 (9.04 s) vs 6@100 (8.0 s) and 5@100 vs 5@113 differ by 1.04 s: nothing agrees,
        // so cut at (9.12 + 8.0) / 2 = 8.56.
        {"5@100 6@113", "6@100 5@113", "5@100 5@113"},
    };
    std::vector<float> none;
    ArraySampleSource source{none};
    ChunkProcessor processor{source, 0};
    for (const auto& row : rows) {
        EXPECT_EQ(show(processor.mergeChunks(parse(row.left), parse(row.right))), row.expected)
            << row.left << " | " << row.right;
    }
}

}  // namespace
}  // namespace speech
