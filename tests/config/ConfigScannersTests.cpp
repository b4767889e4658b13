#include "CorvaneApp/config/ConfigScanners.h"

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ScheduleGrid.h"
#include "CorvaneApp/config/WorkerConfig.h"

namespace corvane::configyaml {
namespace {

using Opt = std::optional<std::string>;

struct ScalarRow {
    const char* name;
    std::string yaml;
    Opt expected;
};

TEST(ConfigScannersTest, ScalarTopReadsTheFirstMatchInItsSection) {
    const ScalarRow rows[] = {
        {"plain", "idle_detection:\n  min_idle_minutes: 5\n", "5"},
        {"double quotes", "idle_detection:\n  min_idle_minutes: \"5\"\n", "5"},
        {"comment after value", "idle_detection:\n  min_idle_minutes: 5 # five\n", "5"},
        {"quoted then comment keeps quotes", "idle_detection:\n  min_idle_minutes: '5' # x\n", "'5'"},
        {"hash without blank stays", "idle_detection:\n  min_idle_minutes: 5#x\n", "5#x"},
        {"empty value", "idle_detection:\n  min_idle_minutes:\n", ""},
        {"other section", "polling:\n  min_idle_minutes: 5\n", std::nullopt},
        {"section ended by unindented key", "idle_detection:\nother: 1\n  min_idle_minutes: 5\n", std::nullopt},
        {"blank lines and column-0 comments keep the section",
         "idle_detection:\n\n# note\n  min_idle_minutes: 6\n", "6"},
        {"repeated header is entered again",
         "idle_detection:\n  a: 1\npolling:\n  min_idle_minutes: 1\nidle_detection:\n  min_idle_minutes: 7\n", "7"},
        {"duplicate key: first wins", "idle_detection:\n  min_idle_minutes: 2\n  min_idle_minutes: 9\n", "2"},
        {"key in an indented comment", "idle_detection:\n  # min_idle_minutes: 9\n  min_idle_minutes: 4\n", "4"},
        {"key in a column-0 comment", "# idle_detection:\n#  min_idle_minutes: 9\n", std::nullopt},
        {"tab indentation", "idle_detection:\n\tmin_idle_minutes:\t8\n", "8"},
        {"CRLF line ends", "idle_detection:\r\n  min_idle_minutes: 5\r\n", "5"},
        {"byte-order mark before the section", "\xEF\xBB\xBFidle_detection:\n  min_idle_minutes: 5\n", "5"},
        {"no final newline", "idle_detection:\n  min_idle_minutes: 12", "12"},
        {"header with inline value", "idle_detection: yes\n  min_idle_minutes: 3\n", "3"},
        {"longer key is another key", "idle_detection:\n  min_idle_minutes_old: 3\n", std::nullopt},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(scalarTop("idle_detection", "min_idle_minutes", row.yaml), row.expected) << row.name;
    }
}

TEST(ConfigScannersTest, ScalarFlatAndExtractTopLevelStringCutCommentsDifferently) {
    const std::string yaml =
        "worker_id_old: 'zzz'\n"
        "worker_id: 'abc' # x\n"
        "payout_method: ach # note\n"
        "coordinator_url: 'https://o''brien.example/#frag'\n"
        "empty: ''\n";
    EXPECT_EQ(scalarFlat("worker_id", yaml), "'abc'");
    EXPECT_EQ(WorkerConfig::extractTopLevelString("worker_id", yaml), "abc");
    EXPECT_EQ(scalarFlat("payout_method", yaml), "ach");
    // Doubled quotes are not undone; the extractor cuts at the first '#'.
    EXPECT_EQ(WorkerConfig::extractTopLevelString("coordinator_url", yaml), "'https://o''brien.example/");
    EXPECT_EQ(scalarFlat("coordinator_url", yaml), "https://o''brien.example/#frag");
    EXPECT_EQ(WorkerConfig::extractTopLevelString("empty", yaml), std::nullopt);
    EXPECT_EQ(scalarFlat("empty", yaml), "");
    EXPECT_EQ(scalarFlat("missing", yaml), std::nullopt);
    EXPECT_EQ(scalarFlat("worker_id", "  worker_id: nested\n#worker_id: c\n"), std::nullopt);
}

TEST(ConfigScannersTest, WorkerConfigNeedsBothIdentityKeys) {
    EXPECT_EQ(WorkerConfig::parse("worker_id: 'w1'\n"), std::nullopt);
    EXPECT_EQ(WorkerConfig::parse("worker_id: ''\ncoordinator_url: 'https://c'\n"), std::nullopt);
    auto config = WorkerConfig::parse("coordinator_url: 'https://c'\r\nworker_id: 'w1'\r\n");
    ASSERT_TRUE(config);
    EXPECT_EQ(config->coordinatorURL, "https://c");
    EXPECT_EQ(config->workerID, "w1");
    EXPECT_EQ(config->onboardingCompletedAt, std::nullopt);
    auto withBom = WorkerConfig::parse("\xEF\xBB\xBF" "coordinator_url: 'u'\nworker_id: 'w'\nonboarding_completed_at: '2026-11-16T21:00:53Z'\n");
    ASSERT_TRUE(withBom);
    EXPECT_EQ(withBom->onboardingCompletedAt, "2026-11-16T21:00:53Z");
    EXPECT_EQ(WorkerConfig::load("/nonexistent/config.yaml"), std::nullopt);
}

TEST(ConfigScannersTest, TranscribeQuantizationFollowsSpaceIndentation) {
    const std::pair<std::string, Opt> rows[] = {
        {"handlers:\n  transcribe:\n    quantization: '4bit'\n", "4bit"},
        {"handlers:\n  transcribe:\n    model: x\n\n    # c\n    quantization: \"8bit\"\n", "8bit"},
        {"handlers:\n  other:\n    quantization: '4bit'\n", std::nullopt},
        {"handlers:\n  transcribe:\n      quantization: '4bit'\n", std::nullopt},
        {"handlers:\n  transcribe:\n  other:\n    quantization: '4bit'\n", std::nullopt},
        {"handlers:\npolling:\n  transcribe:\n    quantization: '4bit'\n", std::nullopt},
        {"handlers:\n  transcribe:\n    quantization: ''\n", std::nullopt},
        {"handlers:\r\n  transcribe:\r\n    quantization: fp16\r\n", "fp16"},
    };
    for (const auto& [yaml, expected] : rows) EXPECT_EQ(extractTranscribeQuantization(yaml), expected) << yaml;
}

std::string flowRow(const std::string& first, int count = 24) {
    std::string row = "    - [" + first;
    for (int i = 1; i < count; ++i) row += ", false";
    return row + "]\n";
}

TEST(ConfigScannersTest, WeeklyGridReadsFlowAndBlockRows) {
    std::string flow = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 7; ++day) flow += flowRow(day == 2 ? "TRUE" : "false");
    flow += "payout_method: ach\n";
    auto grid = nestedWeeklyGrid("schedule", "weekly_grid", flow);
    ASSERT_TRUE(grid);
    ASSERT_EQ(grid->size(), 7u);
    EXPECT_TRUE((*grid)[2][0]);
    EXPECT_FALSE((*grid)[3][0]);

    std::string block = "run_schedule:\n  weekly_grid:\n  -\n    - true\n    - false\n  -\n    - yes\n  enabled: true\n";
    auto blockGrid = nestedWeeklyGrid("run_schedule", "weekly_grid", block);
    ASSERT_TRUE(blockGrid);
    EXPECT_EQ(*blockGrid, (std::vector<std::vector<bool>>{{true, false}, {true}}));

    EXPECT_EQ(nestedWeeklyGrid("schedule", "weekly_grid", "schedule:\n  weekly_grid:\n  enabled: true\n"),
              std::nullopt);
    EXPECT_EQ(nestedWeeklyGrid("schedule", "weekly_grid", block), std::nullopt);
}

TEST(ConfigScannersTest, WeeklyGridToleratesTruncatedAndMiscountedRows) {
    // Six rows: Sunday is completed from the recommended grid.
    std::string six = "schedule:\n  weekly_grid:\n";
    for (int day = 0; day < 6; ++day) six += flowRow("false");
    auto sixRows = nestedWeeklyGrid("schedule", "weekly_grid", six);
    ASSERT_TRUE(sixRows);
    EXPECT_EQ(sixRows->size(), 6u);
    EXPECT_EQ(ScheduleGrid::normalize(*sixRows).weeklyGrid[6], ScheduleGrid::recommended().weeklyGrid[6]);

    // Eight rows: the eighth is read but dropped by normalisation.
    std::string eight = six + flowRow("true") + flowRow("true");
    auto eightRows = nestedWeeklyGrid("schedule", "weekly_grid", eight);
    ASSERT_TRUE(eightRows);
    EXPECT_EQ(eightRows->size(), 8u);
    auto normal = ScheduleGrid::normalize(*eightRows);
    EXPECT_TRUE(normal.isAllowed(6, 0));
    EXPECT_FALSE(normal.isAllowed(6, 1));

    // A short row, a row cut mid-element, and a row with a word that isn't a Boolean.
    std::string broken =
        "schedule:\n  weekly_grid:\n"
        "    - [false, false]\n"
        "    - [false, fal\n"
        "    - [false, maybe, true]\n"
        "  other: 1\n"
        "    - [true]\n";
    auto rows = nestedWeeklyGrid("schedule", "weekly_grid", broken);
    ASSERT_TRUE(rows);
    ASSERT_EQ(rows->size(), 3u);  // the grid ends at "  other:"
    EXPECT_EQ((*rows)[0], (std::vector<bool>{false, false}));
    EXPECT_TRUE((*rows)[1].empty());
    EXPECT_TRUE((*rows)[2].empty());
    auto grid = ScheduleGrid::normalize(*rows);
    EXPECT_FALSE(grid.isAllowed(0, 1));
    EXPECT_TRUE(grid.isAllowed(0, 2));   // recommended beyond the short row
    EXPECT_FALSE(grid.isAllowed(1, 10)); // the unreadable row reads as recommended
}

TEST(ConfigScannersTest, ConversionsAcceptOnlyWholeValues) {
    using configlines::toBool;
    using configlines::toNumber;
    for (const char* text : {"true", "Yes", "ON", "1"}) EXPECT_EQ(toBool(text), true) << text;
    for (const char* text : {"false", "No", "off", "0"}) EXPECT_EQ(toBool(text), false) << text;
    for (const char* text : {"maybe", "", "tru", "1.0", " true"}) EXPECT_EQ(toBool(text), std::nullopt) << text;

    EXPECT_EQ(toNumber("7.5"), 7.5);
    EXPECT_EQ(toNumber("+3"), 3.0);
    EXPECT_EQ(toNumber("-2"), -2.0);
    EXPECT_EQ(toNumber("1e2"), 100.0);
    for (const char* text : {"", " 5", "5 ", "5min", "0x10", "1,5", "inf", "nan", "1e999", "+-1", "++1"}) {
        EXPECT_EQ(toNumber(text), std::nullopt) << text;
    }
}

}  // namespace
}  // namespace corvane::configyaml
