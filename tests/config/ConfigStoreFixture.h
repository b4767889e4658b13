#pragma once
// A WorkerConfigStore over a config.yaml in a temp home, with fake time, a manual executor and a
// manual background runner.

#include <memory>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualBackgroundRunner.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane::testing {

inline const std::string kEnrolled =
    "# owner's notes stay\n"
    "coordinator_url: 'https://c.example'\n"
    "worker_id: 'w-1'\n"
    "idle_detection:\n"
    "  min_idle_minutes: 3\n"
    "  require_ac_power: true\n"
    "resource_policy:\n"
    "  level_percent: 75\n"
    "future_key: keep me\n";

class ConfigStoreFixture : public ::testing::Test {
  protected:
    void SetUp() override {
        writeConfig(kEnrolled);
        makeStore();
    }
    std::filesystem::path configPath() const { return dir_ / "home/.varnix-compute/config.yaml"; }
    void writeConfig(const std::string& text) {
        dir_.write("home/.varnix-compute/config.yaml", text);
    }
    std::string configText() const { return readFile(configPath()).value_or("<missing>"); }
    std::optional<std::string> onDisk(std::string_view section, std::string_view key) const {
        return configyaml::scalarTop(section, key, configText());
    }
    std::optional<std::string> onDisk(std::string_view key) const {
        return configyaml::scalarFlat(key, configText());
    }

    WorkerConfigStore& makeStore(DataMode mode = DataMode::real) {
        store_ = std::make_unique<WorkerConfigStore>(
            executor_, defaults_, runner_,
            WorkerConfigStore::Options{configPath(), [] { return std::optional<double>(0); },
                                       mode});
        return *store_;
    }
    void choose(const std::string& method, const std::string& schedule) {
        store_->setPayoutMethod(method);
        store_->setPayoutSchedule(schedule);
        executor_.advance(WorkerConfigStore::saveDebounceSeconds);
    }
    void finishBackground() {
        ASSERT_TRUE(runner_.runNext());
        executor_.runUntilIdle();
    }

    ScratchFolder dir_;
    FakeClock clock_;
    ManualExecutor executor_{&clock_};
    ManualBackgroundRunner runner_;
    LogCapture logs_;
    UserDefaults defaults_;
    std::unique_ptr<WorkerConfigStore> store_;
};

}  // namespace corvane::testing
