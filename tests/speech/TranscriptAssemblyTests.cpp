// Tokens to text, per-token timings and the overall confidence.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/TranscriptAssembly.h"
#include "tests/support/LogCapture.h"

namespace speech {
namespace {

using namespace TranscriptAssembly;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

const Vocabulary vocabulary{
    {1, "\xE2\x96\x81Hello"}, {2, "\xE2\x96\x81wor"}, {3, "ld"}, {4, "!"}, {5, "\n"}};

TEST(TranscriptAssemblyTest, TextJoinsKnownPiecesTurnsWordMarksIntoSpacesAndTrims) {
    struct Row {
        std::vector<int> tokens;
        std::string expected;
    };
    for (const auto& row : {Row{{1, 2, 3, 4}, "Hello world!"}, Row{{1, 99, 2, 3}, "Hello world"},
                            Row{{5, 1, 5}, "Hello"}, Row{{}, ""}, Row{{99}, ""}}) {
        EXPECT_EQ(convertTokensToText(row.tokens, vocabulary), row.expected);
    }
}

TEST(TranscriptAssemblyTest, TimingsFollowDurationsOrTheNextTokenAndNameUnknownIds) {
    // In frames of 0.08 s: 1@10 with duration 0 ends where 2@12 starts; 2@12 ends at 13, both
    // the next start and one frame on; 77@13 lasts its three frames and is named by its id;
    // 3@20 still lasts a frame though 4 starts at 20 too; the last ends a frame after its start.
    auto ends = [](const std::vector<TokenTiming>& timings) {
        std::vector<long> frames;
        for (const auto& t : timings) frames.push_back(std::lround(t.endTime / 0.08));
        return frames;
    };
    auto timings = createTokenTimings(
        std::vector<int>{1, 2, 77, 3, 4}, std::vector<int>{10, 12, 13, 20, 20},
        std::vector<float>{1, 0.6f, 1, 1, 1}, std::vector<int>{0, 0, 3, 0, 0}, vocabulary);
    EXPECT_THAT(ends(timings), ElementsAre(12, 13, 16, 21, 21));
    EXPECT_DOUBLE_EQ(timings[1].startTime, 12 * 0.08);
    EXPECT_EQ(timings[1].token, "\xE2\x96\x81wor");
    EXPECT_FLOAT_EQ(timings[1].confidence, 0.6f);
    EXPECT_EQ(timings[2].token, "token_77");

    // Durations of another length count as 0; other mismatches give no timings at all.
    EXPECT_THAT(ends(createTokenTimings(std::vector<int>{1, 2}, std::vector<int>{10, 12},
                                        std::vector<float>{1, 1}, std::vector<int>{5}, vocabulary)),
                ElementsAre(12, 13));
    EXPECT_THAT(createTokenTimings(std::vector<int>{1, 2}, std::vector<int>{10},
                                   std::vector<float>{1, 1}, {}, vocabulary),
                IsEmpty());
}

TEST(TranscriptAssemblyTest, ConfidenceIsTheBoundedMeanWithFixedValuesForEmptyAndMissing) {
    corvane::testing::LogCapture logs;
    EXPECT_FLOAT_EQ(calculateConfidence(0, true, {}), 0.1f);
    EXPECT_FLOAT_EQ(calculateConfidence(2, false, std::vector<float>{0.6f, 0.8f}), 0.7f);
    EXPECT_FLOAT_EQ(calculateConfidence(2, false, std::vector<float>{0.01f, 0.03f}), 0.1f);
    EXPECT_FLOAT_EQ(calculateConfidence(1, false, std::vector<float>{3.0f}), 1.0f);
    EXPECT_FALSE(logs.contains("Expected token confidences"));
    EXPECT_FLOAT_EQ(calculateConfidence(3, false, std::vector<float>{0.9f}), 0.5f);
    EXPECT_TRUE(logs.contains(
        "AsrManager warning: Expected token confidences but got none - this should not happen"));
}

}  // namespace
}  // namespace speech
