#include "CorvaneApp/ui/shell/SignalPipe.h"

#include <gtest/gtest.h>

#include <csignal>
#include <stdexcept>
#include <vector>

#include "tests/ui/QtTestApp.h"

namespace corvane {
namespace {

std::atomic<int> gPreviousHandlerCalls{0};
extern "C" void previousHandler(int) {
    ++gPreviousHandlerCalls;
}

void (*currentHandler(int signalNumber))(int) {
    struct sigaction now {};
    ::sigaction(signalNumber, nullptr, &now);
    return now.sa_handler;
}

TEST(SignalPipeTest, SignalsArriveOnTheLoopOnceAndThePreviousHandlersComeBack) {
    testing::qtTestApp();
    struct sigaction mine {};
    mine.sa_handler = previousHandler;
    sigemptyset(&mine.sa_mask);
    struct sigaction original {};
    ASSERT_EQ(::sigaction(SIGUSR1, &mine, &original), 0);
    {
        std::vector<int> received;
        SignalPipe pipe({SIGUSR1, SIGUSR2},
                        [&](int signalNumber) { received.push_back(signalNumber); });
        EXPECT_THROW(SignalPipe({SIGUSR1}, [](int) {}), std::logic_error);

        ASSERT_EQ(::raise(SIGUSR2), 0);
        ASSERT_EQ(::raise(SIGUSR1), 0);
        EXPECT_TRUE(received.empty());  // nothing runs inside the handler itself
        ASSERT_TRUE(testing::runEventsUntil([&] { return received.size() == 2; }));
        EXPECT_EQ(received, (std::vector<int>{SIGUSR2, SIGUSR1}));
        // After its first delivery a signal has its default action again: a second one ends a hang.
        EXPECT_EQ(currentHandler(SIGUSR1), SIG_DFL);
        EXPECT_EQ(gPreviousHandlerCalls.load(), 0);
    }
    EXPECT_EQ(currentHandler(SIGUSR1), &previousHandler);
    ASSERT_EQ(::raise(SIGUSR1), 0);
    EXPECT_EQ(gPreviousHandlerCalls.load(), 1);
    ::sigaction(SIGUSR1, &original, nullptr);
    // A new pipe may be set up once the last one has gone.
    EXPECT_NO_THROW(SignalPipe({SIGUSR2}, [](int) {}));
}

}  // namespace
}  // namespace corvane
