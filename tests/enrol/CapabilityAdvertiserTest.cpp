#include <gtest/gtest.h>

#include "CorvaneApp/coordinator/CapabilityAdvertiser.h"
#include "CorvaneApp/coordinator/CapabilityAdvertiserStrategy.h"

namespace corvane::testing {
namespace {

CapabilityAdvertiser::Providers machine(std::string tier = "t2", std::int64_t ram = 16) {
    CapabilityAdvertiser::Providers providers;
    providers.capabilityProvider = CapabilityAdvertiser::whisperCapabilityProvider("4bit", [] { return true; });
    providers.chipTierProvider = [tier] { return tier; };
    providers.ramGBProvider = [ram] { return ram; };
    return providers;
}

TEST(ThreadLimitFromCpuCeiling, RoundsHalfAwayAndStaysWithinOneAndTheCores) {
    struct Row {
        double ceiling;
        std::int64_t cpus;
        std::int64_t expected;
    };
    for (const Row& row : std::vector<Row>{{50, 8, 4}, {0, 8, 1}, {150, 8, 8}, {50, 0, 1}, {12.5, 8, 1}, {31.25, 8, 3},
                                           {-20, 8, 1}, {100, -3, 1}, {std::nan(""), 4, 1}}) {
        EXPECT_EQ(threadLimitFromCpuCeiling(row.ceiling, row.cpus), row.expected) << row.ceiling << "% of " << row.cpus;
    }
}

TEST(EffectiveStrategy, ASuggestionOnlyTightens) {
    const LocalStrategyFallback fallback{6, 4.0, 1.5, 0};
    auto alone = effectiveStrategy(std::nullopt, fallback);
    EXPECT_EQ(alone, (EffectiveStrategy{6, 4.0, 1.5, 1, std::nullopt})) << "shard count raised to at least 1";

    EXPECT_EQ(effectiveStrategy(CoordinatorStrategySuggestion{0, {}, {}, {}}, fallback).threadLimit, 1);
    EXPECT_EQ(effectiveStrategy(CoordinatorStrategySuggestion{12, {}, {}, {}}, fallback).threadLimit, 6);
    EXPECT_EQ(effectiveStrategy(CoordinatorStrategySuggestion{2, {}, {}, {}}, fallback).threadLimit, 2);

    auto merged = effectiveStrategy(CoordinatorStrategySuggestion{std::nullopt, 9.0, 0.5, 7}, fallback);
    EXPECT_EQ(merged.threadLimit, 6) << "no suggested limit keeps the local one";
    EXPECT_EQ(merged.modelFootprintGB, 4.0) << "a larger footprint doesn't raise the local one";
    EXPECT_EQ(merged.perShardWorkingSetGB, 0.5);
    EXPECT_EQ(merged.strategyVersion, 7);
}

TEST(ComputeBudgetSnapshot, ThreadLimitIsTheEffectiveShareOfTheProcessors) {
    auto budget = ComputeBudgetSnapshot::current(90, 50, "away", 4, std::nullopt, 10);
    EXPECT_EQ(budget.threadLimit, 5);
    EXPECT_EQ(budget.maxShardsInFlight, 1);
    EXPECT_EQ(budget.cpuCountTotal, 10);
    EXPECT_EQ(ComputeBudgetSnapshot::current(90, 0, "away", {}, {}, 10).threadLimit, 1);
    EXPECT_EQ(ComputeBudgetSnapshot::current(90, 300, "away", {}, {}, 10).threadLimit, 10);
}

TEST(CapabilityAdvertiser, RamTierAndTheRecordOnTheWire) {
    EXPECT_EQ(CapabilityAdvertiser::physicalRAMGB(17179869184ull), 16);
    EXPECT_EQ(CapabilityAdvertiser::physicalRAMGB(1610612736ull), 2) << "1.5 GB rounds half away from zero";
    EXPECT_EQ(CapabilityAdvertiser::physicalRAMGB(1610612735ull), 1);
    EXPECT_EQ(CapabilityAdvertiser::chipTierString("t4"), "T4");

    CapabilityAdvertiser bare(machine());
    Json wire = bare.snapshot().encode();
    EXPECT_EQ(wire["chip_tier"], "T2");
    EXPECT_EQ(wire["ram_gb"], 16);
    EXPECT_EQ(wire["capabilities"], Json::parse(R"([{"backend":"whisper-cpp-swift","model":"whisper-large-v3-turbo-q4",
                                                    "cached":true,"quantization":"4bit"}])"));
    for (const auto& [key, value] : wire.items()) {
        EXPECT_FALSE(key.starts_with("compute_")) << "no budget, no " << key;
    }
    EXPECT_FALSE(wire.contains("installed_models"));
    EXPECT_FALSE(wire.contains("active_model"));
    EXPECT_FALSE(wire.contains("build_identity"));

    auto providers = machine();
    providers.computeBudgetProvider = [] { return ComputeBudgetSnapshot::current(90, 50, "away", std::nullopt, 2, 8); };
    providers.buildIdentityProvider = [] { return std::optional<std::string>("0.1.0"); };
    wire = CapabilityAdvertiser(providers).snapshot().encode();
    EXPECT_EQ(wire["compute_thread_limit"], 4);
    EXPECT_EQ(wire["compute_resource_mode"], "away");
    EXPECT_EQ(wire["compute_cpu_count_efficiency"], 2);
    EXPECT_FALSE(wire.contains("compute_cpu_count_perf")) << "absent in the budget, absent on the wire";
    EXPECT_EQ(wire["build_identity"], "0.1.0");
}

TEST(CapabilityAdvertiser, EverySnapshotAsksTheProvidersAgain) {
    bool cached = false;
    std::vector<ModelIdentifier> installed;
    std::optional<ModelIdentifier> active;
    auto providers = machine();
    providers.capabilityProvider = CapabilityAdvertiser::whisperCapabilityProvider(std::nullopt, [&] { return cached; });
    providers.installedModelsProvider = [&] { return std::optional(installed); };
    providers.activeModelProvider = [&] { return active; };
    CapabilityAdvertiser advertiser(providers);

    auto first = advertiser.snapshot();
    EXPECT_FALSE(first.capabilities.at(0).cached);
    EXPECT_EQ(first.installedModels, std::vector<ModelIdentifier>{});
    EXPECT_FALSE(first.encode()["capabilities"][0].contains("quantization"));

    cached = true;
    installed.push_back(defaultModelIdentifier());
    active = defaultModelIdentifier();
    auto second = advertiser.snapshot();
    EXPECT_TRUE(second.capabilities.at(0).cached) << "a model downloaded since the last poll is advertised";
    EXPECT_EQ(second.installedModels->size(), 1u);
    EXPECT_EQ(second.encode()["active_model"]["model"], "whisper-large-v3-turbo-q4");
}

TEST(CapabilityAdvertiser, RefusesToBeBuiltWithoutTheRequiredProviders) {
    auto noRam = machine();
    noRam.ramGBProvider = nullptr;
    EXPECT_THROW(CapabilityAdvertiser{noRam}, std::invalid_argument);
    auto noCapabilities = machine();
    noCapabilities.capabilityProvider = nullptr;
    EXPECT_THROW(CapabilityAdvertiser{noCapabilities}, std::invalid_argument);
}

}  // namespace
}  // namespace corvane::testing
