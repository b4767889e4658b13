// When a paused worker lets go of its model's weights: only after the whole delay of one unbroken
// pause, never while the owner keeps them, and again later while a shard still holds them.

#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "CorvaneApp/models/WeightsReleaseTimer.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

namespace corvane::testing {
namespace {

class WeightsReleaseTimerTest : public ::testing::Test {
  protected:
    // Each answer of the handler in turn; the last one repeats.
    std::vector<WeightsRelease> answers{WeightsRelease::released};
    int asked = 0;
    bool keep = false;
    ManualExecutor main;
    WeightsReleaseTimer timer{main,
                              [this] {
                                  const auto i = std::min<std::size_t>(asked, answers.size() - 1);
                                  ++asked;
                                  return answers[i];
                              },
                              [this] { return keep; },
                              {600, 30}};
};

TEST_F(WeightsReleaseTimerTest, OnlyAnUnbrokenPauseOfTheWholeDelayReleasesAndOnlyOnce) {
    // Each step: pause or resume (or neither), then the seconds that pass; the handler's count.
    const struct {
        std::optional<bool> paused;
        double seconds;
        int asked;
    } steps[] = {
        {std::nullopt, 3600, 0},  // eligible all along
        {true, 599, 0},
        {false, 3600, 0},  // resumed a second short: the delay is off
        {true, 300, 0},
        {true, 299, 0},  // still paused: a repeated report doesn't start the delay again
        {std::nullopt, 1, 1},
        {std::nullopt, 7200, 1},  // released once, not again while the pause lasts
        {false, 10, 1},
        {true, 600, 2},  // a new pause after work: the weights go again
    };
    for (std::size_t i = 0; i < std::size(steps); ++i) {
        if (steps[i].paused) timer.setPaused(*steps[i].paused);
        main.advance(steps[i].seconds);
        EXPECT_EQ(asked, steps[i].asked) << "step " << i;
    }
}

TEST_F(WeightsReleaseTimerTest, AShardStillHoldingTheWeightsIsAskedAgainUntilItLetsGo) {
    answers = {WeightsRelease::busy, WeightsRelease::busy, WeightsRelease::released};
    timer.setPaused(true);
    main.advance(600);
    EXPECT_EQ(asked, 1);
    main.advance(29);
    EXPECT_EQ(asked, 1);
    main.advance(1);
    EXPECT_EQ(asked, 2);
    main.advance(30);
    EXPECT_EQ(asked, 3);
    main.advance(3600);
    EXPECT_EQ(asked, 3) << "released: nothing more to ask";

    // Resumed while waiting for a busy shard: the next try is off too.
    answers = {WeightsRelease::busy};
    asked = 0;
    timer.setPaused(false);
    timer.setPaused(true);
    main.advance(600);
    timer.setPaused(false);
    main.advance(3600);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(main.timerCount(), 0u);
}

TEST_F(WeightsReleaseTimerTest, AnOwnerWhoKeepsTheWeightsKeepsThemAndIsToldWhy) {
    keep = true;
    LogCapture logs;
    timer.setPaused(true);
    main.advance(3600);
    EXPECT_EQ(asked, 0);
    EXPECT_TRUE(logs.contains("keep_model_loaded is set: the weights stay in memory"));

    // The setting is read when the delay ends: the owner's change counts from the next pause.
    keep = false;
    timer.setPaused(false);
    timer.setPaused(true);
    main.advance(600);
    EXPECT_EQ(asked, 1);
}

}  // namespace
}  // namespace corvane::testing
