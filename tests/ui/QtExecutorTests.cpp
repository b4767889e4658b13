#include "CorvaneApp/ui/shell/QtExecutor.h"

#include <gtest/gtest.h>

#include <QThread>

#include <condition_variable>
#include <thread>

#include "tests/support/LogCapture.h"
#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

using testing::runEventsUntil;

class QtExecutorTest : public ::testing::Test {
  protected:
    void SetUp() override { executor = std::make_unique<QtExecutor>(testing::qtTestApp()); }
    static bool onQtThread() { return QThread::currentThread() == qApp->thread(); }

    std::unique_ptr<QtExecutor> executor;
};

TEST_F(QtExecutorTest, PostedWorkRunsOnTheQtThreadInPostingOrderFromAnyThread) {
    constexpr int kThreads = 4, kPerThread = 250;
    std::vector<std::vector<int>> seen(kThreads);  // touched only on the Qt thread
    std::atomic<int> offThread{0};
    int total = 0;
    std::vector<std::jthread> posters;
    for (int t = 0; t < kThreads; ++t) {
        posters.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                executor->post([&, t, i] {
                    if (!onQtThread()) ++offThread;
                    seen[t].push_back(i);
                    ++total;
                });
            }
        });
    }
    posters.clear();  // joins
    ASSERT_TRUE(runEventsUntil([&] { return total == kThreads * kPerThread; }));
    EXPECT_EQ(offThread.load(), 0);
    for (const auto& sequence : seen) {
        ASSERT_EQ(sequence.size(), std::size_t(kPerThread));
        EXPECT_TRUE(std::is_sorted(sequence.begin(), sequence.end()));
    }
}

TEST_F(QtExecutorTest, TimersFireInDueOrderAndOneCancelledByAnotherDueWithItNeverFires) {
    std::vector<std::string> fired;
    // Gaps wide enough that a descheduled test thread can't turn the order round.
    auto late = executor->scheduleOnce(0.250, [&] { fired.push_back("late"); });
    TimerHandle cancelled;
    // Both due in the same pass of the loop, before any posted deletion can run.
    auto first = executor->scheduleOnce(0.0, [&] {
        fired.push_back("first");
        cancelled.cancel();
    });
    cancelled = executor->scheduleOnce(0.0, [&] { fired.push_back("cancelled"); });
    auto middle = executor->scheduleOnce(0.020, [&] { fired.push_back("middle"); });
    ASSERT_TRUE(runEventsUntil([&] { return fired.size() >= 3; }));
    EXPECT_EQ(fired, (std::vector<std::string>{"first", "middle", "late"}));
    // Fired one-shots and the cancelled timers are all let go.
    EXPECT_TRUE(runEventsUntil([&] { return executor->liveTimerCount() == 0; }));
}

TEST_F(QtExecutorTest, TimersCancelledOrDestroyedOnOtherThreadsNeverFireAfterwards) {
    // Scheduled on another thread: runs on the Qt thread; dropped there at once: never starts.
    std::atomic<bool> dropped{false};
    bool ranOnQtThread = false;
    TimerHandle kept;
    std::jthread([&] {
        kept = executor->scheduleOnce(0.0, [&] { ranOnQtThread = onQtThread(); });
        auto handle = executor->scheduleOnce(0.0, [&] { dropped = true; });
    }).join();

    // Repeating timers destroyed by other threads while they fire. After a thread's cancel has
    // returned it posts a marker; once the marker has run, no fire of that timer may follow.
    constexpr int kTimers = 8;
    struct Probe {
        std::atomic<int> fires{0};
        std::atomic<bool> markerRan{false};
        std::atomic<int> firesAfterMarker{0};
    };
    std::vector<Probe> probes(kTimers);
    std::mutex mutex;
    std::condition_variable firing;
    std::vector<std::jthread> cancellers;
    for (int i = 0; i < kTimers; ++i) {
        auto handle = executor->scheduleRepeating(0.001, [&, i] {
            if (probes[i].markerRan) ++probes[i].firesAfterMarker;
            ++probes[i].fires;
            firing.notify_all();
        });
        cancellers.emplace_back([&, i, handle = std::move(handle)]() mutable {
            std::unique_lock lock(mutex);
            firing.wait_for(lock, std::chrono::seconds(30),
                            [&] { return probes[i].fires >= 2 + i % 3; });
            lock.unlock();
            { auto gone = std::move(handle); }
            executor->post([&, i] { probes[i].markerRan = true; });
        });
    }
    bool sentinel = false;
    auto after = executor->scheduleOnce(0.040, [&] { sentinel = true; });
    ASSERT_TRUE(runEventsUntil([&] {
        return sentinel && std::all_of(probes.begin(), probes.end(),
                                       [](auto& probe) { return probe.markerRan.load(); });
    }));
    cancellers.clear();
    EXPECT_FALSE(dropped);
    EXPECT_TRUE(ranOnQtThread);
    for (auto& probe : probes) EXPECT_EQ(probe.firesAfterMarker.load(), 0);
    EXPECT_TRUE(runEventsUntil([&] { return executor->liveTimerCount() == 0; }));
}

TEST_F(QtExecutorTest, WorkThatThrowsIsLoggedAndTheSequenceGoesOn) {
    testing::LogCapture logs;
    bool after = false;
    executor->post([] { throw std::runtime_error("disk on fire"); });
    auto timer = executor->scheduleOnce(0.0, [] { throw std::runtime_error("timer on fire"); });
    executor->post([&] { after = true; });
    ASSERT_TRUE(runEventsUntil([&] { return after && logs.contains("timer on fire"); }));
    EXPECT_TRUE(logs.contains("QtExecutor error: Work on the main sequence failed: disk on fire"));
}

TEST_F(QtExecutorTest, AGoneExecutorDropsItsQueueAndIgnoresItsHandles) {
    bool ran = false;
    executor->post([&] { ran = true; });
    auto handle = executor->scheduleOnce(0.0, [&] { ran = true; });
    executor.reset();
    bool sentinel = false;
    QTimer::singleShot(5, qApp, [&] { sentinel = true; });
    ASSERT_TRUE(runEventsUntil([&] { return sentinel; }));
    EXPECT_FALSE(ran);
    // Cancelling after the executor has gone, from another thread, is harmless.
    std::jthread([&] { handle.cancel(); }).join();
}

}  // namespace
}  // namespace corvane
