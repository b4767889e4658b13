#include "CorvaneApp/eligibility/EligibilityGate.h"

#include <gtest/gtest.h>

#include <thread>

#include "CorvaneApp/platform/Text.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Property = EligibilityGate::Property;
using Reasons = std::vector<std::string>;

class EligibilityGateTest : public ::testing::Test {
  protected:
    // After every mutator the cross-thread copy must equal the published verdict.
    void expectVerdict(bool eligible, std::optional<std::string> reason) {
        EXPECT_EQ(gate->isEligible(), eligible);
        EXPECT_EQ(gate->currentEligibilitySnapshot(), eligible);
        EXPECT_EQ(gate->reason(), reason);
    }

    testing::ManualExecutor executor;
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::vector<Property> changes;
    Subscription observation = gate->observe([this](Property p) { changes.push_back(p); });
};

TEST_F(EligibilityGateTest, BlankReasonsTakeNoHoldTextsAreTrimmedByTheUnicodeSet) {
    for (const char* blank : {"", "\u00A0\u2003\u3000", "\u2028\u0085"}) {
        EXPECT_EQ(gate->pause(blank), nullptr) << blank;
    }
    EXPECT_TRUE(changes.empty());
    auto handle = gate->pause("\u00A0 manual pause \n");
    EXPECT_EQ(gate->pauseReasons(), Reasons{"manual pause"});
    EXPECT_EQ(trimWhitespaceAndNewlines("\xFF x \xE2\x80"), "\xFF x \xE2\x80");  // bad bytes kept
}

TEST_F(EligibilityGateTest, NewestHoldExplainsOldestIsTemporaryEqualTextsAreSeparateHolds) {
    auto a = gate->pause("a");
    auto b = gate->pause("b");
    EXPECT_EQ(gate->temporaryPauseReason(), "a");
    EXPECT_EQ(gate->pauseReasons(), (Reasons{"a", "b"}));
    expectVerdict(false, "b");
    a->release();  // releasing the older leaves the newer in charge
    expectVerdict(false, "b");
    auto again = gate->pause("b");
    b->release();
    b->release();  // a second release removes nothing more
    expectVerdict(false, "b");
    again->release();
    expectVerdict(true, std::nullopt);
}

TEST_F(EligibilityGateTest, ScheduleInputReasonsAndNotifications) {
    gate->setScheduledOn(true, "x");
    gate->clearAllPauses();
    EXPECT_TRUE(changes.empty());  // nothing changed, nobody told
    gate->setScheduledOn(false);
    expectVerdict(false, "schedule off");
    EXPECT_EQ(changes, (std::vector<Property>{Property::isScheduledOn, Property::scheduledOffReason,
                                              Property::isEligible}));
    changes.clear();
    auto hold = gate->pause("manual pause");  // already ineligible: only the list changes
    EXPECT_EQ(changes, std::vector<Property>{Property::pauseEntries});
    expectVerdict(false, "manual pause");  // a hold outranks the schedule
    gate->setScheduledOn(false, "waiting for idle");
    hold->release();
    expectVerdict(false, "waiting for idle");
    gate->setScheduledOn(true, "dropped");
    EXPECT_EQ(gate->scheduledOffReason(), std::nullopt);
    expectVerdict(true, std::nullopt);
}

TEST_F(EligibilityGateTest, ClearedDroppedOffThreadAndOrphanedHandles) {
    auto cleared = gate->pause("a");
    gate->clearAllPauses();
    auto fresh = gate->pause("c");
    cleared->release();  // finds no entry and must not touch another's
    EXPECT_EQ(gate->pauseReasons(), Reasons{"c"});

    fresh.reset();  // a dropped handle ends its hold a turn later, not at once
    expectVerdict(false, "c");
    EXPECT_EQ(executor.runUntilIdle(), 1);
    expectVerdict(true, std::nullopt);

    auto ram = gate->pause("ram budget exhausted");
    std::thread([&] { ram->release(); }).join();  // off the main thread: deferred too
    expectVerdict(false, "ram budget exhausted");
    executor.runUntilIdle();
    expectVerdict(true, std::nullopt);

    auto orphan = gate->pause("manual pause");
    auto isEligible = gate->isEligibleFunction();
    gate.reset();
    orphan->release();
    EXPECT_EQ(executor.runUntilIdle(), 0);
    EXPECT_FALSE(isEligible());  // the worker's view outlives the gate
}

}  // namespace
}  // namespace corvane
