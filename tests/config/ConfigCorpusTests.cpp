// Every edit of the line editors, alone and in sequences, on every file of the hand-written
// corpus: the lines an edit doesn't own stay byte for byte, and the edited value reads back.

#include <algorithm>
#include <functional>

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigEditors.h"
#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "tests/config/ConfigLineDiff.h"

namespace corvane {
namespace {

namespace cl = configlines;
using Lines = std::vector<std::string>;
using testing::diffLines;

bool isTopLevelKey(std::string_view line, std::string_view key) {
    return cl::isTopLevelLineWithKey(line, key);
}

bool isIndentedKey(std::string_view line, std::string_view key) {
    auto text = cl::content(line);
    return cl::isIndented(text) && cl::startsWith(cl::trimSpacesAndTabs(text), std::string(key) + ":");
}

bool isGridRow(std::string_view line) {
    auto text = cl::trimSpacesAndTabs(cl::content(line));
    return !text.empty() && text.front() == '-';
}

struct Edit {
    std::string name;
    std::function<void(Lines&)> apply;
    std::function<bool(std::string_view)> owns;  // a line this edit may remove or add
    size_t maxRemoved;
    std::function<bool(std::string_view text)> readsBack;
};

ScheduleGrid editedGrid() {
    auto grid = ScheduleGrid::recommended();
    for (int hour = 0; hour < 24; ++hour) grid.setAllowed(hour % 3 == 0, 2, hour);
    return grid;
}

Edit nestedEdit(std::string section, std::string key, std::string value, std::string expected) {
    return {section + "." + key + "=" + value,
            [=](Lines& lines) { configyaml::setNestedScalar(section, key, value, lines); },
            [=](std::string_view line) { return isIndentedKey(line, key) || isTopLevelKey(line, section); },
            2,
            [=](std::string_view text) { return configyaml::scalarTop(section, key, text) == expected; }};
}

Edit flatEdit(std::string key, std::string value) {
    return {key + "=" + value, [=](Lines& lines) { configyaml::setFlatScalar(key, value, lines); },
            [=](std::string_view line) { return isTopLevelKey(line, key); }, 1,
            [=](std::string_view text) { return configyaml::scalarFlat(key, text) == value; }};
}

std::vector<Edit> allEdits() {
    WorkerConfigWriter writer{"https://new.example:9000", "w-new", {"VarnixCompute Worker (new.example:9000)", "w-new"}, {}, [] {
                                  return dateFromUnixSeconds(1'794'862'853);
                              }};
    std::vector<Edit> edits{
        flatEdit("payout_method", "paypal"),
        flatEdit("payout_schedule", "monthly"),
        nestedEdit("idle_detection", "pause_on_meeting", "false", "false"),
        nestedEdit("idle_detection", "pause_on_heavy_app", "true", "true"),
        nestedEdit("idle_detection", "min_idle_minutes", "11", "11"),
        nestedEdit("resource_policy", "away_cpu_ceiling_pct", "55", "55"),
        nestedEdit("resource_policy", "away_ram_ceiling_gb", "30", "30"),
        nestedEdit("resource_policy", "in_use_cpu_ceiling_pct", "15", "15"),
        nestedEdit("resource_policy", "in_use_ram_ceiling_gb", "6", "6"),
        {"schedule.weekly_grid",
         [](Lines& lines) { configyaml::setNestedWeeklyGrid("schedule", "weekly_grid", editedGrid(), lines); },
         [](std::string_view line) {
             return isGridRow(line) || isIndentedKey(line, "weekly_grid") || isTopLevelKey(line, "schedule") ||
                    cl::isEmpty(line);  // blank lines between the rows of an old grid
         },
         64,
         [](std::string_view text) {
             auto rows = configyaml::nestedWeeklyGrid("schedule", "weekly_grid", text);
             return rows && ScheduleGrid::normalize(*rows) == editedGrid();
         }},
        {"enrolment identity",
         [writer](Lines& lines) {
             WorkerConfigWriter::setOrInsertTopLevelScalar("coordinator_url", "'https://new.example:9000'", lines);
             WorkerConfigWriter::setOrInsertTopLevelScalar("worker_id", "'w-new'", lines);
             writer.replaceWorkerTokenKeychainBlock(lines);
         },
         [](std::string_view line) {
             return isTopLevelKey(line, "coordinator_url") || isTopLevelKey(line, "worker_id") ||
                    isTopLevelKey(line, "worker_token_keychain") || isIndentedKey(line, "service") ||
                    isIndentedKey(line, "account");
         },
         5,
         [](std::string_view text) {
             auto config = WorkerConfig::parse(text);
             return config && config->coordinatorURL == "https://new.example:9000" && config->workerID == "w-new";
         }},
    };
    return edits;
}

std::vector<std::filesystem::path> corpus() {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(CORVANE_CONFIG_CORPUS_DIR)) {
        if (entry.path().extension() == ".yaml") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

// Applies `edit` to `text` and checks the property; returns the new text.
std::string applyChecked(const std::string& text, const Edit& edit, const std::string& where) {
    auto [hasBom, body] = cl::splitBom(text);
    auto before = cl::split(body);
    auto after = before;
    edit.apply(after);
    auto result = cl::withBom(hasBom, cl::join(after));
    auto diff = diffLines(before, after);
    for (const auto& line : diff.removed) EXPECT_TRUE(edit.owns(line)) << where << ": removed \"" << line << "\"";
    for (const auto& line : diff.added) EXPECT_TRUE(edit.owns(line)) << where << ": added \"" << line << "\"";
    EXPECT_LE(diff.removed.size(), edit.maxRemoved) << where;
    EXPECT_TRUE(edit.readsBack(result)) << where << "\n" << result;
    EXPECT_EQ(hasBom, cl::splitBom(result).hasBom) << where;
    return result;
}

TEST(ConfigCorpusTest, EachEditChangesOnlyItsOwnLines) {
    ASSERT_GE(corpus().size(), 10u);
    for (const auto& file : corpus()) {
        auto text = readFile(file);
        ASSERT_TRUE(text) << file;
        for (const auto& edit : allEdits()) {
            auto where = file.filename().string() + " / " + edit.name;
            auto once = applyChecked(*text, edit, where);
            // A second identical edit changes nothing at all.
            auto lines = cl::split(cl::splitBom(once).body);
            edit.apply(lines);
            EXPECT_EQ(cl::withBom(cl::splitBom(once).hasBom, cl::join(lines)), once) << where << " (repeated)";
        }
    }
}

TEST(ConfigCorpusTest, SequencesOfEditsKeepEveryOtherLineAndEveryValue) {
    auto edits = allEdits();
    std::vector<std::vector<size_t>> orders;
    std::vector<size_t> forward(edits.size());
    for (size_t i = 0; i < edits.size(); ++i) forward[i] = i;
    orders.push_back(forward);
    orders.emplace_back(forward.rbegin(), forward.rend());
    std::vector<size_t> interleaved;
    for (size_t i = 0; i < edits.size(); i += 2) interleaved.push_back(i);
    for (size_t i = 1; i < edits.size(); i += 2) interleaved.push_back(i);
    orders.push_back(interleaved);

    for (const auto& file : corpus()) {
        for (size_t o = 0; o < orders.size(); ++o) {
            std::string text = *readFile(file);
            for (size_t index : orders[o]) {
                text = applyChecked(text, edits[index],
                                    file.filename().string() + " / order " + std::to_string(o) + " / " + edits[index].name);
            }
            // Later edits didn't disturb earlier ones.
            for (const auto& edit : edits) EXPECT_TRUE(edit.readsBack(text)) << file << " order " << o << " " << edit.name;
        }
    }
}

}  // namespace
}  // namespace corvane
