#include "CorvaneApp/eligibility/MemoryAdmissionGate.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "tests/eligibility/FixtureTree.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

TEST(MemoryBudgetTest, CanAdmitAtAndAroundTheCeiling) {
    struct Row {
        MemoryBudget budget;
        double used;
        bool admits;
    };
    const Row rows[] = {
        {MemoryBudget::away(), 10.0, true},   // 13.0 <= 14.0
        {MemoryBudget::away(), 11.0, true},   // equality admits
        {MemoryBudget::away(), 11.1, false},
        {MemoryBudget::inUse(), 10.0, true},  // 14.0 <= 14.0
        {MemoryBudget::inUse(), 10.1, false},
    };
    for (const auto& row : rows) {
        for (int inFlight : {0, 3, -7}) {  // running shards are already in the measurement
            EXPECT_EQ(row.budget.canAdmit(row.used, 20.0, inFlight), row.admits)
                << row.used << " in flight " << inFlight;
        }
    }
    auto away = MemoryBudget::away();
    EXPECT_TRUE(away.canAdmit(12.5, 20.0, 0, 0));   // the fixed part alone: 14.0
    EXPECT_FALSE(away.canAdmit(12.6, 20.0, 0, 0));
    EXPECT_EQ(away.canAdmit(12.5, 20.0, 0, -3), away.canAdmit(12.5, 20.0, 0, 0));
    EXPECT_FALSE(away.canAdmit(0.0, 5.0, 0));        // ceiling under the model footprint
    EXPECT_FALSE(away.canAdmit(1.0, kNaN, 0));
}

TEST(MemoryBudgetTest, AdmissibleCountAndProjection) {
    auto away = MemoryBudget::away();
    EXPECT_EQ(away.admissibleCount(10.0, 20.0, 0), 1);  // room 2.5
    EXPECT_EQ(away.admissibleCount(10.0, 20.0, 9), 1);
    EXPECT_EQ(away.admissibleCount(2.0, 20.0, 0), 7);   // room 10.5
    EXPECT_EQ(away.admissibleCount(12.5, 20.0, 0), 0);  // room exactly 0
    EXPECT_EQ(away.admissibleCount(30.0, 20.0, 0), 0);
    EXPECT_EQ(away.admissibleCount(0.0, 4.0, 0), 0);
    EXPECT_EQ(away.admissibleCount(1.0, kNaN, 0), 0);
    EXPECT_DOUBLE_EQ(away.fixedOverheadGB(), 9.0);
    EXPECT_DOUBLE_EQ(away.projectedUsageGB(-2), away.fixedOverheadGB());
    EXPECT_DOUBLE_EQ(away.projectedUsageGB(2), 12.0);
}

TEST(MemoryBudgetDeathTest, NonPositiveShardSizeIsAProgrammingError) {
    MemoryBudget broken = MemoryBudget::away();
    broken.perShardWorkingSetGB = 0;
    EXPECT_DEATH((void)broken.admissibleCount(1.0, 20.0, 0), "perShardWorkingSetGB");
    broken.perShardWorkingSetGB = -1;
    EXPECT_DEATH((void)broken.admissibleCount(1.0, 20.0, 0), "perShardWorkingSetGB");
}

TEST(MemoryBudgetTest, PresetsAndFootprintByQuantization) {
    struct Row {
        std::optional<std::string_view> quantization;
        double footprint;
    };
    const Row rows[] = {{std::nullopt, 12.0}, {"Q4_0", 3.0}, {"4bit", 3.0}, {"INT4", 3.0},
                        {"q8", 6.0},          {"8BIT", 6.0}, {"q8_0", 6.0}, {"int8", 6.0},
                        {"fp16", 12.0},       {"F16", 12.0}, {"bf16", 12.0}, {"", 12.0}};
    for (const auto& row : rows) {
        EXPECT_EQ(MemoryBudget::modelFootprint(row.quantization), row.footprint)
            << row.quantization.value_or("(absent)");
    }
    EXPECT_EQ(MemoryBudget::forMode(true, "q4"), (MemoryBudget{1.5, 3.0, 1.5, 2.5}));
    EXPECT_EQ(MemoryBudget::forMode(false, std::nullopt), (MemoryBudget{1.5, 12.0, 1.5, 1.5}));
}

TEST(MemoryGatedReasonTest, DescriptionHeadroomAndNumericEquality) {
    MemoryGatedReason reason{13.2, 16.0};
    EXPECT_EQ(reason.description(), "RAM budget exhausted (13.2 / 16.0 GB)");
    EXPECT_NEAR(reason.headroomGB(), 2.8, 1e-9);
    EXPECT_FALSE(reason.isProbeFailure());
    EXPECT_EQ(reason, (MemoryGatedReason{13.2, 16.0}));

    MemoryGatedReason failure{kNaN, 16.0};
    EXPECT_TRUE(failure.isProbeFailure());
    EXPECT_EQ(failure.description(), "RAM probe unavailable \u2014 holding admission");
    EXPECT_TRUE(std::isnan(failure.headroomGB()));
    EXPECT_FALSE(failure == failure);  // a probe failure is never a duplicate, so it is re-reported
    EXPECT_EQ((MemoryGatedReason{1.0, kNaN}).description(), "RAM budget exhausted (1.0 / nan GB)");
}

class MemoryAdmissionGateTest : public ::testing::Test {
protected:
    MemoryAdmissionGate gateWith(std::optional<double> used, double ceiling,
                                 MemoryBudget budget = MemoryBudget::away()) {
        return MemoryAdmissionGate({[this, used] {
                                        order += "u";
                                        return used;
                                    },
                                    [this, ceiling] {
                                        order += "c";
                                        return ceiling;
                                    },
                                    [this, budget] {
                                        order += "b";
                                        return budget;
                                    }});
    }
    std::string order;
    testing::LogCapture logs;
};

TEST_F(MemoryAdmissionGateTest, AdmitsSilentlyAndHoldsWithItsReason) {
    auto gate = gateWith(11.0, 20.0);
    EXPECT_EQ(gate.check(0), std::nullopt);
    EXPECT_EQ(gate.check(5), std::nullopt);
    EXPECT_EQ(order, "cbucbu");  // ceiling, then budget, then the measurement
    EXPECT_TRUE(logs.lines().empty());

    auto tight = gateWith(11.1, 20.0);
    auto reason = tight.check(0);
    ASSERT_TRUE(reason);
    EXPECT_EQ(*reason, (MemoryGatedReason{11.1, 20.0}));
    EXPECT_TRUE(logs.contains(
        "MemoryAdmissionGate info: MemoryAdmissionGate: hold \u2014 RAM budget exhausted (11.1 / 20.0 GB)"));
    EXPECT_TRUE(gateWith(10.1, 20.0, MemoryBudget::inUse()).check(0));
    EXPECT_TRUE(gateWith(1.0, kNaN).check(0));
}

TEST_F(MemoryAdmissionGateTest, FailsClosedWhenRAMCannotBeRead) {
    auto reason = gateWith(std::nullopt, 48.0).check(0);
    ASSERT_TRUE(reason);
    EXPECT_TRUE(reason->isProbeFailure());
    EXPECT_EQ(reason->ceilingGB, 48.0);
    EXPECT_TRUE(logs.contains(
        "MemoryAdmissionGate error: MemoryAdmissionGate: hold \u2014 RAM probe unavailable, failing closed"));
}

TEST(MachineRAMProbeTest, ReadsMeminfoAndRefusesWhatItCannotTrust) {
    testing::FixtureTree tree;
    const std::string good =
        "MemTotal:       16777216 kB\nMemFree:         1000000 kB\nMemAvailable:    4194304 kB\n";
    tree.write("good", good);
    auto used = MemoryAdmissionProbes::machineRAMUsedGB(tree.path("good"));
    ASSERT_TRUE(used);
    EXPECT_DOUBLE_EQ(*used, 12.0);

    struct Row {
        const char* name;
        std::string contents;
    };
    const Row bad[] = {
        {"empty", ""},
        {"no-available", "MemTotal: 16777216 kB\nMemFree: 1 kB\n"},
        {"garbage", "MemTotal: lots kB\nMemAvailable: 12 kB\n"},
        {"available-over-total", "MemTotal: 10 kB\nMemAvailable: 20 kB\n"},
        {"zero-total", "MemTotal: 0 kB\nMemAvailable: 0 kB\n"},
        {"truncated", "MemTotal: 16777216 kB\nMemAvail"},
        {"too-large", std::string(8192, 'x') + "\nMemTotal: 16 kB\nMemAvailable: 1 kB\n"},
    };
    for (const auto& row : bad) {
        tree.write(row.name, row.contents);
        EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path(row.name)), std::nullopt) << row.name;
    }
    tree.unreadable("unreadable");
    EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("unreadable")), std::nullopt);
    EXPECT_EQ(MemoryAdmissionProbes::machineRAMUsedGB(tree.path("missing")), std::nullopt);
    EXPECT_TRUE(MemoryAdmissionProbes::machineRAMUsedGB());  // this machine's own
}

}  // namespace
}  // namespace corvane
