// config.yaml edited by hand while the application runs reaches its settings store (and through
// it the screens and the worker's limits) without a restart, and nothing is written back.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/config/FileCredentialBackend.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ManualExecutor.h"
#include "tests/support/ScratchFolder.h"

namespace corvane::testing {
namespace {

TEST(ConfigFollow, AHandEditReachesTheRunningSettingsAndIsNotWrittenBack) {
    ScratchFolder folder;
    ManualExecutor main;
    LogCapture logs;
    const std::string before =
        "coordinator_url: 'http://127.0.0.1:9'\nworker_id: 'w1'\n# the owner's notes\n"
        "resource_policy:\n  in_use_cpu_ceiling_pct: 20\n";
    const auto config = folder.write("varnix/config.yaml", before);
    AppEnvironment env = AppEnvironment::system("0.2.0");
    env.configPath = config;
    env.runtimeStatePath = folder / "varnix/worker-runtime-state.json";
    env.modelRoot = folder / "weights";
    env.parakeetDirectory = folder / "parakeet";
    env.tempDirectory = folder / "shards";
    env.userDefaultsFile = folder / "defaults.json";
    env.credentials = std::make_shared<FileCredentialBackend>(folder / "varnix/credentials");
    env.secondsSinceLastInput = [] { return std::optional<double>(0); };
    env.isOnACPower = [] { return true; };
    env.meetingProbe = [] { return MeetingDetector::Snapshot{}; };
    auto delegate = AppDelegate::create(main, std::move(env));
    delegate->launch();  // no token: not enrolled, but the settings are live
    auto& store = delegate->configStore();
    ASSERT_EQ(store.inUseCpuCeiling(), 20);

    std::string after = before;
    after.replace(after.find("in_use_cpu_ceiling_pct: 20"), 26, "in_use_cpu_ceiling_pct: 33");
    writeFileAtomically(config, after);  // as an editor saves: a new file renamed over the old
    // The watcher's word comes from its own thread through the main sequence.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (store.inUseCpuCeiling() != 33 && std::chrono::steady_clock::now() < deadline) {
        main.runUntilIdle();
        std::this_thread::yield();
    }
    EXPECT_EQ(store.inUseCpuCeiling(), 33);
    EXPECT_FALSE(store.hasPendingSave());
    main.advance(5);
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_EQ(readFile(config), after);
    delegate->terminate();
}

}  // namespace
}  // namespace corvane::testing
