#include "CorvaneApp/config/WorkerConfigStore.h"

#include <cmath>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "tests/config/ConfigLineDiff.h"
#include "tests/config/ConfigStoreFixture.h"

namespace corvane {
namespace {

namespace cl = configlines;
using Field = WorkerConfigStore::Field;

using WorkerConfigStoreTest = testing::ConfigStoreFixture;
using testing::kEnrolled;

TEST_F(WorkerConfigStoreTest, ChangesAreDebouncedIntoOneTrailingSave) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    store.setAwayCpuCeiling(70);
    executor_.advance(0.3);
    store.setPauseOnMeeting(false);
    executor_.advance(0.45);
    EXPECT_EQ(store.saveCount(), 0) << "the second change restarts the half second";
    EXPECT_TRUE(store.hasPendingSave());
    executor_.advance(0.05);
    EXPECT_EQ(store.saveCount(), 1);
    EXPECT_FALSE(store.hasPendingSave());
    EXPECT_TRUE(store.dirtyFields().empty());
    EXPECT_EQ(configyaml::scalarTop("resource_policy", "away_cpu_ceiling_pct", configText()), "70");
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "pause_on_meeting", configText()), "false");
    EXPECT_TRUE(logs_.contains("WorkerConfigStore info: WorkerConfigStore saved to " + configPath().string()));
    executor_.advance(5);
    EXPECT_EQ(store.saveCount(), 1);

    store.flushPendingSave();
    EXPECT_EQ(store.saveCount(), 1) << "nothing pending, nothing written";
    store.setInUseCpuCeiling(33);
    store.flushPendingSave();  // at once, and its timer is cancelled
    EXPECT_EQ(store.saveCount(), 2);
    executor_.advance(1);
    EXPECT_EQ(store.saveCount(), 2);
}

TEST_F(WorkerConfigStoreTest, SaveWritesEveryOwnedKeyAndNothingElse) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    store.setAwayRamCeilingGB(7.9);  // saved whole, kept with its fraction in memory
    executor_.advance(0.5);
    auto before = cl::split(kEnrolled);
    auto after = cl::split(configText());
    auto diff = testing::diffLines(before, after);
    EXPECT_TRUE(diff.removed.empty()) << diff.removed.front();
    const std::vector<std::string> expectedAdded{
        "  pause_on_meeting: true",     "  pause_on_heavy_app: true",   "  away_cpu_ceiling_pct: 90",
        "  away_ram_ceiling_gb: 7",     "  in_use_cpu_ceiling_pct: 20", "  in_use_ram_ceiling_gb: 10",
        "payout_method: ach",           "payout_schedule: weekly",      "schedule:",
        "  weekly_grid:",
    };
    for (const auto& line : expectedAdded) {
        EXPECT_NE(std::find(diff.added.begin(), diff.added.end(), line), diff.added.end()) << line;
    }
    EXPECT_EQ(diff.added.size(), expectedAdded.size() + 7) << "plus seven grid rows";
    EXPECT_DOUBLE_EQ(store.awayRamCeilingGB(), 7.9);

    // A restart reads the same settings back, numbers as the whole values written.
    store.setIdleMinutes(12);
    executor_.advance(0.5);
    auto saved = store.settings();
    saved.awayRamCeilingGB = 7;
    store_.reset();
    EXPECT_EQ(makeStore().settings(), saved);
}

TEST_F(WorkerConfigStoreTest, ObserversHearRealChangesWhileEqualAssignmentsStillDirty) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    std::vector<Field> heard;
    auto subscription = store.observe([&](Field field) { heard.push_back(field); });
    store.setPauseOnMeeting(true);  // equal to the default
    EXPECT_TRUE(heard.empty());
    EXPECT_EQ(store.dirtyFields(), std::set<std::string>{"pauseOnMeeting"});
    store.setInUseCpuCeiling(35);
    EXPECT_EQ(heard, std::vector<Field>{Field::inUseCpuCeiling});
    subscription.reset();
    store.setInUseCpuCeiling(36);
    EXPECT_EQ(heard.size(), 1u);
}

TEST_F(WorkerConfigStoreTest, SettersClampNumbersAndRefuseBrokenValues) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    store.setAwayCpuCeiling(250);
    EXPECT_EQ(store.awayCpuCeiling(), 100);
    store.setInUseRamCeilingGB(-3);
    EXPECT_EQ(store.inUseRamCeilingGB(), 0);
    store.setIdleMinutes(std::numeric_limits<double>::infinity());
    EXPECT_EQ(store.idleMinutes(), 7 * 24 * 60);
    store.setIdleMinutes(std::nan(""));
    EXPECT_EQ(store.idleMinutes(), 7 * 24 * 60);
    store.setPayoutMethod("ach\nworker_id: 'stolen'");
    EXPECT_EQ(store.payoutMethod(), "ach");
    EXPECT_TRUE(logs_.contains("refused a payout method with a line break"));
    executor_.advance(0.5);
    EXPECT_EQ(WorkerConfig::parse(configText())->workerID, "w-1");
}

TEST_F(WorkerConfigStoreTest, WithoutAFileChangesStayInMemory) {
    auto& store = makeStore();
    EXPECT_TRUE(logs_.contains("config.yaml not found at " + configPath().string() + " — using defaults"));
    store.setIdleMinutes(9);
    executor_.advance(0.5);
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_EQ(store.idleMinutes(), 9);
    EXPECT_EQ(store.dirtyFields(), std::set<std::string>{"idleMinutes"});
    EXPECT_FALSE(std::filesystem::exists(configPath())) << "the store never creates the file";
    EXPECT_TRUE(logs_.contains("WorkerConfigStore saveNow skipped — no config.yaml yet (worker not enrolled)"));

    // Enrolment writes the file later; the next change picks up its settings and keeps the edit.
    writeConfig(kEnrolled + "resource_policy:\n  away_cpu_ceiling_pct: 44\n");
    store.setPauseOnHeavyApp(false);
    EXPECT_EQ(store.awayCpuCeiling(), 44);
    EXPECT_EQ(store.idleMinutes(), 9);
    executor_.advance(0.5);
    EXPECT_EQ(store.saveCount(), 1);
    auto text = configText();
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "min_idle_minutes", text), "9");
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "pause_on_heavy_app", text), "false");
    EXPECT_EQ(configyaml::scalarTop("resource_policy", "away_cpu_ceiling_pct", text), "44");
}

TEST_F(WorkerConfigStoreTest, ExternalEditsAndReload) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    // Another writer changes min_idle_minutes; the owner changes pauseOnMeeting: the save writes
    // the store's values of both, because the store owns all its keys.
    writeConfig(kEnrolled + "# added elsewhere\n");
    auto external = configText();
    external.replace(external.find("min_idle_minutes: 3"), 19, "min_idle_minutes: 10");
    writeConfig(external);
    store.setPauseOnMeeting(false);
    executor_.advance(0.5);
    auto text = configText();
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "min_idle_minutes", text), "3");
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "pause_on_meeting", text), "false");
    EXPECT_NE(text.find("# added elsewhere\n"), std::string::npos);

    // reload applies the file without dirtying anything; a removed key returns to its default.
    std::vector<Field> heard;
    auto subscription = store.observe([&](Field field) { heard.push_back(field); });
    writeConfig("coordinator_url: 'https://c.example'\nworker_id: 'w-1'\nidle_detection:\n  min_idle_minutes: 8\n");
    store.reload();
    EXPECT_EQ(store.idleMinutes(), 8);
    EXPECT_TRUE(store.pauseOnMeeting());
    EXPECT_TRUE(store.dirtyFields().empty());
    EXPECT_FALSE(store.hasPendingSave());
    EXPECT_EQ(heard, (std::vector<Field>{Field::idleMinutes, Field::pauseOnMeeting}));

    store.setAwayCpuCeiling(12);
    store.resetToDefaults();
    EXPECT_EQ(store.settings(), WorkerSettings{});
    EXPECT_EQ(store.dirtyFields(), std::set<std::string>{"awayCpuCeiling"}) << "reset dirties nothing itself";
    store.cancelPendingSave();
    executor_.advance(1);
    EXPECT_EQ(store.saveCount(), 1);
    EXPECT_TRUE(store.dirtyFields().empty());
}

TEST_F(WorkerConfigStoreTest, DemoModeNeverTouchesTheFile) {
    writeConfig(kEnrolled);
    auto& store = makeStore(DataMode::dummy);
    store.setPayoutMethod("paypal");
    store.setScheduleGrid(ScheduleGrid::normalize({{false}}));
    executor_.advance(0.5);
    store.flushPendingSave();
    EXPECT_EQ(configText(), kEnrolled);
    EXPECT_EQ(store.payoutMethod(), "paypal");
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_FALSE(store.queuedPayoutPrefsSync());
    EXPECT_TRUE(logs_.contains("WorkerConfigStore saveNow skipped — demo mode keeps config changes in memory only"));
}

TEST_F(WorkerConfigStoreTest, ReadOnlyFileFailsTheSaveAndKeepsTheEdits) {
    writeConfig(kEnrolled);
    ::chmod(configPath().c_str(), 0444);
    auto& store = makeStore();
    store.setIdleMinutes(15);
    executor_.advance(0.5);
    EXPECT_EQ(configText(), kEnrolled);
    EXPECT_EQ(store.saveCount(), 0);
    EXPECT_EQ(store.dirtyFields(), std::set<std::string>{"idleMinutes"});
    EXPECT_TRUE(logs_.contains("WorkerConfigStore error: WorkerConfigStore save failed: "));
    EXPECT_TRUE(logs_.contains("read-only"));

    ::chmod(configPath().c_str(), 0600);
    store.setPauseOnMeeting(false);
    executor_.advance(0.5);
    EXPECT_EQ(store.saveCount(), 1);
    EXPECT_EQ(configyaml::scalarTop("idle_detection", "min_idle_minutes", configText()), "15");
}

TEST_F(WorkerConfigStoreTest, EffectiveResourcePercentFollowsTheIdleThreshold) {
    writeConfig(kEnrolled);
    auto& store = makeStore();
    store.setAwayCpuCeiling(87.5);
    store.setInUseCpuCeiling(20.4);
    store.setIdleMinutes(3);
    const std::pair<std::optional<double>, int> rows[] = {
        {0.0, 20}, {179.9, 20}, {180.0, 88}, {std::nullopt, 20},
    };
    for (const auto& [idle, expected] : rows) {
        idleSeconds_ = idle;
        EXPECT_EQ(store.currentEffectiveResourcePercentFallback(), expected) << idle.value_or(-1);
    }
    store.setIdleMinutes(0);
    idleSeconds_ = std::nullopt;
    EXPECT_EQ(store.currentEffectiveResourcePercentFallback(), 88) << "no threshold means away";
}

TEST_F(WorkerConfigStoreTest, RuntimeReadsPreferTheLastKnownText) {
    auto& store = makeStore();
    EXPECT_EQ(store.currentYAMLForRuntimeReads(), "");
    writeConfig("handlers:\n  transcribe:\n    quantization: '8bit'\n");
    EXPECT_EQ(WorkerConfigStore::extractTranscribeQuantization(store.currentYAMLForRuntimeReads()), "8bit");
    store.reload();
    writeConfig("handlers:\n  transcribe:\n    quantization: 'q5'\n");
    EXPECT_EQ(WorkerConfigStore::extractTranscribeQuantization(store.currentYAMLForRuntimeReads()), "8bit");
}

struct ParsedRow {
    const char* name;
    std::string yaml;
    std::function<void(WorkerSettings&)> expect;  // edits the defaults into what must be read
    const char* logged;
};

TEST_F(WorkerConfigStoreTest, ParseSettingsTakesWhatConvertsAndLogsTheRest) {
    std::string grid6 = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 6; ++day) grid6 += "    - [false]\n";
    const ParsedRow rows[] = {
        {"quoted and word Booleans", "idle_detection:\n  min_idle_minutes: \"5\"\n  pause_on_meeting: Yes\n",
         [](WorkerSettings& s) { s.idleMinutes = 5; }, nullptr},
        {"not a Boolean", "idle_detection:\n  pause_on_meeting: maybe\n", [](WorkerSettings&) {},
         "idle_detection.pause_on_meeting = 'maybe' is not true or false"},
        {"fraction kept", "resource_policy:\n  away_cpu_ceiling_pct: 7.5\n", [](WorkerSettings& s) { s.awayCpuCeiling = 7.5; },
         nullptr},
        {"out of range", "resource_policy:\n  away_cpu_ceiling_pct: 250\n  in_use_ram_ceiling_gb: -1\n",
         [](WorkerSettings&) {}, "resource_policy.away_cpu_ceiling_pct = 250 is outside 0 to 100"},
        {"not finite", "idle_detection:\n  min_idle_minutes: 1e400\n", [](WorkerSettings&) {},
         "idle_detection.min_idle_minutes = '1e400' is not a number"},
        {"payout with comment", "payout_method: paypal # note\npayout_schedule: ''\n",
         [](WorkerSettings& s) { s.payoutMethod = "paypal"; }, nullptr},
        {"grid falls back to run_schedule", "run_schedule:\n  weekly_grid:\n    - [false, true]\n",
         [](WorkerSettings& s) { s.scheduleGrid = ScheduleGrid::normalize({{false, true}}); }, nullptr},
        {"schedule wins over run_schedule",
         "run_schedule:\n  weekly_grid:\n    - [false]\nschedule:\n  weekly_grid:\n    - [true, false]\n",
         [](WorkerSettings& s) { s.scheduleGrid = ScheduleGrid::normalize({{true, false}}); }, nullptr},
        {"six rows", grid6,
         [](WorkerSettings& s) { s.scheduleGrid = ScheduleGrid::normalize(std::vector<std::vector<bool>>(6, {false})); },
         nullptr},
    };
    for (const auto& row : rows) {
        WorkerSettings expected;
        row.expect(expected);
        EXPECT_EQ(WorkerConfigStore::parseSettings(row.yaml), expected) << row.name;
        if (row.logged) {
            EXPECT_TRUE(logs_.contains(row.logged)) << row.name;
        }
    }
}

}  // namespace
}  // namespace corvane

namespace corvane {
namespace {

TEST(UserDefaultsTest, PersistsTypedValuesAndSurvivesBadFiles) {
    testing::ConfigTempDir dir;
    auto file = dir / "Corvane/user-defaults.json";
    {
        UserDefaults defaults(file);
        defaults.setString("cvn.schedule.tab", "limits");
        defaults.setBool("notify.daily", true);
        defaults.setInteger("notify.dailyHour", 20);
        defaults.setNumber("ratio", 0.5);
        defaults.setNumber("broken", std::nan(""));
        EXPECT_TRUE(defaults.lastWriteSucceeded());
    }
    struct stat info {};
    ASSERT_EQ(::stat(file.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    UserDefaults reread(file);
    EXPECT_EQ(reread.string("cvn.schedule.tab"), "limits");
    EXPECT_EQ(reread.boolean("notify.daily"), true);
    EXPECT_EQ(reread.integer("notify.dailyHour"), 20);
    EXPECT_EQ(reread.number("notify.dailyHour"), 20.0);
    EXPECT_EQ(reread.integer("ratio"), std::nullopt);
    EXPECT_EQ(reread.string("notify.daily"), std::nullopt) << "a value of another type is absent";
    EXPECT_FALSE(reread.contains("broken"));
    reread.remove("ratio");
    EXPECT_FALSE(UserDefaults(file).contains("ratio"));

    // A truncated file is set aside, not overwritten by the next write.
    testing::LogCapture logs;
    writeFileAtomically(file, "{\"cvn.schedule.tab\": \"lim");
    UserDefaults fresh(file);
    EXPECT_TRUE(fresh.keys().empty());
    EXPECT_EQ(readFile(file.string() + ".corrupt"), "{\"cvn.schedule.tab\": \"lim");
    EXPECT_TRUE(logs.contains("is not a JSON object"));
    fresh.setBool("notify.payout", false);
    EXPECT_EQ(UserDefaults(file).boolean("notify.payout"), false);

    // A folder that can't be made: the value stays in memory and the failure is logged.
    dir.write("blocker", "a file where a folder should be");
    UserDefaults unwritable(dir / "blocker/user-defaults.json");
    unwritable.setString("k", "v");
    EXPECT_FALSE(unwritable.lastWriteSucceeded());
    EXPECT_EQ(unwritable.string("k"), "v");
    EXPECT_TRUE(logs.contains("UserDefaults write failed"));
}

}  // namespace
}  // namespace corvane
