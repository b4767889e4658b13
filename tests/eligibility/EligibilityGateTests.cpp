#include "CorvaneApp/eligibility/EligibilityGate.h"

#include <gtest/gtest.h>

#include <thread>

#include "CorvaneApp/eligibility/UnicodeTrim.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Property = EligibilityGate::Property;
using testing::ManualExecutor;

class EligibilityGateTest : public ::testing::Test {
protected:
    EligibilityGateTest() {
        observation = gate->observe([this](Property property) { changes.push_back(property); });
    }
    // The published verdict and the cross-thread copy must agree after every mutator.
    void expectSnapshotAgrees() {
        EXPECT_EQ(gate->currentEligibilitySnapshot(), gate->isEligible());
    }

    ManualExecutor executor;
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::vector<Property> changes;
    Subscription observation;
};

TEST_F(EligibilityGateTest, BlankReasonsTakeNoHoldAndPostNoChange) {
    for (const char* blank : {"", "   \n", "\t\r\n", "\u00A0\u2003\u3000", "\u2028"}) {
        EXPECT_EQ(gate->pause(blank), nullptr) << blank;
    }
    EXPECT_TRUE(gate->isEligible());
    EXPECT_TRUE(gate->pauseEntries().empty());
    EXPECT_TRUE(changes.empty());
    auto handle = gate->pause("\u00A0 manual pause \n");
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(gate->pauseReasons(), std::vector<std::string>{"manual pause"});
}

TEST_F(EligibilityGateTest, NewestHoldExplainsOldestIsTemporaryReason) {
    auto a = gate->pause("a");
    auto b = gate->pause("b");
    EXPECT_EQ(gate->reason(), "b");
    EXPECT_EQ(gate->temporaryPauseReason(), "a");
    EXPECT_EQ(gate->pauseReasons(), (std::vector<std::string>{"a", "b"}));
    b->release();
    EXPECT_EQ(gate->reason(), "a");
    EXPECT_FALSE(gate->isEligible());
    a->release();
    EXPECT_TRUE(gate->isEligible());
    EXPECT_EQ(gate->reason(), std::nullopt);
    expectSnapshotAgrees();

    auto c = gate->pause("c");
    auto d = gate->pause("d");
    c->release();  // releasing the older leaves the newer in charge
    EXPECT_EQ(gate->reason(), "d");
    EXPECT_EQ(gate->temporaryPauseReason(), "d");
}

TEST_F(EligibilityGateTest, EqualTextsAreSeparateHoldsAndDoubleReleaseRemovesOne) {
    auto first = gate->pause("meeting in progress");
    auto second = gate->pause("meeting in progress");
    first->release();
    first->release();
    EXPECT_TRUE(first->released());
    EXPECT_EQ(gate->pauseEntries().size(), 1u);
    EXPECT_FALSE(gate->isEligible());
    second->release();
    EXPECT_TRUE(gate->isEligible());
    expectSnapshotAgrees();
}

TEST_F(EligibilityGateTest, ScheduleInputAndItsReason) {
    gate->setScheduledOn(false);
    EXPECT_EQ(gate->scheduledOffReason(), "schedule off");
    EXPECT_EQ(gate->reason(), "schedule off");
    EXPECT_FALSE(gate->isEligible());
    expectSnapshotAgrees();
    gate->setScheduledOn(false, "on battery");
    EXPECT_EQ(gate->reason(), "on battery");
    gate->setScheduledOn(true, "x");
    EXPECT_EQ(gate->scheduledOffReason(), std::nullopt);
    EXPECT_EQ(gate->reason(), std::nullopt);
    EXPECT_TRUE(gate->isEligible());

    // A hold outranks the schedule; releasing it uncovers the schedule's words.
    gate->setScheduledOn(false, "waiting for idle");
    auto hold = gate->pause("manual pause");
    EXPECT_EQ(gate->reason(), "manual pause");
    hold->release();
    EXPECT_FALSE(gate->isEligible());
    EXPECT_EQ(gate->reason(), "waiting for idle");
    expectSnapshotAgrees();
}

TEST_F(EligibilityGateTest, ObserversHearOnlyRealChanges) {
    gate->setScheduledOn(true);
    EXPECT_TRUE(changes.empty());
    gate->clearAllPauses();
    EXPECT_TRUE(changes.empty());

    gate->setScheduledOn(false, "on battery");
    EXPECT_EQ(changes, (std::vector<Property>{Property::isScheduledOn, Property::scheduledOffReason,
                                              Property::isEligible}));
    changes.clear();
    gate->setScheduledOn(false, "on battery");
    EXPECT_TRUE(changes.empty());
    auto hold = gate->pause("x");  // already ineligible: only the list changes
    EXPECT_EQ(changes, std::vector<Property>{Property::pauseEntries});
    changes.clear();
    observation.cancel();
    hold->release();
    EXPECT_TRUE(changes.empty());
}

TEST_F(EligibilityGateTest, ClearAllPausesLeavesHandlesHarmless) {
    auto a = gate->pause("a");
    auto b = gate->pause("b");
    gate->clearAllPauses();
    EXPECT_TRUE(gate->isEligible());
    EXPECT_FALSE(a->released());
    auto c = gate->pause("c");
    a->release();  // finds no entry, must not touch c's
    EXPECT_EQ(gate->pauseReasons(), std::vector<std::string>{"c"});
    expectSnapshotAgrees();
}

TEST_F(EligibilityGateTest, DroppedHandleEndsItsHoldOnTheNextTurnOnly) {
    auto handle = gate->pause("heavy");
    handle.reset();
    EXPECT_FALSE(gate->isEligible());
    EXPECT_EQ(executor.runUntilIdle(), 1);
    EXPECT_TRUE(gate->isEligible());
    expectSnapshotAgrees();
}

TEST_F(EligibilityGateTest, ReleaseFromAnotherThreadIsDeferredToTheMainSequence) {
    auto handle = gate->pause("ram budget exhausted");
    std::thread([&] {
        handle->release();
        handle->release();
    }).join();
    EXPECT_TRUE(handle->released());
    EXPECT_FALSE(gate->isEligible());
    executor.runUntilIdle();
    EXPECT_TRUE(gate->isEligible());
}

TEST_F(EligibilityGateTest, HandlesOutlivingTheGateDoNothing) {
    auto handle = gate->pause("manual pause");
    auto dropped = gate->pause("other");
    auto snapshotReader = gate->isEligibleFunction();
    gate.reset();
    handle->release();
    dropped.reset();
    EXPECT_EQ(executor.runUntilIdle(), 0);
    EXPECT_FALSE(snapshotReader());  // the worker's view survives the gate
}

TEST_F(EligibilityGateTest, SnapshotIsReadableWhileTheMainSequenceWrites) {
    auto isEligible = gate->isEligibleFunction();
    std::atomic<bool> done{false};
    std::thread reader([&] {
        while (!done.load()) (void)isEligible();
    });
    for (int i = 0; i < 2000; ++i) {
        auto hold = gate->pause("x");
        EXPECT_FALSE(isEligible());
        hold->release();
        EXPECT_TRUE(isEligible());
    }
    done = true;
    reader.join();
}

TEST(UnicodeTrimTest, TrimsTheUnicodeSetAndKeepsInnerTextAndBadBytes) {
    struct Row {
        std::string input;
        std::string expected;
    };
    const Row rows[] = {
        {"  a b  ", "a b"},
        {"\u3000\u00A0x\u2029", "x"},
        {"\u0085\u202Fy\u205F", "y"},
        {"z\u200B", "z\u200B"},  // zero-width space is not white space
        {"\xFF abc \xFE", "\xFF abc \xFE"},
        {" \xE2\x80", "\xE2\x80"},  // truncated sequence kept
        {"", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(trimWhitespaceAndNewlines(row.input), row.expected) << row.input;
}

}  // namespace
}  // namespace corvane
