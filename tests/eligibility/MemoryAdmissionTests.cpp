#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/eligibility/FixtureTree.h"

namespace corvane {
namespace {

const double kNaN = std::nan("");

TEST(MemoryBudgetTest, AdmissionCountAndProjectionIgnoreShardsInFlight) {
    auto away = MemoryBudget::away();
    auto inUse = MemoryBudget::inUse();
    for (int inFlight : {0, 3}) {  // running shards are already in the measurement
        EXPECT_TRUE(away.canAdmit(11.0, 20.0, inFlight));  // equality admits
        EXPECT_FALSE(away.canAdmit(11.1, 20.0, inFlight));
        EXPECT_FALSE(inUse.canAdmit(10.1, 20.0, inFlight));
        EXPECT_EQ(away.admissibleCount(10.0, 20.0, inFlight), 1);  // room 2.5
    }
    EXPECT_TRUE(away.canAdmit(12.5, 20.0, 0, 0));  // the fixed part alone
    EXPECT_FALSE(away.canAdmit(0.0, 5.0, 0));      // ceiling under the model's footprint
    EXPECT_FALSE(away.canAdmit(1.0, kNaN, 0));
    EXPECT_EQ(away.admissibleCount(12.5, 20.0, 0), 0);  // room exactly 0
    EXPECT_EQ(away.admissibleCount(1.0, kNaN, 0), 0);
}

TEST(MemoryBudgetTest, FootprintByQuantizationAndPresets) {
    const std::pair<std::optional<std::string_view>, double> rows[] = {
        {std::nullopt, 12.0}, {"Q4_0", 3.0},  {"INT4", 3.0},
        {"8BIT", 6.0},        {"bf16", 12.0}, {"", 12.0}};
    for (const auto& [text, footprint] : rows) {
        EXPECT_EQ(MemoryBudget::modelFootprint(text), footprint) << text.value_or("(absent)");
    }
    EXPECT_EQ(MemoryBudget::forMode(true, "q4"), (MemoryBudget{1.5, 3.0, 1.5, 2.5}));
    EXPECT_EQ(MemoryBudget::forMode(false, std::nullopt), (MemoryBudget{1.5, 12.0, 1.5, 1.5}));
}

TEST(MachineRAMProbeTest, ReadsMeminfoAndRefusesWhatItCannotTrust) {
    testing::FixtureTree tree;
    tree.write("good", "MemTotal: 16777216 kB\nMemFree: 1 kB\nMemAvailable:    4194304 kB\n");
    EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("good").c_str()), 12.0);
    const std::string bad[] = {"", "MemTotal: 16777216 kB\nMemFree: 1 kB\n",
                               "MemTotal: lots kB\nMemAvailable: 12 kB\n",
                               "MemTotal: 10 kB\nMemAvailable: 20 kB\n",
                               std::string(8192, 'x') + "\nMemTotal: 16 kB\nMemAvailable: 1 kB\n"};
    for (const auto& contents : bad) {
        tree.write("bad", contents);
        EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("bad").c_str()), std::nullopt)
            << contents;
    }
    tree.unreadable("bad");
    EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("bad").c_str()), std::nullopt);
    EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("missing").c_str()), std::nullopt);
    EXPECT_TRUE(MemoryAdmissionProbes::machineRAMUsedGB());  // this machine's own
}

}  // namespace
}  // namespace corvane
