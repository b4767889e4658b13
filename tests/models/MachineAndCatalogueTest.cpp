#include <gtest/gtest.h>

#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "tests/models/TestFolder.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

TEST(ChipTier, FromBrandString) {
    const std::pair<std::string, std::optional<ChipTier>> rows[] = {
        {"Apple M3 Pro", ChipTier::t2},
        {"APPLE M1 MAX", ChipTier::t3},  // compared in lower case
        {"Apple M4", ChipTier::t1},
        {"Apple M3 Max Pro", ChipTier::t3},    // max is tested before pro
        {"Apple M9 Pro Ultra", ChipTier::t4},  // ultra before both
        {"Intel(R) Core(TM) i7", std::nullopt},
    };
    for (const auto& [brand, tier] : rows) EXPECT_EQ(tierForBrandString(brand), tier) << brand;
}

// /proc as a folder of our own: an x86 server, then nothing at all, then an ARM board.
TEST(ProcMachineProbe, ReadsX86AndArmMachinesAndGivesNothingRatherThanNonsense) {
    testing::TestFolder proc("models-proc");
    auto probe = [&] { return ProcMachineProbe(proc.root); };
    // Two packages of two cores with two threads each.
    std::string cpuinfo;
    for (int processor = 0; processor < 8; ++processor) {
        cpuinfo += "processor\t: " + std::to_string(processor) +
                   "\nmodel name\t: AMD EPYC 7B13 64-Core Processor\nphysical id\t: " +
                   std::to_string(processor / 4) +
                   "\ncore id\t\t: " + std::to_string(processor / 2 % 2) + "\nflags\t\t: fpu\n\n";
    }
    testing::writeFile(proc.root / "cpuinfo", cpuinfo);
    testing::writeFile(proc.root / "meminfo",
                       "MemTotal:       16318412 kB\nMemFree:         1000000 kB\n");
    EXPECT_EQ(probe().cpuBrandString(), "AMD EPYC 7B13 64-Core Processor");
    EXPECT_EQ(probe().logicalCoreCount(), 8);
    EXPECT_EQ(probe().physicalCoreCount(), 4);
    EXPECT_EQ(probe().physicalMemoryBytes(), 16318412ull * 1024);
    EXPECT_EQ(ramGBFromBytes((1ull << 30) * 3 / 2 - 1), 1);  // rounded half away from zero
    EXPECT_EQ(ramGBFromBytes((1ull << 30) * 3 / 2), 2);

    testing::LogCapture capture;
    EXPECT_EQ(currentChipTier(probe()), ChipTier::t1);
    EXPECT_EQ(capture.lines(),
              std::vector<std::string>{"ChipTier error: ChipTier: unknown brand_string AMD EPYC "
                                       "7B13 64-Core Processor — defaulting to .t1"});

    std::filesystem::remove(proc.root / "cpuinfo");
    std::filesystem::remove(proc.root / "meminfo");
    EXPECT_EQ(probe().cpuBrandString(), "");
    EXPECT_EQ(probe().logicalCoreCount(), 1);
    EXPECT_EQ(probe().physicalMemoryBytes(), std::nullopt);
    for (std::string meminfo : {"MemTotal:       lots kB\n", "MemTotal: 16 GB\n",
                                "MemFree: 100 kB\n", "MemTotal: 99999999999999999999 kB\n"}) {
        testing::writeFile(proc.root / "meminfo", meminfo);
        EXPECT_EQ(probe().physicalMemoryBytes(), std::nullopt) << meminfo;
    }

    std::string board;
    for (int i = 0; i < 4; ++i)
        board += "processor\t: " + std::to_string(i) + "\nBogoMIPS\t: 108.00\n\n";
    testing::writeFile(proc.root / "cpuinfo",
                       board + "Hardware\t: BCM2835\nModel\t\t: Raspberry Pi 4 Model B Rev 1.4\n");
    EXPECT_EQ(probe().cpuBrandString(), "Raspberry Pi 4 Model B Rev 1.4");
    EXPECT_EQ(probe().logicalCoreCount(), 4);
    EXPECT_EQ(probe().physicalCoreCount(), std::nullopt);  // no core ids: unknown, not 4
}

TEST(ModelCatalogue, KnowsTwoModelsAndNamesOthersByTheirModelString) {
    ASSERT_EQ(modelCatalogue().size(), 2u);
    EXPECT_EQ(modelDisplayName({"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "2"}),
              "whisper-large-v3-turbo-q4");
}

}  // namespace
}  // namespace corvane
