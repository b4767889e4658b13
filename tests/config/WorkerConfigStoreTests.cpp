#include "CorvaneApp/config/WorkerConfigStore.h"

#include <sys/stat.h>
#include <cmath>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "tests/config/ConfigLineDiff.h"
#include "tests/config/ConfigStoreFixture.h"

namespace corvane {
namespace {

using Field = WorkerConfigStore::Field;
using WorkerConfigStoreTest = testing::ConfigStoreFixture;
using testing::kEnrolled;

TEST_F(WorkerConfigStoreTest, ChangesAreDebouncedIntoOneTrailingSave) {
    auto& store = *store_;
    store.setAwayCpuCeiling(70);
    executor_.advance(0.3);
    store.setPauseOnMeeting(false);
    executor_.advance(0.45);
    EXPECT_EQ(store.saveCount(), 0) << "the second change restarts the half second";
    executor_.advance(0.05);
    EXPECT_EQ(store.saveCount(), 1);
    EXPECT_EQ(onDisk("resource_policy", "away_cpu_ceiling_pct"), "70");
    EXPECT_EQ(onDisk("idle_detection", "pause_on_meeting"), "false");

    store.setInUseCpuCeiling(33);
    store.cancelPendingSave();
    executor_.advance(1);
    EXPECT_EQ(store.saveCount(), 1);
}

TEST_F(WorkerConfigStoreTest, SaveWritesEveryOwnedKeyAndNothingElse) {
    auto& store = *store_;
    store.setAwayRamCeilingGB(7.9);  // saved whole, kept with its fraction in memory
    executor_.advance(0.5);
    // Every owned key is added (the grid as seven rows), no line of the file changes.
    auto diff = testing::diffLines(configlines::split(kEnrolled), configlines::split(configText()));
    EXPECT_TRUE(diff.removed.empty()) << diff.removed.front();
    EXPECT_EQ(diff.added.size(), 6 + 2 + 2 + 7u);
    EXPECT_DOUBLE_EQ(store.awayRamCeilingGB(), 7.9);

    // A restart reads every setting back, numbers as the whole values written.
    store.setInUseCpuCeiling(33);
    store.setInUseRamCeilingGB(5);
    store.setIdleMinutes(12);
    store.setPauseOnHeavyApp(false);
    store.setScheduleGrid(ScheduleGrid::normalize({{false, true}}));
    executor_.advance(0.5);
    auto saved = store.settings();
    saved.awayRamCeilingGB = 7;
    store_.reset();
    EXPECT_EQ(makeStore().settings(), saved);
}

TEST_F(WorkerConfigStoreTest, SettersNotifyRealChangesClampAndRefuseBrokenValues) {
    auto& store = *store_;
    std::vector<Field> heard;
    auto subscription = store.observe([&](Field field) { heard.push_back(field); });
    store.setPauseOnMeeting(true);  // equal to the current value: no news
    EXPECT_TRUE(heard.empty());
    store.setAwayCpuCeiling(250);
    EXPECT_EQ(heard, std::vector<Field>{Field::awayCpuCeiling});
    subscription.reset();
    store.setAwayCpuCeiling(20);
    EXPECT_EQ(heard.size(), 1u);

    store.setAwayCpuCeiling(250);
    EXPECT_EQ(store.awayCpuCeiling(), 100);
    store.setInUseRamCeilingGB(-3);
    EXPECT_EQ(store.inUseRamCeilingGB(), 0);
    store.setIdleMinutes(std::numeric_limits<double>::infinity());
    store.setIdleMinutes(std::nan(""));
    EXPECT_EQ(store.idleMinutes(), 7 * 24 * 60);
    store.setPayoutMethod("ach\nworker_id: 'stolen'");
    EXPECT_EQ(store.payoutMethod(), "ach");
    EXPECT_TRUE(logs_.contains("refused a payout method with a line break"));
    executor_.advance(0.5);
    EXPECT_EQ(WorkerConfig::parse(configText())->workerID, "w-1");
}

TEST_F(WorkerConfigStoreTest, WithoutAFileChangesStayInMemoryUntilEnrolmentWritesOne) {
    std::filesystem::remove(configPath());
    auto& store = makeStore();
    store.setIdleMinutes(9);
    executor_.advance(0.5);
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_EQ(store.idleMinutes(), 9);
    EXPECT_FALSE(std::filesystem::exists(configPath())) << "the store never creates the file";
    EXPECT_TRUE(logs_.contains(
        "WorkerConfigStore saveNow skipped — no config.yaml yet (worker not enrolled)"));

    // The next change picks up the new file's settings and keeps the unsaved edit.
    writeConfig(kEnrolled + "resource_policy:\n  away_cpu_ceiling_pct: 44\n");
    store.setPauseOnHeavyApp(false);
    EXPECT_EQ(store.awayCpuCeiling(), 44);
    executor_.advance(0.5);
    EXPECT_EQ(store.saveCount(), 1);
    EXPECT_EQ(onDisk("idle_detection", "min_idle_minutes"), "9");
    EXPECT_EQ(onDisk("idle_detection", "pause_on_heavy_app"), "false");
    EXPECT_EQ(onDisk("resource_policy", "away_cpu_ceiling_pct"), "44");
}

TEST_F(WorkerConfigStoreTest, ExternalEditsAndReload) {
    auto& store = *store_;
    // Another writer changes min_idle_minutes and adds a line; the store owns its keys, so its
    // value wins, and the other line stays.
    auto external = kEnrolled + "# added elsewhere\n";
    writeConfig(external.replace(external.find("min_idle_minutes: 3"), 19, "min_idle_minutes: 10"));
    store.setPauseOnMeeting(false);
    executor_.advance(0.5);
    EXPECT_EQ(onDisk("idle_detection", "min_idle_minutes"), "3");
    EXPECT_NE(configText().find("# added elsewhere\n"), std::string::npos);

    // reload applies the file without dirtying anything; a removed key returns to its default.
    std::vector<Field> heard;
    auto subscription = store.observe([&](Field field) { heard.push_back(field); });
    writeConfig(
        "coordinator_url: 'https://c.example'\nworker_id: 'w-1'\nidle_detection:\n  "
        "min_idle_minutes: 8\n");
    store.reload();
    EXPECT_EQ(store.idleMinutes(), 8);
    EXPECT_TRUE(store.pauseOnMeeting());
    EXPECT_FALSE(store.hasPendingSave());
    EXPECT_EQ(heard, (std::vector<Field>{Field::idleMinutes, Field::pauseOnMeeting}));
}

TEST_F(WorkerConfigStoreTest, FollowingAHandEditKeepsBothTheFileAndTheOwnersPendingEdit) {
    auto& store = *store_;
    std::vector<Field> heard;
    auto subscription = store.observe([&](Field field) { heard.push_back(field); });
    store.setInUseCpuCeiling(35);  // pending, not yet saved
    // Edited by hand meanwhile: the idle minutes, a line the scanners cannot read, a comment.
    auto edited = kEnrolled;
    edited.replace(edited.find("min_idle_minutes: 3"), 19, "min_idle_minutes: 12");
    edited += "resource_policy_note: hand\n";
    edited.replace(edited.find("  level_percent: 75\n"), 20,
                   "  level_percent: 75\n  away_cpu_ceiling_pct: lots\n");
    writeConfig(edited);
    store.followFileChange();
    EXPECT_EQ(store.idleMinutes(), 12) << "the file's value is taken";
    EXPECT_EQ(store.inUseCpuCeiling(), 35) << "the owner's unsaved edit stays";
    EXPECT_EQ(store.awayCpuCeiling(), 90) << "an unreadable value shows the default";
    EXPECT_EQ(heard, (std::vector<Field>{Field::inUseCpuCeiling, Field::idleMinutes}));
    EXPECT_EQ(store.dirtyFields(), std::set<std::string>{"inUseCpuCeiling"});
    EXPECT_EQ(configText(), edited) << "following writes nothing";

    executor_.advance(0.5);
    EXPECT_EQ(onDisk("idle_detection", "min_idle_minutes"), "12") << "the hand edit survives";
    EXPECT_EQ(onDisk("resource_policy", "in_use_cpu_ceiling_pct"), "35");
    EXPECT_NE(configText().find("resource_policy_note: hand"), std::string::npos);

    // The store's own save, a file gone and a file unchanged are no news.
    heard.clear();
    store.followFileChange();
    std::filesystem::remove(configPath());
    store.followFileChange();
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(store.idleMinutes(), 12);
    EXPECT_FALSE(store.hasPendingSave());
}

TEST_F(WorkerConfigStoreTest, AnUnreadableLineShowsTheDefaultAndNothingIsSavedUntilAChange) {
    auto text = kEnrolled;
    text.replace(text.find("  level_percent: 75\n"), 20,
                 "  level_percent: 75\n  in_use_ram_ceiling_gb: 1,5\n");
    writeConfig(text);
    auto& store = makeStore();
    EXPECT_EQ(store.inUseRamCeilingGB(), 10);
    store.followFileChange();
    store.reload();
    executor_.advance(5);
    EXPECT_FALSE(store.hasPendingSave());
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_EQ(configText(), text);
}

// The owner's one setting to keep the model in memory while paused: edited by hand, read live,
// never written by the store, and anything but a Boolean leaves the default (release).
TEST_F(WorkerConfigStoreTest, KeepModelLoadedIsReadFromResourcePolicyOnly) {
    const std::pair<const char*, bool> rows[] = {
        {"", false},
        {"resource_policy:\n  keep_model_loaded: true\n", true},
        {"resource_policy:\n  away_cpu_ceiling_pct: 90\n  keep_model_loaded: false # speed\n",
         false},
        {"resource_policy:\n  keep_model_loaded: 'true'\n", true},
        {"resource_policy:\n  keep_model_loaded: sometimes\n", false},
        {"keep_model_loaded: true\n", false},  // not in its section
        {"idle_detection:\n  keep_model_loaded: true\n", false},
    };
    for (const auto& [yaml, keep] : rows) {
        EXPECT_EQ(WorkerConfigStore::extractKeepModelLoaded(yaml), keep) << yaml;
    }
    auto& store = *store_;
    std::string text = kEnrolled;
    writeConfig(text.insert(text.find("  level_percent"), "  keep_model_loaded: true\n"));
    store.reload();
    store.setAwayCpuCeiling(50);
    executor_.advance(0.5);
    EXPECT_EQ(onDisk("resource_policy", "keep_model_loaded"), "true") << "kept as written";
    EXPECT_TRUE(WorkerConfigStore::extractKeepModelLoaded(store.currentYAMLForRuntimeReads()));
}

TEST_F(WorkerConfigStoreTest, DemoModeNeverTouchesTheFile) {
    auto& store = makeStore(DataMode::dummy);
    store.setPayoutMethod("paypal");
    executor_.advance(0.5);
    store.flushPendingSave();
    EXPECT_EQ(configText(), kEnrolled);
    EXPECT_EQ(store.payoutMethod(), "paypal");
    EXPECT_FALSE(store.queuedPayoutPrefsSync());
}

TEST_F(WorkerConfigStoreTest, ReadOnlyFileFailsTheSaveAndKeepsTheEdits) {
    ::chmod(configPath().c_str(), 0444);
    auto& store = makeStore();
    store.setIdleMinutes(15);
    executor_.advance(0.5);
    EXPECT_EQ(configText(), kEnrolled);
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_TRUE(logs_.contains("WorkerConfigStore error: WorkerConfigStore save failed: "));

    ::chmod(configPath().c_str(), 0600);
    store.setPauseOnMeeting(false);
    executor_.advance(0.5);
    EXPECT_EQ(onDisk("idle_detection", "min_idle_minutes"), "15");
}

TEST(UserDefaultsTest, PersistsTypedValuesPrivatelyAndSurvivesBadFiles) {
    testing::ScratchFolder dir;
    auto file = dir / "Corvane/user-defaults.json";
    UserDefaults(file).setString("tab", "limits");
    UserDefaults(file).setBool("daily", true);
    UserDefaults(file).setNumber("broken", std::nan(""));
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    UserDefaults reread(file);
    EXPECT_EQ(reread.string("tab"), "limits");
    EXPECT_EQ(reread.boolean("daily"), true);
    EXPECT_EQ(reread.string("daily"), std::nullopt) << "a value of another type is absent";
    EXPECT_FALSE(reread.contains("broken"));

    // A truncated file is set aside, not overwritten by the next write.
    writeFileAtomically(file, "{\"tab\": \"lim");
    UserDefaults(file).setBool("payout", false);
    EXPECT_EQ(readFile(file.string() + ".corrupt"), "{\"tab\": \"lim");
    EXPECT_EQ(UserDefaults(file).keys(), std::vector<std::string>{"payout"});
}

}  // namespace
}  // namespace corvane
