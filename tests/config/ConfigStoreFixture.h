#pragma once
// A WorkerConfigStore over a config.yaml in a temp home, with fake time, a manual executor and a
// manual background runner.

#include <memory>

#include <gtest/gtest.h>

#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/config/ConfigManualRunner.h"
#include "tests/config/ConfigTempDir.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"

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
    std::filesystem::path configPath() const { return dir_ / "home/.varnix-compute/config.yaml"; }
    void writeConfig(const std::string& text) { dir_.write("home/.varnix-compute/config.yaml", text); }
    std::string configText() const { return readFile(configPath()).value_or("<missing>"); }

    WorkerConfigStore& makeStore(DataMode mode = DataMode::real) {
        store_ = std::make_unique<WorkerConfigStore>(
            executor_, defaults_, runner_,
            WorkerConfigStore::Options{configPath(), [this] { return idleSeconds_; }, mode});
        return *store_;
    }

    ConfigTempDir dir_;
    FakeClock clock_;
    ManualExecutor executor_{&clock_};
    ManualBackgroundRunner runner_;
    LogCapture logs_;
    UserDefaults defaults_;
    std::optional<double> idleSeconds_ = 0;
    std::unique_ptr<WorkerConfigStore> store_;
};

}  // namespace corvane::testing
