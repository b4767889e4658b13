// The exact lines the editors write; that they leave every other line alone is the corpus's job.

#include "CorvaneApp/config/ConfigEditors.h"

#include <gtest/gtest.h>

#include "CorvaneApp/config/ConfigLines.h"
#include "CorvaneApp/config/ConfigScanners.h"

namespace corvane::configyaml {
namespace {

namespace cl = configlines;

TEST(ConfigEditorsTest, SetNestedScalarReplacesOrInsertsOneLine) {
    const std::pair<std::string, std::string> rows[] = {
        // The replaced line loses its old comment, its neighbours stay.
        {"# top\nidle_detection:\n  min_idle_minutes: 3 # old\n  require_ac_power: true\npolling: {}\n",
         "# top\nidle_detection:\n  min_idle_minutes: 9\n  require_ac_power: true\npolling: {}\n"},
        // Inserted at the end of the body, before the next section.
        {"idle_detection:\n  require_ac_power: true\n\npolling:\n",
         "idle_detection:\n  require_ac_power: true\n\n  min_idle_minutes: 9\npolling:\n"},
        // In the last section: behind the final empty element.
        {"idle_detection:\n  min_idle_minutes_old: 1\n", "idle_detection:\n  min_idle_minutes_old: 1\n\n  min_idle_minutes: 9"},
        {"a: 1\n", "a: 1\n\nidle_detection:\n  min_idle_minutes: 9"},
        // A placeholder header value makes way for the block; any other value and a comment stay.
        {"idle_detection: {}\nb: 2\n", "idle_detection:\n  min_idle_minutes: 9\nb: 2\n"},
        {"idle_detection: on # note\nb: 2\n", "idle_detection: on # note\n  min_idle_minutes: 9\nb: 2\n"},
    };
    for (const auto& [before, after] : rows) {
        auto lines = cl::split(before);
        setNestedScalar("idle_detection", "min_idle_minutes", "9", lines);
        EXPECT_EQ(cl::join(lines), after) << before;
    }
}

}  // namespace
}  // namespace corvane::configyaml
