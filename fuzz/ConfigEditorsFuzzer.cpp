// Feeds a config.yaml, as an owner may have edited it by hand, to each line editor of a settings
// save and of re-enrolment, one edit at a time, and then to the whole save and the whole
// re-enrolment.
//
// Holds, for every edit: it never throws; every line it doesn't own stays byte for byte, in
// order; it removes and adds only its own lines, and no more of them than it may; a second
// identical edit changes nothing; the value it wrote is what the scanners read back; a file
// without CR gets none and a CRLF file stays CRLF; a byte-order mark stays. A whole save reads
// back as the settings saved, and so does enrolment's identity.

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "CorvaneApp/config/ConfigEditors.h"
#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "CorvaneApp/config/WorkerConfigStore.h"
#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "fuzz/FuzzCheck.h"
#include "tests/config/ConfigLineDiff.h"

namespace corvane {
namespace {

namespace cl = configlines;
using Lines = std::vector<std::string>;
constexpr size_t kAny = std::numeric_limits<size_t>::max();

struct Edit {
    std::string name;
    std::function<void(Lines&)> apply;
    std::function<bool(std::string_view content)> mayRemove;
    std::function<bool(std::string_view content)> mayAdd;
    size_t maxRemoved;
    size_t maxAdded;
    std::string section;  // the section whose header the edit may have to make a block header
    std::function<bool(std::string_view text)> readsBack;
};

std::string_view trimmed(std::string_view content) {
    return cl::trimSpacesAndTabs(content);
}

bool isKeyLine(std::string_view content, std::string_view key) {
    return cl::isIndented(content) && cl::startsWith(trimmed(content), std::string(key) + ":");
}

Edit flatEdit(std::string key, std::string value) {
    const std::string written = key + ": " + value;
    return {"flat " + key,
            [=](Lines& lines) { configyaml::setFlatScalar(key, value, lines); },
            [=](std::string_view line) { return cl::isTopLevelLineWithKey(line, key); },
            [=](std::string_view line) { return line == written; },
            1,
            1,
            "",
            [=](std::string_view text) { return configyaml::scalarFlat(key, text) == value; }};
}

Edit nestedEdit(std::string section, std::string key, std::string value) {
    const std::string written = "  " + key + ": " + value;
    return {
        section + "." + key,
        [=](Lines& lines) { configyaml::setNestedScalar(section, key, value, lines); },
        [=](std::string_view line) {
            return cl::isTopLevelLineWithKey(line, section) || isKeyLine(line, key);
        },
        [=](std::string_view line) { return line == written || line == section + ":"; },
        2,
        2,
        section,
        [=](std::string_view text) { return configyaml::scalarTop(section, key, text) == value; }};
}

ScheduleGrid editedGrid() {
    auto grid = ScheduleGrid::recommended();
    for (int hour = 0; hour < ScheduleGrid::hourCount; ++hour)
        grid.setAllowed(hour % 3 == 0, 2, hour);
    return grid;
}

Edit gridEdit() {
    const auto rows = configyaml::weeklyGridRows(editedGrid());
    return {"schedule.weekly_grid",
            [](Lines& lines) {
                configyaml::setNestedWeeklyGrid("schedule", "weekly_grid", editedGrid(), lines);
            },
            // The old grid goes whole: its header, its rows and the blank lines between them.
            [](std::string_view line) {
                auto text = trimmed(line);
                return cl::isTopLevelLineWithKey(line, "schedule") ||
                       (cl::isIndented(line) && text == "weekly_grid:") || text.empty() ||
                       text.front() == '-';
            },
            [rows](std::string_view line) {
                return line == "schedule:" || line == "  weekly_grid:" ||
                       std::find(rows.begin(), rows.end(), line) != rows.end();
            },
            kAny, 9, "schedule",
            [](std::string_view text) {
                auto read = configyaml::nestedWeeklyGrid("schedule", "weekly_grid", text);
                return read && ScheduleGrid::normalize(*read) == editedGrid();
            }};
}

// Re-enrolment's identity line: replaced where "key:" stands alone or before a blank, else put
// first. The identity reader takes any top-level line of that key, so it is asked only when all
// such lines are of the form the writer replaces.
Edit identityEdit(std::string key, std::string value) {
    const std::string quoted = cl::singleQuoted(value);
    auto writerMatches = [key](std::string_view line) {
        return !cl::isIndented(line) && (line == key + ":" || cl::startsWith(line, key + ": "));
    };
    return {
        "identity " + key,
        [=](Lines& lines) { WorkerConfigWriter::setOrInsertTopLevelScalar(key, quoted, lines); },
        writerMatches,
        [=](std::string_view line) { return line == key + ": " + quoted; },
        1,
        1,
        "",
        [=](std::string_view text) {
            for (const auto& line : cl::split(cl::splitBom(text).body)) {
                if (cl::isTopLevelLineWithKey(line, key) && !writerMatches(cl::content(line)))
                    return true;
            }
            return WorkerConfig::extractTopLevelString(key, text) == value;
        }};
}

const WorkerConfigWriter& enrolment() {
    static const WorkerConfigWriter writer{
        "https://new.example:9000", "w-new", {"Corvane (new)", "w-new"}, {}, [] {
            return dateFromUnixSeconds(1'794'862'853);
        }};
    return writer;
}

Edit tokenBlockEdit() {
    return {"worker_token_keychain",
            [](Lines& lines) { enrolment().replaceWorkerTokenKeychainBlock(lines); },
            // The old block: its header and every indented line right after it.
            [](std::string_view line) {
                return line == "worker_token_keychain:" ||
                       cl::startsWith(line, "worker_token_keychain: ") || cl::isIndented(line);
            },
            [](std::string_view line) {
                return line == "worker_token_keychain:" || line == "  service: 'Corvane (new)'" ||
                       line == "  account: 'w-new'";
            },
            kAny, 3, "", nullptr};
}

const std::vector<Edit>& edits() {
    static const std::vector<Edit> all{
        flatEdit("payout_method", "paypal"),
        flatEdit("payout_schedule", "monthly"),
        nestedEdit("idle_detection", "pause_on_meeting", "false"),
        nestedEdit("idle_detection", "pause_on_heavy_app", "true"),
        nestedEdit("idle_detection", "min_idle_minutes", "11"),
        nestedEdit("resource_policy", "away_cpu_ceiling_pct", "55"),
        nestedEdit("resource_policy", "away_ram_ceiling_gb", "30"),
        nestedEdit("resource_policy", "in_use_cpu_ceiling_pct", "15"),
        nestedEdit("resource_policy", "in_use_ram_ceiling_gb", "6"),
        gridEdit(),
        identityEdit("coordinator_url", "https://new.example:9000"),
        identityEdit("worker_id", "w-new"),
        identityEdit("onboarding_completed_at", "2026-11-16T21:00:53Z"),
        tokenBlockEdit(),
    };
    return all;
}

// A header whose inline value would turn the block under it into no YAML.
bool hasPlaceholderValue(std::string_view header) {
    auto value = trimmed(cl::cutInlineComment(trimmed(header.substr(header.find(':') + 1))));
    if (value.empty()) return false;
    return value == "~" || cl::lowercased(value) == "null" ||
           (value.front() == '{' && value.back() == '}') ||
           (value.front() == '[' && value.back() == ']');
}

// Every line break is CRLF: each line but the last ends in CR.
bool allCrlf(const Lines& lines) {
    if (lines.size() < 2) return false;
    for (size_t i = 0; i + 1 < lines.size(); ++i) {
        if (!lines[i].ends_with('\r')) return false;
    }
    return true;
}

// The edit as a save applies it: on the lines after the byte-order mark.
std::string applied(const Edit& edit, std::string_view text, Lines* before, Lines* after) {
    auto [hasBom, body] = cl::splitBom(text);
    *before = cl::split(body);
    *after = *before;
    edit.apply(*after);
    return cl::withBom(hasBom, cl::join(*after));
}

void check(const Edit& edit, std::string_view text) {
    Lines before, after;
    std::string result;
    try {
        result = applied(edit, text, &before, &after);
    } catch (const std::exception& error) {
        fuzz::broken(edit.name + " never throws", error.what());
    }

    const auto diff = testing::diffEditedLines(before, after);
    for (const auto& line : diff.removed) {
        fuzz::require(edit.mayRemove(cl::content(line)), edit.name + " removes only its own lines",
                      "removed \"" + line + "\" from:\n" + std::string(text));
    }
    for (const auto& line : diff.added) {
        fuzz::require(edit.mayAdd(cl::content(line)), edit.name + " adds only its own lines",
                      "added \"" + line + "\" to:\n" + std::string(text));
    }
    fuzz::require(diff.removed.size() <= edit.maxRemoved && diff.added.size() <= edit.maxAdded,
                  edit.name + " changes no more lines than it owns", std::string(text));

    Lines again, twice;
    fuzz::require(applied(edit, result, &again, &twice) == result,
                  edit.name + ": a second identical edit changes nothing", std::string(text));
    if (edit.readsBack) {
        fuzz::require(edit.readsBack(result), edit.name + " reads back as written",
                      std::string(text) + "\n--- became ---\n" + result);
    }
    if (text.find('\r') == std::string_view::npos) {
        fuzz::require(result.find('\r') == std::string::npos,
                      edit.name + " puts no CR into a file without one", std::string(text));
    }
    if (allCrlf(before)) {
        fuzz::require(allCrlf(after), edit.name + " keeps every line break of a CRLF file CRLF",
                      std::string(text) + "\n--- became ---\n" + result);
    }
    fuzz::require(cl::splitBom(result).hasBom == cl::splitBom(text).hasBom,
                  edit.name + " keeps the byte-order mark as it was");
    if (!edit.section.empty()) {
        for (size_t i = 0; i + 1 < after.size(); ++i) {
            if (!cl::isTopLevelLineWithKey(after[i], edit.section)) continue;
            fuzz::require(
                !hasPlaceholderValue(cl::content(after[i])) || !cl::isIndented(after[i + 1]),
                edit.name + " leaves no block under a flow or null header",
                std::string(text) + "\n--- became ---\n" + result);
            break;
        }
    }
}

// Settings that a save may write: whole numbers in range, so that they read back exactly.
WorkerSettings settingsFor(std::string_view text) {
    auto seed = std::hash<std::string_view>{}(text);
    auto next = [&](std::uint64_t range) {
        seed = seed * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>((seed >> 33) % range);
    };
    WorkerSettings settings;
    settings.awayCpuCeiling = next(101);
    settings.awayRamCeilingGB = next(512);
    settings.inUseCpuCeiling = next(101);
    settings.inUseRamCeilingGB = next(512);
    settings.idleMinutes = next(120);
    settings.pauseOnMeeting = next(2) == 0;
    settings.pauseOnHeavyApp = next(2) == 0;
    const char* methods[] = {"ach", "paypal", "usdc"};
    const char* schedules[] = {"weekly", "monthly", "daily"};
    settings.payoutMethod = methods[static_cast<int>(next(3))];
    settings.payoutSchedule = schedules[static_cast<int>(next(3))];
    for (int day = 0; day < ScheduleGrid::dayCount; ++day) {
        for (int hour = 0; hour < ScheduleGrid::hourCount; ++hour)
            settings.scheduleGrid.setAllowed(next(2) == 0, day, hour);
    }
    return settings;
}

}  // namespace
}  // namespace corvane

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const auto text = fuzz::textOf(data, size);
    for (const auto& edit : edits()) check(edit, text);

    const auto settings = settingsFor(text);
    const auto saved = WorkerConfigStore::buildYAML(text, settings);
    fuzz::require(WorkerConfigStore::parseSettings(saved) == settings,
                  "a saved file reads back as the settings saved",
                  std::string(text) + "\n--- became ---\n" + saved);
    fuzz::require(WorkerConfigStore::buildYAML(saved, settings) == saved,
                  "saving the same settings again changes nothing");

    const auto enrolled = enrolment().buildYAML(text);
    fuzz::require(enrolment().buildYAML(enrolled) == enrolled,
                  "enrolling the same machine again changes nothing");
    for (const auto& edit : edits()) {
        if (edit.name.starts_with("identity ")) {
            fuzz::require(edit.readsBack(enrolled), "enrolment reads back: " + edit.name,
                          std::string(text) + "\n--- became ---\n" + enrolled);
        }
    }
    return 0;
}
