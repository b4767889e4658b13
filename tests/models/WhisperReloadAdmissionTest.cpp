// Whether the machine has room to load the released Whisper weights again: its measured RAM use
// plus the real model and one shard, under the owner's ceiling of the mode it is in.

#include <gtest/gtest.h>

#include "CorvaneApp/models/ModelCatalogue.h"
#include "CorvaneApp/models/WhisperReloadAdmission.h"
#include "tests/support/LogCapture.h"

namespace corvane::testing {
namespace {

TEST(WhisperReloadAdmission, TheRealModelAndAShardMustFitUnderTheCeilingOfTheMode) {
    const struct {
        double idleMinutes;
        std::optional<double> idleSeconds;
        std::optional<double> usedGB;
        std::optional<std::string> refusal;
    } rows[] = {
        // In use (a minute since the last input, under three): ceiling 10, reserve 2.5.
        {3, 60, 6.0, std::nullopt},  // 6.0 + 0.85 + 2.5 <= 10 - 0.55
        {3, 60, 6.2, "RAM budget exhausted (6.2 / 10.0 GB)"},
        {3, std::nullopt, 6.2, "RAM budget exhausted (6.2 / 10.0 GB)"},  // no reading: in use
        // Away: ceiling 48, reserve 1.5.
        {3, 600, 6.2, std::nullopt},
        {0, 1, 6.2, std::nullopt},  // no idle threshold: always away
        {3, 600, 46.0, "RAM budget exhausted (46.0 / 48.0 GB)"},
        // The probe failed: nothing is loaded.
        {3, 600, std::nullopt, "RAM probe unavailable \u2014 holding admission"},
    };
    for (const auto& row : rows) {
        const WhisperReloadAdmission admission{
            [&] {
                return WhisperReloadAdmission::Settings{row.idleMinutes, 10, 48};
            },
            [&] { return row.idleSeconds; }, [&] { return row.usedGB; }};
        LogCapture logs;
        EXPECT_EQ(admission(), row.refusal) << row.usedGB.value_or(-1) << " GB";
        EXPECT_EQ(logs.contains("MemoryAdmissionGate: hold"), row.refusal.has_value());
    }
}

// A budget made on the test model (8 MB of weights) would admit reloads that do not fit.
TEST(WhisperReloadAdmission, CountsWeightsOfTheRealSize) {
    const double fileGB =
        double(catalogueEntry(whisperModelIdentifier())->downloadSizeBytes) / double(1 << 30);
    for (bool inUse : {true, false}) {
        const MemoryBudget budget = WhisperReloadAdmission::budget(inUse);
        EXPECT_GE(budget.modelFootprintGB, fileGB * 0.95);
        EXPECT_LE(budget.modelFootprintGB, fileGB * 1.5);
        EXPECT_GT(budget.perShardWorkingSetGB, 0.5) << "an hour of audio and the model's buffers";
        EXPECT_EQ(budget.safetyReserveGB, inUse ? 2.5 : 1.5);
    }
}

}  // namespace
}  // namespace corvane::testing
