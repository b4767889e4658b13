#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/EventStream.h"
#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/platform/LoopExecutor.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/platform/Task.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

namespace fs = std::filesystem;

TEST(TaskAndSleep, CancellationWakesASleepAndTheTaskEnds) {
    TaskSleepProvider sleeper;
    std::atomic<bool> sleptFully{true};
    std::atomic<bool> asleep{false};
    auto task = Task::start([&](std::stop_token stop) {
        asleep = true;
        sleptFully = sleeper.sleep(3600, stop);
    });
    while (!asleep) std::this_thread::yield();
    task->cancel();
    task->join();
    EXPECT_FALSE(sleptFully) << "an hour's sleep ends at once on cancellation";
    EXPECT_TRUE(task->isCancelled());
    EXPECT_TRUE(sleeper.sleep(-5, {})) << "a negative sleep counts as zero";
}

TEST(TaskAndSleep, ATaskMayDropItsOwnLastHandle) {
    std::shared_ptr<Task> self;
    std::mutex mutex;
    std::atomic<bool> done{false};
    {
        std::lock_guard lock(mutex);
        self = Task::start([&](std::stop_token) {
            std::shared_ptr<Task> mine;
            {
                std::lock_guard inner(mutex);
                mine = std::move(self);
            }
            mine.reset();  // destroys the Task on its own thread: detaches instead of joining
                           // itself
            done = true;
        });
    }
    while (!done) std::this_thread::yield();
    SUCCEED();
}

TEST(EventStreamTest, KeepsOrderAcrossThreadsAndEndsWhenClosed) {
    EventStream<int> stream;
    std::thread producer([&] {
        for (int i = 0; i < 1000; ++i) stream.push(i);
        stream.close();
    });
    std::vector<int> received;
    while (auto value = stream.next()) received.push_back(*value);
    producer.join();
    ASSERT_EQ(received.size(), 1000u);
    for (int i = 0; i < 1000; ++i) ASSERT_EQ(received[i], i);
    stream.push(5);
    EXPECT_EQ(stream.tryNext(), std::nullopt) << "nothing enters a closed stream";

    // A reader that lags behind: the read front is dropped in place and the order still holds.
    EventStream<int> lagging;
    for (int i = 0; i < 300; ++i) lagging.push(i);
    for (int i = 0; i < 200; ++i) ASSERT_EQ(lagging.tryNext(), i);
    for (int i = 300; i < 400; ++i) lagging.push(i);
    EXPECT_EQ(lagging.tryNext(), 200);
    const auto rest = lagging.drain();
    ASSERT_EQ(rest.size(), 199u);
    for (std::size_t i = 0; i < rest.size(); ++i) ASSERT_EQ(rest[i], int(201 + i));
    EXPECT_EQ(lagging.tryNext(), std::nullopt);
}

TEST(Executors, TimersRunInDueOrderAndStopWhenTheirHandleGoes) {
    testing::FakeClock clock;
    testing::ManualExecutor executor(&clock);
    std::vector<std::string> ran;
    auto every2 = executor.scheduleRepeating(2, [&] {
        ran.push_back("2s@" +
                      std::to_string(static_cast<int>(unixSeconds(clock.now()) - 1'780'000'000)));
    });
    auto once3 = executor.scheduleOnce(3, [&] { ran.push_back("once"); });
    executor.post([&] { ran.push_back("posted"); });
    executor.advance(5);
    EXPECT_EQ(ran, (std::vector<std::string>{"posted", "2s@2", "once", "2s@4"}));
    every2.cancel();
    executor.advance(10);
    EXPECT_EQ(ran.size(), 4u);
    EXPECT_EQ(executor.timerCount(), 0u);

    LoopExecutor loop;
    std::vector<int> order;
    auto tick = loop.scheduleOnce(0.001, [&] {
        order.push_back(3);
        loop.quit();
    });
    loop.post([&] { order.push_back(1); });
    loop.post([&] {
        order.push_back(2);
        loop.post([&] { order.push_back(21); });
    });
    loop.run();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 21, 3}));
}

class AtomicFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("corvane-atomic-" + std::to_string(::getpid()) + "-" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override {
        fs::permissions(dir, fs::perms::owner_all, fs::perm_options::add);
        fs::remove_all(dir);
    }
    fs::path dir;
};

TEST_F(AtomicFileTest, ReplacesWholeKeepsPermissionsAndLeavesNoTempFiles) {
    auto path = dir / "settings.json";
    writeFileAtomically(path, "one", 0600);
    writeFileAtomically(path, "two");
    EXPECT_EQ(readFile(path), "two");
    struct stat info {};
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << "a rewrite keeps the file's permissions";
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1);
    EXPECT_EQ(readFile(dir / "missing"), std::nullopt);
}

TEST_F(AtomicFileTest, AFailedWriteLeavesTheOldFileWhole) {
    if (::geteuid() == 0)
        GTEST_SKIP() << "root ignores directory permissions, so the failure cannot be provoked";
    auto path = dir / "config.yaml";
    writeFileAtomically(path, "old contents\n");
    fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
    EXPECT_THROW(writeFileAtomically(path, "new"), std::system_error);
    EXPECT_EQ(readFile(path), "old contents\n");
}

TEST_F(AtomicFileTest, AFullDiskIsAnErrorNotATruncatedFile) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this machine";
    // A write into a folder that is not a folder fails before anything is replaced.
    EXPECT_THROW(writeFileAtomically("/dev/full/x", "data"), std::system_error);
    auto path = dir / "kept";
    writeFileAtomically(path, "kept");
    EXPECT_THROW(writeFileAtomically(dir / "no-such-dir" / "f", "x"), std::system_error);
    EXPECT_EQ(readFile(path), "kept");
}

TEST(HttpHelpers, HeadersURLsAndEncoding) {
    http::Headers headers;
    headers.add("Retry-After", "5");
    headers.set("retry-after", "7");
    EXPECT_EQ(headers.find("RETRY-AFTER"), "7");
    EXPECT_EQ(headers.fields().size(), 1u);
    EXPECT_EQ(http::resolveAbsolutePath("https://c.example:8443/base/path?q=1", "/api/v1/x?y=2"),
              "https://c.example:8443/api/v1/x?y=2");
    EXPECT_EQ(http::resolveAbsolutePath("c.example", "/x"), std::nullopt);
    EXPECT_EQ(http::resolveAbsolutePath("http://", "/x"), std::nullopt);
    EXPECT_EQ(http::percentEncodePath("a/b c%é"), "a/b%20c%25%C3%A9");
    EXPECT_EQ(http::percentEncodeQuery("a/b c"), "a%2Fb%20c");
}

}  // namespace
}  // namespace corvane
