#include "CorvaneApp/config/ConfigEditors.h"

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"

namespace corvane::configyaml {
namespace {

namespace cl = configlines;

std::string nested(const std::string& yaml, const std::string& section, const std::string& key,
                   const std::string& value) {
    auto lines = cl::split(yaml);
    setNestedScalar(section, key, value, lines);
    return cl::join(lines);
}

TEST(ConfigEditorsTest, SetNestedScalarReplacesOrInsertsOneLine) {
    struct Row {
        const char* name;
        std::string before;
        std::string after;
    };
    const Row rows[] = {
        {"replace, keep neighbours",
         "# top\nidle_detection:\n  min_idle_minutes: 3 # old\n  require_ac_power: true\npolling: {}\n",
         "# top\nidle_detection:\n  min_idle_minutes: 9\n  require_ac_power: true\npolling: {}\n"},
        {"insert at the end of the body, before the next section",
         "idle_detection:\n  require_ac_power: true\n\npolling:\n",
         "idle_detection:\n  require_ac_power: true\n\n  min_idle_minutes: 9\npolling:\n"},
        {"last section: behind the final empty element",
         "idle_detection:\n  require_ac_power: true\n",
         "idle_detection:\n  require_ac_power: true\n\n  min_idle_minutes: 9"},
        {"missing section is appended", "a: 1\n", "a: 1\n\nidle_detection:\n  min_idle_minutes: 9"},
        {"empty file", "", "\nidle_detection:\n  min_idle_minutes: 9"},
        {"flow mapping header", "idle_detection: {}\nb: 2\n", "idle_detection:\n  min_idle_minutes: 9\nb: 2\n"},
        {"null header", "idle_detection: null # x\nb: 2\n", "idle_detection:\n  min_idle_minutes: 9\nb: 2\n"},
        {"other inline scalar stays", "idle_detection: on\nb: 2\n", "idle_detection: on\n  min_idle_minutes: 9\nb: 2\n"},
        {"header comment stays", "idle_detection: # note\nb: 2\n", "idle_detection: # note\n  min_idle_minutes: 9\nb: 2\n"},
        {"duplicate key: first replaced",
         "idle_detection:\n  min_idle_minutes: 1\n  min_idle_minutes: 2\n",
         "idle_detection:\n  min_idle_minutes: 9\n  min_idle_minutes: 2\n"},
        {"key in a comment is not the key",
         "idle_detection:\n#  min_idle_minutes: 1\n  # min_idle_minutes: 2\nb: 1\n",
         "idle_detection:\n#  min_idle_minutes: 1\n  # min_idle_minutes: 2\n  min_idle_minutes: 9\nb: 1\n"},
        {"tab indentation is matched", "idle_detection:\n\tmin_idle_minutes: 1\n", "idle_detection:\n  min_idle_minutes: 9\n"},
        {"CRLF kept on the replaced line",
         "idle_detection:\r\n  min_idle_minutes: 1\r\nb: 2\r\n", "idle_detection:\r\n  min_idle_minutes: 9\r\nb: 2\r\n"},
        {"CRLF given to an inserted line",
         "idle_detection:\r\nb: 2\r\n", "idle_detection:\r\n  min_idle_minutes: 9\r\nb: 2\r\n"},
        {"longer key untouched",
         "idle_detection:\n  min_idle_minutes_old: 1\n", "idle_detection:\n  min_idle_minutes_old: 1\n\n  min_idle_minutes: 9"},
        {"section named in a comment", "# idle_detection:\n", "# idle_detection:\n\nidle_detection:\n  min_idle_minutes: 9"},
    };
    for (const auto& row : rows) {
        auto after = nested(row.before, "idle_detection", "min_idle_minutes", "9");
        EXPECT_EQ(after, row.after) << row.name;
        EXPECT_EQ(scalarTop("idle_detection", "min_idle_minutes", after), "9") << row.name;
    }
}

TEST(ConfigEditorsTest, SetFlatScalarReplacesFirstTopLevelKeyOnly) {
    auto lines = cl::split("payout_method_old: x\n  payout_method: nested\n# payout_method: c\npayout_method: ach # note\npayout_method: wire\n");
    setFlatScalar("payout_method", "paypal", lines);
    EXPECT_EQ(cl::join(lines), "payout_method_old: x\n  payout_method: nested\n# payout_method: c\npayout_method: paypal\npayout_method: wire\n");
    auto missing = cl::split("a: 1");
    setFlatScalar("payout_schedule", "monthly", missing);
    EXPECT_EQ(cl::join(missing), "a: 1\npayout_schedule: monthly");
}

ScheduleGrid mondayClosed() {
    auto grid = ScheduleGrid::recommended();
    for (int hour = 0; hour < 24; ++hour) grid.setAllowed(false, 0, hour);
    return grid;
}

TEST(ConfigEditorsTest, SetNestedWeeklyGridReplacesEitherFormWhole) {
    auto rows = weeklyGridRows(mondayClosed());
    ASSERT_EQ(rows.size(), 7u);
    EXPECT_EQ(rows[0].substr(0, 21), "    - [false, false, ");
    std::string written = "  weekly_grid:\n";
    for (const auto& row : rows) written += row + "\n";

    const std::pair<const char*, std::string> bases[] = {
        {"flow, eight rows", "schedule:\n  weekly_grid:\n"
                                 "    - [true]\n    - [true]\n    - [true]\n    - [true]\n    - [true]\n    - [true]\n    - [true]\n    - [true]\n  other: 1\n"},
        {"block form with a blank line", "schedule:\n  weekly_grid:\n  -\n    - true\n\n  -\n    - false\n\n  other: 1\n"},
        {"grid with no rows", "schedule:\n  weekly_grid:\n  other: 1\n"},
    };
    for (const auto& [name, base] : bases) {
        auto lines = cl::split(base);
        setNestedWeeklyGrid("schedule", "weekly_grid", mondayClosed(), lines);
        auto text = cl::join(lines);
        auto read = nestedWeeklyGrid("schedule", "weekly_grid", text);
        ASSERT_TRUE(read) << name;
        EXPECT_EQ(ScheduleGrid::normalize(*read), mondayClosed()) << name;
        EXPECT_EQ(read->size(), 7u) << name;
        EXPECT_NE(text.find("  other: 1\n"), std::string::npos) << name;
        EXPECT_NE(text.find("schedule:\n" + written), std::string::npos) << name << "\n" << text;
    }

    auto appended = cl::split("payout_method: ach\n");
    setNestedWeeklyGrid("schedule", "weekly_grid", mondayClosed(), appended);
    EXPECT_EQ(cl::join(appended), "payout_method: ach\n\nschedule:\n" + written.substr(0, written.size() - 1));
}

}  // namespace
}  // namespace corvane::configyaml
