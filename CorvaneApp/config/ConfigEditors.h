#pragma once
// Editors of single keys in the lines of config.yaml. Each replaces or inserts the lines of one
// key and leaves every other line exactly as it was.

#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/config/ScheduleGrid.h"

namespace corvane::configyaml {

// Replaces the first top-level `key:` line by "key: value", or appends it at the end.
void setFlatScalar(std::string_view key, std::string_view value, std::vector<std::string>& lines);

// Sets "  key: value" under the top-level `section`: replaces the first such line of the
// section's body or inserts it at the body's end; a missing section is appended. An empty,
// null, "~" or flow-collection header value is dropped so that block lines can follow.
void setNestedScalar(std::string_view section, std::string_view key, std::string_view value,
                     std::vector<std::string>& lines);

// Writes `grid` as "  key:" and seven flow rows under `section`, replacing an existing grid
// of either form whole.
void setNestedWeeklyGrid(std::string_view section, std::string_view key, const ScheduleGrid& grid,
                         std::vector<std::string>& lines);

// "    - [true, false, ...]" for each day.
std::vector<std::string> weeklyGridRows(const ScheduleGrid& grid);

}  // namespace corvane::configyaml
