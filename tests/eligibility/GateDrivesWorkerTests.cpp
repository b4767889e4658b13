// The gate and the memory admission gate wired into a real WorkerController, as the application
// wires them: the worker sees eligibility only through the snapshot function.

#include <gtest/gtest.h>

#include <atomic>

#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"
#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"
#include "tests/support/ManualExecutor.h"
#include "tests/worker/WorkerTestSupport.h"

namespace corvane::testing {
namespace {

class GateDrivesWorker : public WorkerFixture {
  protected:
    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    std::atomic<bool> onAC{false};
    IdleEligibilityMonitor monitor{gate,
                                   executor,
                                   {[] { return 0.0; }, [] { return 20.0; }, [] { return 10.0; }},
                                   {[](Date) { return true; }, [] { return 0.0; },
                                    [this] { return onAC.load(); }, clock.function()}};
};

TEST_F(GateDrivesWorker, IneligibleTurnsPauseOnceAndPollNothingUntilTheGateOpens) {
    monitor.start();
    ASSERT_EQ(gate->reason(), "on battery");
    eligible = gate->isEligibleFunction();
    start();
    // Four ineligible turns: the first and three rechecks five seconds apart.
    for (int i = 0; i < 3; ++i) ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(sleeper->waitForRequests(4, kRecheck));
    EXPECT_TRUE(http->polls().empty());

    onAC = true;
    executor.advance(5);  // the monitor's tick
    ASSERT_TRUE(gate->isEligible());
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(awaitEvent<Event::Idle>());
    EXPECT_EQ(countSeen<Event::Paused>(), 1);
    EXPECT_EQ(countSeen<Event::Resumed>(), 1);
    EXPECT_EQ(http->polls().size(), 1u);
}

TEST_F(GateDrivesWorker, MemoryAdmissionFailsClosedThenAdmitsThroughTheRunLoop) {
    std::atomic<bool> ramReadable{false};
    std::atomic<double> used{30.0};
    auto memory = std::make_shared<MemoryAdmissionGate>(
        MemoryAdmissionProbes{[&]() -> std::optional<double> {
                                  if (!ramReadable) return std::nullopt;
                                  return used.load();
                              },
                              [] { return 20.0; }, [] { return MemoryBudget::away(); }});
    start([&](WorkerController::Dependencies& d) { d.memoryGate = memory; });

    ASSERT_TRUE(awaitEvent<Event::RamGated>());
    auto failure = seen.back().as<Event::RamGated>()->reason;
    EXPECT_TRUE(failure.isProbeFailure());
    EXPECT_EQ(failure.description(), "RAM probe unavailable \u2014 holding admission");
    EXPECT_FALSE(failure == failure);  // so a de-duplicating reader reports every failure
    ramReadable = true;                // readable, but over the budget
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(awaitEvent<Event::RamGated>());
    EXPECT_EQ(seen.back().as<Event::RamGated>()->reason, (MemoryGatedReason{30.0, 20.0}));
    EXPECT_TRUE(http->polls().empty());

    used = 11.0;  // 11 + 1.5 + 1.5 = 14 = 20 - 6: admitted
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(awaitEvent<Event::Idle>());
    EXPECT_EQ(http->polls().size(), 1u);
    EXPECT_EQ(countSeen<Event::RamGated>(), 2);
}

}  // namespace
}  // namespace corvane::testing
