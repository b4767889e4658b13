// Window geometry and the merging of neighbouring chunks' tokens. Frame f starts at f x 0.08 s
// and ends 0.08 s later; every expected list below is worked out from those spans.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/ChunkProcessor.h"

namespace speech {
namespace {

using ::testing::ElementsAre;
using Token = ChunkProcessor::Token;

Token T(int token, int frame) {
    return {token, frame, 1.0f, 1};
}

// "token@frame" for readable failures.
std::vector<std::string> show(const std::vector<Token>& tokens) {
    std::vector<std::string> out;
    for (const auto& t : tokens)
        out.push_back(std::to_string(t.token) + "@" + std::to_string(t.timestamp));
    return out;
}

class ChunkMergeTest : public ::testing::Test {
  protected:
    std::vector<std::string> merge(const std::vector<Token>& left,
                                   const std::vector<Token>& right) {
        return show(processor.mergeChunks(left, right));
    }
    std::vector<float> none;
    ArraySampleSource source{none};
    ChunkProcessor processor{source, 0};
};

TEST_F(ChunkMergeTest, GeometryAndSchedule) {
    auto g = processor.geometry();
    EXPECT_EQ(g.chunkSamples, 238080);  // (240000 - 1280 - 160) floored to whole frames
    EXPECT_EQ(g.overlapSamples, 32000);
    EXPECT_EQ(g.strideSamples, 206080);

    using Plan = ChunkProcessor::ChunkPlan;
    // One sample over a window: [0, 238080), then from 206080 with a frame of context, last.
    EXPECT_THAT(ChunkProcessor(source, 240001).plan(),
                ElementsAre(Plan{0, 238080, 0, false}, Plan{206080, 240001, 1280, true}));
    // 500000 samples: the third chunk starts at 412160 and is the last.
    EXPECT_THAT(ChunkProcessor(source, 500000).plan(),
                ElementsAre(Plan{0, 238080, 0, false}, Plan{206080, 444160, 1280, false},
                            Plan{412160, 500000, 1280, true}));
    EXPECT_TRUE(ChunkProcessor(source, 0).plan().empty());
}

TEST_F(ChunkMergeTest, EmptySidesAndChunksThatDoNotReachEachOtherJoinWithoutSearch) {
    EXPECT_THAT(merge({}, {T(2, 5)}), ElementsAre("2@5"));
    EXPECT_THAT(merge({T(1, 5)}, {}), ElementsAre("1@5"));
    // left ends at 8.08 s, right starts at 8.16 s
    EXPECT_THAT(merge({T(1, 100)}, {T(1, 102)}), ElementsAre("1@100", "1@102"));
}

TEST_F(ChunkMergeTest, ASingleTokenOnOneSideCutsAtTheMidpoint) {
    // leftEnd 111 x 0.08 + 0.08 = 8.96, rightStart 109 x 0.08 = 8.72. Right overlap (starts
    // before 10.96): only 3@109, so cut at (8.96 + 8.72) / 2 = 8.84: keep left below it (1@100),
    // right at or after it (4@140). 2@111 (8.88) and 3@109 (8.72) fall out.
    EXPECT_THAT(merge({T(1, 100), T(2, 111)}, {T(3, 109), T(4, 140)}),
                ElementsAre("1@100", "4@140"));
}

TEST_F(ChunkMergeTest, ARunAsLongAsTheMinimumMergesAndLeftTokensAfterItAreLost) {
    // Left overlap (ends after 8.48 - 2): 1,2,3,4 -> minimum max(4, 3) / 2 = 2. The run 2,3
    // (starts 0.08 s apart) is long enough: keep left up to it, its left copies, then the right
    // after it. Left's 4@115 is dropped though the right doesn't have it.
    EXPECT_THAT(merge({T(9, 50), T(1, 100), T(2, 105), T(3, 110), T(4, 115)},
                      {T(2, 106), T(3, 111), T(5, 116), T(6, 121)}),
                ElementsAre("9@50", "1@100", "2@105", "3@110", "5@116", "6@121"));
    // Two left tokens in the overlap: minimum max(2, 3) / 2 = 1, so the first run of one (1@100
    // with 1@101) merges, and the right follows it: 7@103, 2@106. The common subsequence would
    // have paired the 2s too and kept left's 2@105.
    EXPECT_THAT(merge({T(9, 50), T(1, 100), T(2, 105)}, {T(1, 101), T(7, 103), T(2, 106)}),
                ElementsAre("9@50", "1@100", "7@103", "2@106"));
}

TEST_F(ChunkMergeTest, RunsShorterThanTheMinimumFallBackToTheCommonSubsequence) {
    // Left overlap 1,2,3,4, right 2,7,4,8: the longest run is 1 (below 2). The subsequence 2,4
    // matches; between them left [3] and right [7] are equally long, so left's stays; then 8.
    EXPECT_THAT(merge({T(9, 50), T(1, 100), T(2, 105), T(3, 110), T(4, 115)},
                      {T(2, 106), T(7, 111), T(4, 116), T(8, 121)}),
                ElementsAre("9@50", "1@100", "2@105", "3@110", "4@115", "8@121"));
    // Nine left tokens need a run of 4: a run of 3 (10,11,12) goes to the subsequence, which
    // also pairs 13 after the right's extra 50: the gap [ ] vs [50] keeps the right's 50.
    std::vector<Token> left, right;
    for (int i = 0; i < 9; ++i) left.push_back(T(10 + i, 100 + i));
    right = {T(10, 100), T(11, 101), T(12, 102), T(50, 103), T(13, 103), T(60, 120)};
    EXPECT_THAT(merge(left, right),
                ElementsAre("10@100", "11@101", "12@102", "50@103", "13@103", "60@120"));
}

TEST_F(ChunkMergeTest, TheFirstOfEquallyLongRunsWins) {
    // Left 1,2,1,2 against right 1,2,5: runs at left 0 and left 2 are both 2 long (starts within
    // 1 s); the first one is used, so left's second 1,2 is dropped.
    EXPECT_THAT(
        merge({T(1, 100), T(2, 102), T(1, 104), T(2, 106)}, {T(1, 101), T(2, 103), T(5, 108)}),
        ElementsAre("1@100", "2@102", "5@108"));
}

TEST_F(ChunkMergeTest, GapsBetweenMatchesKeepTheLongerSideAndLeftOnATie) {
    // Matches 1 and 2 (five left overlap tokens need a run of 2; only runs of 1 exist).
    EXPECT_THAT(merge({T(1, 100), T(10, 101), T(11, 102), T(12, 103), T(2, 104)},
                      {T(1, 100), T(20, 101), T(21, 102), T(22, 103), T(2, 104), T(30, 110)}),
                ElementsAre("1@100", "10@101", "11@102", "12@103", "2@104", "30@110"));
    EXPECT_THAT(
        merge({T(1, 100), T(10, 101), T(11, 102), T(12, 103), T(2, 104)},
              {T(1, 100), T(20, 101), T(21, 101), T(22, 102), T(23, 103), T(2, 104), T(30, 110)}),
        ElementsAre("1@100", "20@101", "21@101", "22@102", "23@103", "2@104", "30@110"));
}

TEST_F(ChunkMergeTest, EqualTokensAFullSecondApartDoNotAgree) {
    // 6@113 (9.04 s) vs 6@100 (8.0 s) and 5@100 vs 5@113 differ by 1.04 s: nothing agrees, so
    // cut at (9.12 + 8.0) / 2 = 8.56.
    EXPECT_THAT(merge({T(5, 100), T(6, 113)}, {T(6, 100), T(5, 113)}),
                ElementsAre("5@100", "5@113"));
}

}  // namespace
}  // namespace speech
