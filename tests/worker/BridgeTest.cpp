#include <gtest/gtest.h>

#include "CorvaneApp/worker/WorkerControllerBridge.h"
#include "tests/support/ManualExecutor.h"
#include "tests/worker/WorkerTestSupport.h"

namespace corvane::testing {
namespace {

class Bridge : public WorkerFixture {
  public:
    // Runs the main sequence until the bridge has applied an event satisfying `predicate`.
    bool applyUntil(const std::function<bool(const Event&)>& predicate) {
        return spinUntil([&] {
            executor.runUntilIdle();
            const auto& events = bridge->recentEvents();
            return !events.empty() && predicate(events.back());
        });
    }
    template <typename T>
    bool applyUntil() {
        return applyUntil([](const Event& e) { return e.as<T>() != nullptr; });
    }

    void TearDown() override {
        bridge.reset();  // the bridge holds the worker; let go of it first
        finish();
    }

    ManualExecutor executor{&clock};
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor);
    std::shared_ptr<WorkerControllerBridge> bridge;
};

TEST_F(Bridge, KeepsTheNewest200EventsAndFollowsTheSnapshot) {
    start();  // every poll finds nothing: one .idle per turn
    bridge = WorkerControllerBridge::create(controller, nullptr, executor, clock.function());
    sleeper->open();
    ASSERT_TRUE(http->waitUntil([](const FakeWorkerHTTP& h) { return h.polls().size() >= 260; }));
    bridge->stop();
    ASSERT_TRUE(applyUntil<Event::Stopped>());
    EXPECT_EQ(bridge->recentEvents().size(), WorkerControllerBridge::maxRecentEvents);
    EXPECT_EQ(bridge->recentEvents().front().as<Event::Started>(), nullptr)
        << "the oldest fell off";
    EXPECT_FALSE(bridge->isRunning());
    EXPECT_FALSE(bridge->hasActiveJob());
}

TEST_F(Bridge, RepeatedMemoryGatingMakesOnePauseAndIdleEndsIt) {
    struct Gated final : MemoryGate {
        std::atomic<int> calls{0};
        std::optional<MemoryGatedReason> check(int) override {
            return ++calls <= 10 ? std::optional(MemoryGatedReason{20.0, 16.0}) : std::nullopt;
        }
    };
    auto memory = std::make_shared<Gated>();
    start([&](WorkerController::Dependencies& d) {
        d.memoryGate = memory;
        d.isEligible = [] { return true; };  // the worker keeps turning whatever the gate says
    });
    bridge = WorkerControllerBridge::create(controller, gate, executor, clock.function());
    // Ten gated turns have nine sleeps between them; the tenth turn's sleep stays pending.
    for (int i = 0; i < 9; ++i) ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(applyUntil([&](const Event&) {
        int gated = 0;
        for (const auto& e : bridge->recentEvents()) gated += e.as<Event::RamGated>() != nullptr;
        return gated == 10;
    }));
    EXPECT_EQ(gate->pauseReasons(), (std::vector<std::string>{"ram budget exhausted"}));
    EXPECT_FALSE(gate->isEligible());
    ASSERT_TRUE(sleeper->releaseNext(kRecheck));
    ASSERT_TRUE(applyUntil<Event::Idle>());
    executor.runUntilIdle();
    EXPECT_TRUE(gate->pauseReasons().empty());
}

TEST_F(Bridge, StageTimingsAndHeartbeatsReachTheLogsAndTheSnapshot) {
    config.heartbeatInterval = 30.5;
    Gate& hold = newGate();
    auto loader = [&](const ModelIdentifier& id, std::stop_token) {
        box.replace(std::make_shared<ScriptedHandler>(
            id, [&](const ClaimedJob& job, const StageObserver& observe, std::stop_token) {
                observe(ModelHandlerStage::inference, 2.0);
                hold.wait();
                return ScriptedHandler::transcript(job, "x");
            }));
    };
    loader(kModelA, {});
    http->queueClaims({makeClaim("j", "s", kModelB)});
    start([&](WorkerController::Dependencies& d) { d.handlerLoader = loader; });
    bridge = WorkerControllerBridge::create(controller, gate, executor, clock.function());
    ASSERT_TRUE(applyUntil([&](const Event&) { return bridge->recentStageTimings().size() == 3; }));
    std::vector<Event::Stage> stages;
    for (const auto& t : bridge->recentStageTimings()) stages.push_back(t.stage);
    EXPECT_EQ(stages, (std::vector<Event::Stage>{Event::Stage::modelSwap, Event::Stage::download,
                                                 Event::Stage::inference}));
    EXPECT_TRUE(bridge->hasActiveJob());
    ASSERT_TRUE(sleeper->releaseNext(30.5));
    ASSERT_TRUE(applyUntil<Event::Heartbeat>());
    Date beat = bridge->recentEvents().back().as<Event::Heartbeat>()->at;
    ASSERT_TRUE(bridge->snapshot().lastHeartbeatAt.has_value());
    EXPECT_GE(*bridge->snapshot().lastHeartbeatAt, beat);
    hold.open();
}

}  // namespace
}  // namespace corvane::testing
