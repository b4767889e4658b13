#include <gtest/gtest.h>

#include <fstream>

#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

TEST(ChipTier, FromBrandString) {
    struct Row {
        std::string brand;
        std::optional<ChipTier> tier;
    };
    std::vector<Row> rows{
        {"Apple M3 Pro", ChipTier::t2},
        {"Apple M2 Ultra", ChipTier::t4},
        {"APPLE M1 MAX", ChipTier::t3},  // compared in lower case
        {"Apple M4", ChipTier::t1},
        {"Apple M3 Max Pro", ChipTier::t3},    // max is tested before pro
        {"Apple M9 Pro Ultra", ChipTier::t4},  // ultra before both
        {"Apple M1Pro", ChipTier::t1},         // the probes need their leading blank
        {"Intel(R) Core(TM) i7", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& row : rows) EXPECT_EQ(tierForBrandString(row.brand), row.tier) << row.brand;

    for (ChipTier tier : allChipTiers) EXPECT_EQ(chipTierFromRawValue(rawValue(tier)), tier);
    EXPECT_EQ(chipTierFromRawValue("T1"), std::nullopt);
}

class FakeMachine final : public MachineProbe {
public:
    explicit FakeMachine(std::string brand) : brand_(std::move(brand)) {}
    std::string cpuBrandString() const override { return brand_; }
    std::optional<std::uint64_t> physicalMemoryBytes() const override { return std::nullopt; }
    int logicalCoreCount() const override { return 1; }
    std::optional<int> physicalCoreCount() const override { return std::nullopt; }

private:
    std::string brand_;
};

TEST(ChipTier, CurrentFallsBackToTheBaseTierWithAnErrorLine) {
    testing::LogCapture capture;
    EXPECT_EQ(currentChipTier(FakeMachine("Apple M2 Max")), ChipTier::t3);
    EXPECT_TRUE(capture.lines().empty());

    EXPECT_EQ(currentChipTier(FakeMachine("Intel(R) Core(TM) i7")), ChipTier::t1);
    EXPECT_EQ(currentChipTier(FakeMachine("")), ChipTier::t1);
    EXPECT_EQ(capture.lines(), (std::vector<std::string>{
                                   "ChipTier error: ChipTier: unknown brand_string Intel(R) Core(TM) i7 — defaulting to .t1",
                                   "ChipTier error: ChipTier: unknown brand_string  — defaulting to .t1",
                               }));
}

class ProcMachineProbeTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = std::filesystem::temp_directory_path() /
                ("models-proc-" + std::to_string(::getpid()) + "-" +
                 ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::create_directories(root_);
    }
    void TearDown() override { std::filesystem::remove_all(root_); }

    void write(const std::string& name, const std::string& content) {
        std::ofstream(root_ / name) << content;
    }
    ProcMachineProbe probe() const { return ProcMachineProbe(root_); }

    std::filesystem::path root_;
};

// Two packages of two cores with two threads each, as x86 lists them.
std::string x86CpuInfo() {
    std::string text;
    int processor = 0;
    for (int package = 0; package < 2; ++package) {
        for (int core = 0; core < 2; ++core) {
            for (int thread = 0; thread < 2; ++thread) {
                text += "processor\t: " + std::to_string(processor++) +
                        "\nvendor_id\t: AuthenticAMD\nmodel name\t: AMD EPYC 7B13 64-Core Processor\n"
                        "physical id\t: " + std::to_string(package) + "\ncore id\t\t: " + std::to_string(core) +
                        "\nflags\t\t: fpu vme de\n\n";
            }
        }
    }
    return text;
}

TEST_F(ProcMachineProbeTest, ReadsAnX86Machine) {
    write("cpuinfo", x86CpuInfo());
    write("meminfo", "MemTotal:       16318412 kB\nMemFree:         1000000 kB\n");
    EXPECT_EQ(probe().cpuBrandString(), "AMD EPYC 7B13 64-Core Processor");
    EXPECT_EQ(probe().logicalCoreCount(), 8);
    EXPECT_EQ(probe().physicalCoreCount(), 4);
    EXPECT_EQ(probe().physicalMemoryBytes(), 16318412ull * 1024);
    EXPECT_EQ(ramGBFromBytes(*probe().physicalMemoryBytes()), 16);
    EXPECT_EQ(currentChipTier(probe()), ChipTier::t1);
}

TEST_F(ProcMachineProbeTest, ReadsAnArmBoardThatNamesOnlyItself) {
    std::string text;
    for (int i = 0; i < 4; ++i) text += "processor\t: " + std::to_string(i) + "\nBogoMIPS\t: 108.00\nCPU part\t: 0xd08\n\n";
    text += "Hardware\t: BCM2835\nModel\t\t: Raspberry Pi 4 Model B Rev 1.4\n";
    write("cpuinfo", text);
    EXPECT_EQ(probe().cpuBrandString(), "Raspberry Pi 4 Model B Rev 1.4");
    EXPECT_EQ(probe().logicalCoreCount(), 4);
    EXPECT_EQ(probe().physicalCoreCount(), std::nullopt);  // no core ids: unknown, not 4
}

TEST_F(ProcMachineProbeTest, MissingOrCorruptFilesGiveNothingRatherThanNonsense) {
    EXPECT_EQ(probe().cpuBrandString(), "");
    EXPECT_EQ(probe().logicalCoreCount(), 1);
    EXPECT_EQ(probe().physicalCoreCount(), std::nullopt);
    EXPECT_EQ(probe().physicalMemoryBytes(), std::nullopt);

    for (std::string meminfo : {"MemTotal:       lots kB\n", "MemTotal: 16 GB\n", "MemFree: 100 kB\n",
                                "MemTotal: 99999999999999999999 kB\n", ""}) {
        write("meminfo", meminfo);
        EXPECT_EQ(probe().physicalMemoryBytes(), std::nullopt) << meminfo;
    }
    // A processor block with a package but no core id makes the count unknown.
    write("cpuinfo", "processor : 0\nphysical id : 0\ncore id : 0\n\nprocessor : 1\nphysical id : 0\n\n");
    EXPECT_EQ(probe().logicalCoreCount(), 2);
    EXPECT_EQ(probe().physicalCoreCount(), std::nullopt);
}

TEST(MachineProbe, RamGigabytesRoundHalfAwayFromZero) {
    constexpr std::uint64_t gib = 1ull << 30;
    EXPECT_EQ(ramGBFromBytes(0), 0);
    EXPECT_EQ(ramGBFromBytes(gib + gib / 2), 2);
    EXPECT_EQ(ramGBFromBytes(gib + gib / 2 - 1), 1);
}

TEST(ModelCatalogue, KnowsTwoModels) {
    EXPECT_EQ(whisperModelIdentifier(), (ModelIdentifier{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "1"}));
    EXPECT_EQ(parakeetModelIdentifier(), (ModelIdentifier{"speech-engine-native", "parakeet-tdt-0.6b-v2", "1"}));
    ASSERT_EQ(modelCatalogue().size(), 2u);
    EXPECT_TRUE(catalogueEntry(whisperModelIdentifier()) && catalogueEntry(parakeetModelIdentifier()));

    struct Row {
        ModelIdentifier identifier;
        std::string name;
    };
    std::vector<Row> rows{
        {whisperModelIdentifier(), "Whisper large-v3 turbo"},
        {parakeetModelIdentifier(), "Parakeet TDT v2"},
        {{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "2"}, "whisper-large-v3-turbo-q4"},
        {{"other-backend", "parakeet-tdt-0.6b-v2", "1"}, "parakeet-tdt-0.6b-v2"},
    };
    for (const auto& row : rows) EXPECT_EQ(modelDisplayName(row.identifier), row.name) << row.identifier.model;
}

}  // namespace
}  // namespace corvane
