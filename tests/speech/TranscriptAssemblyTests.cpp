// Tokens to text, per-token timings and the overall confidence.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SpeechEngine/TranscriptAssembly.h"
#include "tests/support/LogCapture.h"

namespace speech {
namespace {

using namespace TranscriptAssembly;
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
    // Timestamps 10 and 12 with durations 0, 0: the first ends where the second starts
    // (max(12 x 0.08, 0.8 + 0.08) = 0.96), the last ends one frame after its start (1.04).
    auto timings =
        createTokenTimings(std::vector<int>{1, 2}, std::vector<int>{10, 12},
                           std::vector<float>{0.5f, 0.6f}, std::vector<int>{0, 0}, vocabulary);
    ASSERT_EQ(timings.size(), 2u);
    EXPECT_DOUBLE_EQ(timings[0].startTime, 0.8);
    EXPECT_DOUBLE_EQ(timings[0].endTime, 0.96);
    EXPECT_DOUBLE_EQ(timings[1].endTime, 1.04);
    EXPECT_EQ(timings[1].token, "\xE2\x96\x81wor");
    EXPECT_FLOAT_EQ(timings[1].confidence, 0.6f);

    // Duration 1 lasts one frame, 3 lasts three; a following token that starts at the same frame
    // still leaves a token one frame long; an unknown id is named by its number.
    timings = createTokenTimings(std::vector<int>{1, 77, 3, 4}, std::vector<int>{5, 6, 20, 20},
                                 std::vector<float>{1, 1, 1, 1}, std::vector<int>{1, 3, 0, 0},
                                 vocabulary);
    ASSERT_EQ(timings.size(), 4u);
    EXPECT_NEAR(timings[0].endTime - timings[0].startTime, 0.08, 1e-12);
    EXPECT_NEAR(timings[1].endTime - timings[1].startTime, 0.24, 1e-12);
    EXPECT_EQ(timings[1].token, "token_77");
    EXPECT_NEAR(timings[2].endTime, 1.68, 1e-12);

    // Durations of another length count as 0; other mismatches give no timings at all.
    timings = createTokenTimings(std::vector<int>{1, 2}, std::vector<int>{10, 12},
                                 std::vector<float>{1, 1}, std::vector<int>{5}, vocabulary);
    EXPECT_DOUBLE_EQ(timings[0].endTime, 0.96);
    EXPECT_THAT(createTokenTimings(std::vector<int>{1, 2}, std::vector<int>{10},
                                   std::vector<float>{1, 1}, {}, vocabulary),
                IsEmpty());
    EXPECT_THAT(createTokenTimings({}, {}, {}, {}, vocabulary), IsEmpty());
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
