#include <gtest/gtest.h>

#include "CorvaneApp/eligibility/ProcessTreeSampler.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {
namespace {

namespace fs = std::filesystem;

class ProcFixture : public ::testing::Test {
  protected:
    ScratchFolder dir;
    FakeClock clock;
    fs::path proc = dir.path() / "proc";
    fs::path runtime = dir.path() / "data" / "VarnixCompute" / "runtime";

    // A /proc/<pid>/stat line with the fields the sampler reads; RSS in pages.
    void process(int pid, const std::string& name, int ppid, std::uint64_t utime,
                 std::uint64_t stime, std::uint64_t rss) {
        const auto id = std::to_string(pid);
        dir.write("proc/" + id + "/stat", id + " (" + name + ") S " + std::to_string(ppid) +
                                              " 1 1 0 -1 4194304 10 0 0 0 " +
                                              std::to_string(utime) + " " + std::to_string(stime) +
                                              " 0 0 20 0 3 0 100 1000000 " + std::to_string(rss) +
                                              " 18446744073709551615 1 1 0 0 0 0 0 0 0 0 0 0 17\n");
    }
    void children(int pid, int tid, const std::string& ids) {
        dir.write("proc/" + std::to_string(pid) + "/task/" + std::to_string(tid) + "/children",
                  ids);
    }
    ProcessTreeSampler::Options treeOptions() {
        ProcessTreeSampler::Options options;
        options.procRoot = proc;
        options.runtimeDir = runtime;
        options.ticksPerSecond = 100;
        options.pageSize = 4096;
        options.now = clock.function();
        return options;
    }
    ResourceSamplerProcProbes probes() {
        return ResourceSamplerProcProbes({proc, dir.path() / "sys", treeOptions()});
    }
};

TEST_F(ProcFixture, MissingTruncatedOrMalformedFilesGiveNoReading) {
    auto p = probes();
    EXPECT_FALSE(p.machineTicks()) << "no stat file";
    EXPECT_FALSE(p.memory()) << "no meminfo";
    EXPECT_FALSE(p.performanceCoreCount()) << "cores all alike";
    EXPECT_EQ(ResourceSamplerProcProbes::countCpuList("0-7,12,14-15"), 11);
    for (const char* bad : {"", "7-3", "a-b", "0-", "1,,2"}) {
        EXPECT_EQ(ResourceSamplerProcProbes::countCpuList(bad), std::nullopt) << bad;
    }

    struct Row {
        const char* what;
        const char* stat;
        const char* meminfo;
    };
    for (const Row& row : std::vector<Row>{
             {"letters in a counter", "cpu  12 x 3 4\ncpu0 1 2 3 4\n", "MemTotal: 100 kB\n"},
             {"cut mid-line", "cpu  12 3", "MemTotal:       16384000 kB\nMemAvail"},
             {"more available than total", "cpu0 1 2 3 4\n",
              "MemTotal: 100 kB\nMemAvailable: 200 kB\n"},
             {"zero total", "intr 1\n", "MemTotal: 0 kB\nMemAvailable: 0 kB\n"},
         }) {
        SCOPED_TRACE(row.what);
        dir.write("proc/stat", row.stat);
        dir.write("proc/meminfo", row.meminfo);
        EXPECT_FALSE(p.machineTicks());
        EXPECT_FALSE(p.memory());
    }
    dir.write("proc/stat", "cpu  1 2 3 4\ncpu0 1 2 3 4\ncpu1 1 two 3 4\n");
    EXPECT_FALSE(p.perCoreTicks()) << "one bad core line spoils the split, not just that core";
    dir.write("proc/stat", "cpu  400 20 100 1480 5 0 1 0 0 0\ncpu0 400 20 100 1480 5 0 1 0 0 0\n");
    dir.write("proc/meminfo", "MemTotal: 100 kB\nMemFree: 1 kB\nMemAvailable: 25 kB\n");
    EXPECT_EQ(p.machineTicks().value().idle, 1480u) << "a good file reads again";
    EXPECT_EQ(p.perCoreTicks().value().size(), 1u);
    EXPECT_DOUBLE_EQ(p.memory().value().usedPercent, 75.0);

    ProcessTreeSampler tree(treeOptions());
    EXPECT_EQ(tree.sample(100), std::nullopt) << "the worker's own stat missing";
    dir.write("proc/100/stat", "100 (corvane) S 1 1 1 0 -1 4194304 10 0 0 0 abc");
    EXPECT_EQ(tree.sample(100), std::nullopt) << "truncated";
    EXPECT_EQ(tree.sample(std::nullopt).value().cpuPercent, 0.0)
        << "no root, nothing of ours running";
}

TEST_F(ProcFixture, TreeFollowsChildrenOfEveryThreadAndTheRuntimeFolder) {
    process(100, "corvane", 1, 100, 100, 2560);  // 10 MB
    children(100, 100, "101 ");
    children(100, 107, "");  // a worker thread without children
    process(101, "ffmpeg", 100, 0, 0, 256);
    children(101, 101, "102");
    process(102, "helper (x) y", 101, 10, 0, 256);  // a name with spaces and parentheses
    process(300, "daemon", 1, 0, 0, 256);
    process(301, "stranger", 1, 0, 0, 256);
    fs::create_directories(runtime / "bin");
    fs::create_symlink(runtime / "bin" / "daemon", proc / "300" / "exe");
    fs::create_symlink(dir.path() / "usr" / "bin" / "stranger", proc / "301" / "exe");

    ProcessTreeSampler tree(treeOptions());
    auto ids = tree.corvanePIDs(100);
    std::sort(ids.begin(), ids.end());
    EXPECT_EQ(ids, (std::vector<int>{100, 101, 102, 300}));

    auto first = tree.sample(100);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->cpuPercent, 0.0) << "the first sample has no interval";
    EXPECT_DOUBLE_EQ(first->residentMB, (2560 + 3 * 256) * 4096.0 / 1048576.0);

    clock.advance(2);
    process(100, "corvane", 1, 150, 150, 2560);    // +100 ticks = 1 s
    process(101, "ffmpeg", 100, 50, 0, 256);       // +50 ticks = 0.5 s
    process(102, "helper (x) y", 101, 5, 0, 256);  // went backwards: a reused id, counts 0
    children(101, 101, "102 103");
    process(103, "fresh", 101, 1000, 0, 0);  // born this interval with 10 s: charged at most 2 s
    auto second = tree.sample(100);
    ASSERT_TRUE(second);
    EXPECT_NEAR(second->cpuPercent, (1.0 + 0.5 + 2.0) / 2.0 * 100.0, 1e-9);

    fs::remove(proc / "101" / "stat");  // a child that ended between the walk and the read
    clock.advance(2);
    auto third = tree.sample(100);
    ASSERT_TRUE(third);
    EXPECT_NEAR(third->cpuPercent, 0.0, 1e-9);
}

}  // namespace
}  // namespace corvane::testing
