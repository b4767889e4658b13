#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/CapabilityAdvertiserStrategy.h"

namespace corvane::testing {
namespace {

CapabilityAdvertiser::Providers machine() {
    CapabilityAdvertiser::Providers providers;
    providers.capabilityProvider =
        CapabilityAdvertiser::whisperCapabilityProvider("4bit", [] { return true; });
    providers.chipTierProvider = [] { return std::string("t2"); };
    providers.ramGBProvider = [] { return std::int64_t{16}; };
    return providers;
}

TEST(Strategy, ThreadLimitsRoundWithinTheCoresAndASuggestionOnlyTightens) {
    struct Row {
        double ceiling;
        std::int64_t cpus, expected;
    };
    for (const Row& row : std::vector<Row>{
             {50, 8, 4}, {0, 8, 1}, {150, 8, 8}, {50, 0, 1}, {31.25, 8, 3}, {std::nan(""), 4, 1}}) {
        EXPECT_EQ(threadLimitFromCpuCeiling(row.ceiling, row.cpus), row.expected)
            << row.ceiling << "% of " << row.cpus;
    }

    const LocalStrategyFallback fallback{6, 4.0, 1.5, 0};
    EXPECT_EQ(effectiveStrategy(std::nullopt, fallback),
              (EffectiveStrategy{6, 4.0, 1.5, 1, std::nullopt}))
        << "shard count raised to at least 1";
    EXPECT_EQ(effectiveStrategy(CoordinatorStrategySuggestion{0, {}, {}, {}}, fallback).threadLimit,
              1);
    EXPECT_EQ(
        effectiveStrategy(CoordinatorStrategySuggestion{12, {}, {}, {}}, fallback).threadLimit, 6);
    auto merged =
        effectiveStrategy(CoordinatorStrategySuggestion{std::nullopt, 9.0, 0.5, 7}, fallback);
    EXPECT_EQ(merged.threadLimit, 6) << "no suggested limit keeps the local one";
    EXPECT_EQ(merged.modelFootprintGB, 4.0) << "a larger footprint doesn't raise the local one";
    EXPECT_EQ(merged.perShardWorkingSetGB, 0.5);
    EXPECT_EQ(merged.strategyVersion, 7);
}

TEST(CapabilityAdvertiser, TheRecordOnTheWireHoldsOnlyWhatIsKnown) {
    EXPECT_EQ(CapabilityAdvertiser::physicalRAMGB(1610612736ull), 2)
        << "1.5 GB rounds half away from zero";
    EXPECT_EQ(CapabilityAdvertiser::physicalRAMGB(1610612735ull), 1);

    Json wire = CapabilityAdvertiser(machine()).snapshot().encode();
    EXPECT_EQ(wire["chip_tier"], "T2");
    EXPECT_EQ(wire["ram_gb"], 16);
    EXPECT_EQ(wire["capabilities"],
              Json::parse(R"([{"backend":"whisper-cpp-swift","model":"whisper-large-v3-turbo-q4",
                                                    "cached":true,"quantization":"4bit"}])"));
    for (const auto& [key, value] : wire.items()) {
        EXPECT_FALSE(key.starts_with("compute_")) << "no budget, no " << key;
    }
    for (const char* key : {"installed_models", "active_model", "build_identity"})
        EXPECT_FALSE(wire.contains(key)) << key;

    auto providers = machine();
    providers.computeBudgetProvider = [] {
        return ComputeBudgetSnapshot::current(90, 50, "away", std::nullopt, 2, 8);
    };
    providers.buildIdentityProvider = [] { return std::optional<std::string>("0.1.0"); };
    wire = CapabilityAdvertiser(providers).snapshot().encode();
    EXPECT_EQ(wire["compute_thread_limit"], 4);
    EXPECT_EQ(wire["compute_resource_mode"], "away");
    EXPECT_EQ(wire["compute_cpu_count_efficiency"], 2);
    EXPECT_FALSE(wire.contains("compute_cpu_count_perf"))
        << "absent in the budget, absent on the wire";
    EXPECT_EQ(wire["build_identity"], "0.1.0");
}

}  // namespace
}  // namespace corvane::testing
