#include "CorvaneApp/config/WorkerConfigWriter.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "tests/eligibility/ScopedTimeZone.h"
#include "tests/support/ScratchFolder.h"

namespace corvane {
namespace {

namespace cl = configlines;

class WorkerConfigWriterTest : public ::testing::Test {
  protected:
    static WorkerConfigWriter writer(std::string url = "https://coordinator.example:8443",
                                     std::string id = "w-42") {
        OnboardingConfiguration configuration;
        configuration.minIdleMinutes = 7;
        configuration.requireACPower = false;
        configuration.preset = OnboardingSchedulePreset::custom;
        configuration.schedule = {true, dateFromUnixSeconds(22 * 3600),
                                  dateFromUnixSeconds(6 * 3600 + 30 * 60)};
        return WorkerConfigWriter{
            std::move(url), std::move(id), {"Svc (h)", "w-42"}, configuration, [] {
                return dateFromUnixSeconds(1'794'862'853);
            }};  // 2026-11-16T21:00:53Z
    }

    testing::ScopedTimeZone utc_{"UTC"};  // the schedule's times are local
    testing::ScratchFolder dir_;
};

TEST_F(WorkerConfigWriterTest, RendersTheTemplateForABlankBase) {
    auto lines = cl::split(writer("https://o'brien.example").buildYAML(" \n\t\r\n"));
    ASSERT_EQ(lines.size(), 31u);
    EXPECT_EQ(lines.back(), "");
    const std::pair<size_t, std::string> expected[] = {
        {0, "coordinator_url: 'https://o''brien.example'"},
        {18, "  min_idle_minutes: 7"},
        {19, "  require_ac_power: false"},
        {27, "  enabled: true"},
        {28, "  start_time: '22:00'"},
        {29, "  end_time: '06:30'"},
    };
    for (const auto& [index, text] : expected) EXPECT_EQ(lines[index], text) << index;
    EXPECT_EQ(configyaml::extractTranscribeQuantization(writer().renderYAML()), "4bit");
}

TEST_F(WorkerConfigWriterTest, BuildYAMLUpdatesOnlyTheIdentityLines) {
    const std::string base =
        "worker_id: 'old' # previous\n"
        "idle_detection:\n"
        "  worker_id: 'nested'\n"
        "worker_token_keychain: {}\n"
        "  service: 'old'\n"
        "  extra: 'old'\n"
        "\n"
        "unknown_key: [1, 2]\n";
    const std::vector<std::string> expected{
        "onboarding_completed_at: '2026-11-16T21:00:53Z'",
        "coordinator_url: 'https://coordinator.example:8443'",
        "worker_id: 'w-42'",
        "idle_detection:",
        "  worker_id: 'nested'",
        "worker_token_keychain:",
        "  service: 'Svc (h)'",
        "  account: 'w-42'",
        "",
        "unknown_key: [1, 2]",
        "",
    };
    EXPECT_EQ(cl::split(writer().buildYAML(base)), expected);
}

TEST_F(WorkerConfigWriterTest, WriteCreatesTheFileAndReenrolmentKeepsSettings) {
    auto path = dir_ / "home/.varnix-compute/config.yaml";
    EXPECT_EQ(writer().write(path), path);
    EXPECT_EQ(WorkerConfig::load(path)->onboardingCompletedAt, "2026-11-16T21:00:53Z");

    writeFileAtomically(path, *readFile(path) + "payout_method: paypal\n");
    writer("https://other.example", "w-43").write(path);
    EXPECT_EQ(configyaml::scalarFlat("payout_method", *readFile(path)), "paypal");
    EXPECT_EQ(WorkerConfig::load(path)->workerID, "w-43");
}

TEST_F(WorkerConfigWriterTest, BadInputThrowsAndLeavesTheFileAlone) {
    auto path = dir_.write("config.yaml", "worker_id: 'keep'\n");
    // A line break would let a value write keys of its own.
    EXPECT_THROW(writer("https://x\nworker_id: 'evil'").write(path), std::invalid_argument);
    EXPECT_THROW(writer("https://x", "w\r1").renderYAML(), std::invalid_argument);
    EXPECT_EQ(*readFile(path), "worker_id: 'keep'\n");

    ::chmod(path.c_str(), 0444);
    try {
        writer().write(path);
        ADD_FAILURE() << "a read-only config was replaced";
    } catch (const std::system_error& error) {
        EXPECT_NE(std::string(error.what()).find("read-only"), std::string::npos) << error.what();
    }
    EXPECT_EQ(*readFile(path), "worker_id: 'keep'\n");
}

}  // namespace
}  // namespace corvane
