// The hand-written corpus of config files: what each one reads as, and every edit of the line
// editors, alone and in sequences, leaving the lines it doesn't own byte for byte.

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigEditors.h"
#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/config/ConfigLineDiff.h"
#include "tests/support/LogCapture.h"

namespace corvane {
namespace {

namespace cl = configlines;
using Lines = std::vector<std::string>;

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(CORVANE_CONFIG_CORPUS_DIR)) {
        if (entry.path().extension() == ".yaml") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<bool> hours(bool (*open)(int)) {
    std::vector<bool> row(24);
    for (int hour = 0; hour < 24; ++hour) row[static_cast<size_t>(hour)] = open(hour);
    return row;
}

TEST(ConfigCorpusTest, EachFileReadsAsWritten) {
    const auto open = hours([](int) { return true; }), closed = hours([](int) { return false; });
    const auto early = hours([](int h) { return h < 6; }),
               alternating = hours([](int h) { return h % 2 == 0; });
    const std::tuple<const char*, const char*, const char*, std::function<void(WorkerSettings&)>>
        rows[] = {
            {"01-template", "https://coordinator.example:8443", "w-7f3a", [](auto&) {}},
            {"02-settings-saved", "https://coordinator.example:8443", "w-7f3a",
             [](auto& s) { s.pauseOnHeavyApp = false; }},
            {"03-comments-unknown-keys", "https://coord.internal", "w-1",
             [](auto& s) { s.payoutSchedule = "monthly", s.awayRamCeilingGB = 24; }},
            {"04-flow-placeholders", "https://c.example", "w-2", [](auto&) {}},
            // "Yes" is true, "maybe" is no Boolean, a quoted value followed by a comment keeps its
            // quotes.
            {"05-inline-comments-quotes", "https://o''brien.example", "abc",
             [](auto& s) { s.idleMinutes = 5, s.awayCpuCeiling = 7.5, s.inUseRamCeilingGB = 8; }},
            {"06-crlf", "https://coordinator.example:8443", "w-7f3a",
             [&](auto& s) { s.idleMinutes = 4, s.scheduleGrid.weeklyGrid[6] = closed; }},
            {"07-tabs", "https://tabs.example", "w-tab",
             [](auto& s) {
                 s.idleMinutes = 4, s.pauseOnMeeting = false, s.awayCpuCeiling = 80,
                 s.inUseRamCeilingGB = 6;
             }},
            {"08-bom", "https://bom.example", "w-bom",
             [](auto& s) { s.idleMinutes = 6, s.payoutMethod = "wire"; }},
            // The first of duplicates wins; a repeated section is entered again; commented keys are
            // not keys.
            {"09-duplicates", "https://first.example", "w-first",
             [](auto& s) { s.idleMinutes = 2, s.pauseOnMeeting = false, s.awayCpuCeiling = 40; }},
            {"10-no-final-newline", "https://nf.example", "w-nf",
             [](auto& s) { s.idleMinutes = 8, s.awayCpuCeiling = 70; }},
            {"11-block-grid-run-schedule", "https://old.example", "w-old",
             [&](auto& s) {
                 s.idleMinutes = 10, s.scheduleGrid.weeklyGrid.assign(7, alternating);
             }},
            {"12-short-grid", "https://short.example", "w-short",
             [&](auto& s) {
                 s.scheduleGrid = ScheduleGrid::normalize(
                     {early, early, early, early, early, {true, true, false}});
             }},
            {"13-eight-rows", "https://eight.example", "w-8",
             [&](auto& s) {
                 s.scheduleGrid.weeklyGrid = {open, closed, open, closed, open, closed, open};
             }},
            {"14-out-of-range", "https://range.example", "w-range", [](auto&) {}},
            {"15-minimal", "https://min.example", "w-min", [](auto&) {}},
            // A row cut off before its bracket and a row with a word that isn't a Boolean read as
            // recommended.
            {"16-broken-grid-rows", "https://g.example", "w-g",
             [&](auto& s) { s.scheduleGrid.weeklyGrid[2] = closed; }},
            {"17-block-grid-schedule", "https://block.example", "w-block",
             [](auto& s) {
                 s.scheduleGrid = ScheduleGrid::normalize({{true, false}, {false, true}});
             }},
            // Keys of other sections, longer names and values with a glued '#' are not the setting;
            // an empty schedule grid gives way to run_schedule's, a filled one (17) does not.
            {"18-section-scoping", "https://scope.example", "w-scope",
             [](auto& s) {
                 s.pauseOnHeavyApp = false, s.awayRamCeilingGB = 3,
                 s.scheduleGrid = ScheduleGrid::normalize({{false}});
             }},
            {"19-odd-values", "https://odd.example", "w-odd",
             [](auto& s) { s.pauseOnMeeting = false, s.awayRamCeilingGB = 100; }},
            {"20-crlf-sparse", "https://crlf2.example", "w-crlf2",
             [](auto& s) { s.idleMinutes = 6; }},
        };
    testing::LogCapture logs;
    for (const auto& [file, url, id, expect] : rows) {
        auto text = readFile(std::filesystem::path(CORVANE_CONFIG_CORPUS_DIR) /
                             (std::string(file) + ".yaml"));
        ASSERT_TRUE(text) << file;
        auto config = WorkerConfig::parse(*text);
        ASSERT_TRUE(config) << file;
        EXPECT_EQ(config->coordinatorURL + " " + config->workerID, std::string(url) + " " + id)
            << file;
        WorkerSettings expected;
        expect(expected);
        EXPECT_EQ(WorkerConfigStore::parseSettings(*text), expected) << file;
    }
    EXPECT_TRUE(logs.contains("resource_policy.away_cpu_ceiling_pct = 250 is outside 0 to 100"));
    EXPECT_TRUE(logs.contains("idle_detection.pause_on_heavy_app = 'maybe' is not true or false"));
}

struct Edit {
    std::string name;
    std::function<void(Lines&)> apply;
    std::vector<std::string> keys;  // an edit may remove or add only lines of these keys
    size_t maxRemoved;
    std::function<bool(std::string_view text)> readsBack;

    bool owns(std::string_view line) const {
        auto text = cl::trimSpacesAndTabs(cl::content(line));
        // A grid edit also owns the rows of the old grid and blank lines between them.
        if (name == "grid" && (text.empty() || text.front() == '-')) return true;
        return std::ranges::any_of(
            keys, [&](const std::string& key) { return cl::startsWith(text, key + ":"); });
    }
};

ScheduleGrid editedGrid() {
    auto grid = ScheduleGrid::recommended();
    for (int hour = 0; hour < 24; ++hour) grid.setAllowed(hour % 3 == 0, 2, hour);
    return grid;
}

Edit nestedEdit(std::string section, std::string key, std::string value) {
    return {
        key,
        [=](Lines& lines) { configyaml::setNestedScalar(section, key, value, lines); },
        {section, key},
        2,
        [=](std::string_view text) { return configyaml::scalarTop(section, key, text) == value; }};
}

Edit flatEdit(std::string key, std::string value) {
    return {key,
            [=](Lines& lines) { configyaml::setFlatScalar(key, value, lines); },
            {key},
            1,
            [=](std::string_view text) { return configyaml::scalarFlat(key, text) == value; }};
}

std::vector<Edit> allEdits() {
    WorkerConfigWriter writer{"https://new.example:9000", "w-new", {"Svc (new)", "w-new"}, {}, [] {
                                  return dateFromUnixSeconds(1'794'862'853);
                              }};
    return {
        flatEdit("payout_method", "paypal"),
        flatEdit("payout_schedule", "monthly"),
        nestedEdit("idle_detection", "pause_on_meeting", "false"),
        nestedEdit("idle_detection", "pause_on_heavy_app", "true"),
        nestedEdit("idle_detection", "min_idle_minutes", "11"),
        nestedEdit("resource_policy", "away_cpu_ceiling_pct", "55"),
        nestedEdit("resource_policy", "away_ram_ceiling_gb", "30"),
        nestedEdit("resource_policy", "in_use_cpu_ceiling_pct", "15"),
        nestedEdit("resource_policy", "in_use_ram_ceiling_gb", "6"),
        {"grid",
         [](Lines& lines) {
             configyaml::setNestedWeeklyGrid("schedule", "weekly_grid", editedGrid(), lines);
         },
         {"schedule", "weekly_grid"},
         64,
         [](std::string_view text) {
             auto rows = configyaml::nestedWeeklyGrid("schedule", "weekly_grid", text);
             return rows && rows->size() == 7 && ScheduleGrid::normalize(*rows) == editedGrid();
         }},
        {"enrolment identity",
         [writer](Lines& lines) {
             WorkerConfigWriter::setOrInsertTopLevelScalar("coordinator_url",
                                                           "'https://new.example:9000'", lines);
             WorkerConfigWriter::setOrInsertTopLevelScalar("worker_id", "'w-new'", lines);
             writer.replaceWorkerTokenKeychainBlock(lines);
         },
         {"coordinator_url", "worker_id", "worker_token_keychain", "service", "account"},
         5,
         [](std::string_view text) {
             auto config = WorkerConfig::parse(text);
             return config && config->coordinatorURL == "https://new.example:9000" &&
                    config->workerID == "w-new";
         }},
    };
}

// Applies `edit` to `text` and checks that only its own lines changed; returns the new text.
std::string applyChecked(const std::string& text, const Edit& edit, const std::string& where) {
    auto [hasBom, body] = cl::splitBom(text);
    auto before = cl::split(body);
    auto after = before;
    edit.apply(after);
    auto result = cl::withBom(hasBom, cl::join(after));
    auto diff = testing::diffEditedLines(before, after);
    for (const auto& line : diff.removed)
        EXPECT_TRUE(edit.owns(line)) << where << ": removed \"" << line << "\"";
    for (const auto& line : diff.added)
        EXPECT_TRUE(edit.owns(line)) << where << ": added \"" << line << "\"";
    EXPECT_LE(diff.removed.size(), edit.maxRemoved) << where;
    // Inserted lines take the file's line ends too, and every line break of a CRLF file stays
    // CRLF (only the last line, after which none follows, may lack its CR).
    const bool crlf = cl::usesCrlf(before);
    for (size_t i = 0; i < after.size(); ++i) {
        const bool last = i + 1 == after.size();
        EXPECT_TRUE((last && after[i].empty()) || after[i].ends_with('\r') == crlf)
            << where << ": \"" << after[i] << "\"";
    }
    for (size_t i = 0; i + 1 < after.size();
         ++i) {  // a key written under "section: {}" would be no YAML
        auto text = cl::content(after[i]);
        bool placeholder =
            text.ends_with(": {}") || text.ends_with(": null") || text.ends_with(": ~");
        EXPECT_FALSE(placeholder && cl::isIndented(after[i + 1]))
            << where << ": a block under \"" << text << "\"";
    }
    EXPECT_TRUE(edit.readsBack(result)) << where << "\n" << result;
    EXPECT_EQ(hasBom, cl::splitBom(result).hasBom) << where;
    return result;
}

TEST(ConfigCorpusTest, EditsChangeOnlyTheirOwnLinesAloneAndInSequence) {
    auto edits = allEdits();
    ASSERT_GE(corpus().size(), 10u);
    for (const auto& file : corpus()) {
        const std::string original = *readFile(file);
        const auto name = file.filename().string();
        for (const auto& edit : edits) {
            auto once = applyChecked(original, edit, name + " / " + edit.name);
            EXPECT_EQ(applyChecked(once, edit, name + " / " + edit.name + " again"), once)
                << "a repeat changes nothing";
        }
        // Forward and backward through all edits: later ones don't disturb earlier ones.
        for (bool backward : {false, true}) {
            std::string text = original;
            for (size_t i = 0; i < edits.size(); ++i) {
                const auto& edit = edits[backward ? edits.size() - 1 - i : i];
                text = applyChecked(text, edit, name + " / sequence / " + edit.name);
            }
            for (const auto& edit : edits)
                EXPECT_TRUE(edit.readsBack(text)) << name << " / " << edit.name;
        }
    }
}

// Lines added past the end of a CRLF file: the empty line after the final line break (or a last
// line without one) gets its CR once a line follows it, so that no line break turns into a bare
// LF. A token block that ended the file is replaced, not appended: the line above keeps its own
// line break, a bare LF too. (Both found by fuzzing the editors.)
TEST(ConfigCorpusTest, LinesAddedPastTheEndOfACrlfFileKeepEveryLineBreakCrlf) {
    const WorkerConfigWriter writer{"u", "w", {"S", "A"}, {}, [] { return Date{}; }};
    struct Row {
        const char* name;
        std::string before;
        std::function<void(Lines&)> edit;
        std::string after;
    };
    const Row rows[] = {
        {"flat key appended", "a: 1\r\nidle_detection:\r\n  min_idle_minutes: 6\r\n",
         [](Lines& l) { configyaml::setFlatScalar("payout_method", "paypal", l); },
         "a: 1\r\nidle_detection:\r\n  min_idle_minutes: 6\r\n\r\npayout_method: paypal\r"},
        {"section appended after a last line without a break", "a: 1\r\nb: 2",
         [](Lines& l) { configyaml::setNestedScalar("resource_policy", "k", "5", l); },
         "a: 1\r\nb: 2\r\nresource_policy:\r\n  k: 5\r"},
        {"key added to the last section", "idle_detection:\r\n  x: 1\r\n",
         [](Lines& l) { configyaml::setNestedScalar("idle_detection", "k", "5", l); },
         "idle_detection:\r\n  x: 1\r\n\r\n  k: 5\r"},
        {"grid whose header ends the file", "schedule:\r\n  weekly_grid:",
         [](Lines& l) {
             configyaml::setNestedWeeklyGrid("schedule", "weekly_grid", ScheduleGrid::recommended(),
                                             l);
         },
         [] {
             std::string text = "schedule:\r\n  weekly_grid:";
             for (const auto& row : configyaml::weeklyGridRows(ScheduleGrid::recommended()))
                 text += "\r\n" + row;
             return text;
         }()},
        {"token block after a last line without a break", "a: 1\r\nb: 2",
         [&](Lines& l) { writer.replaceWorkerTokenKeychainBlock(l); },
         "a: 1\r\nb: 2\r\nworker_token_keychain:\r\n  service: 'S'\r\n  account: 'A'\r"},
        {"token block that ended the file, below a bare LF",
         "a: 1\r\nb: 2\nworker_token_keychain:\r\n  x:",
         [&](Lines& l) { writer.replaceWorkerTokenKeychainBlock(l); },
         "a: 1\r\nb: 2\nworker_token_keychain:\r\n  service: 'S'\r\n  account: 'A'\r"},
    };
    for (const auto& row : rows) {
        auto lines = cl::split(row.before);
        row.edit(lines);
        EXPECT_EQ(cl::join(lines), row.after) << row.name;
    }
}

}  // namespace
}  // namespace corvane
