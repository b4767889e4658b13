#include "CorvaneApp/config/ConfigEditors.h"

#include <algorithm>
#include <optional>

#include "CorvaneApp/config/ConfigLines.h"

namespace corvane::configyaml {
namespace {

namespace cl = configlines;

struct Section {
    size_t header;
    size_t bodyEnd;  // one past the last line of the body
};

// The header's inline value holds no block content we could keep: drop it so lines can follow.
bool inlineValueIsPlaceholder(std::string_view header) {
    auto body = cl::content(header);
    auto value = cl::trimSpacesAndTabs(
        cl::cutInlineComment(cl::trimSpacesAndTabs(body.substr(body.find(':') + 1))));
    if (value.empty() || value == "~" || cl::lowercased(value) == "null") return true;
    return (value.front() == '{' && value.back() == '}') ||
           (value.front() == '[' && value.back() == ']');
}

std::optional<Section> findSection(std::vector<std::string>& lines, std::string_view section) {
    for (size_t i = 0; i < lines.size(); ++i) {
        if (!cl::isTopLevelLineWithKey(lines[i], section)) continue;
        if (inlineValueIsPlaceholder(lines[i])) {
            std::string header = std::string(section) + ":";
            if (cl::content(lines[i]) != header) lines[i] = cl::keepLineEnd(lines[i], header);
        }
        size_t end = i + 1;
        while (end < lines.size() && !cl::endsSection(lines[end])) ++end;
        return Section{i, end};
    }
    return std::nullopt;
}

// "  key:" exactly, or any indented line whose text starts with "key:". Tab indentation is
// matched too: the readers take such a line, so leaving it would hide the written value.
bool isNestedKeyLine(std::string_view line, std::string_view key) {
    std::string prefix = std::string(key) + ":";
    line = cl::content(line);
    return cl::startsWith(line, "  " + prefix) ||
           (cl::isIndented(line) && cl::startsWith(cl::trimSpacesAndTabs(line), prefix));
}

std::optional<size_t> findNestedKey(const std::vector<std::string>& lines, const Section& section,
                                    std::string_view key) {
    for (size_t i = section.header + 1; i < section.bodyEnd; ++i) {
        if (isNestedKeyLine(lines[i], key)) return i;
    }
    return std::nullopt;
}

// One past the last line of the grid that starts at `header`: its rows (flow or block) and blank
// lines between them, not blank lines after them. A row counts from the depth of the header or
// of the two-space header written in its place, whichever is shallower: a row below a deeper
// header but not below the written one would otherwise stay and join the new grid.
size_t gridEnd(const std::vector<std::string>& lines, size_t header, size_t limit) {
    constexpr int kWrittenHeaderDepth = 2;
    int depth = std::min(static_cast<int>(cl::content(lines[header]).find_first_not_of(" \t")),
                         kWrittenHeaderDepth);
    size_t end = header + 1;
    for (size_t i = header + 1; i < limit; ++i) {
        auto line = cl::content(lines[i]);
        if (line.empty()) continue;
        auto first = line.find_first_not_of(" \t");
        if (first == std::string_view::npos || static_cast<int>(first) < depth ||
            line[first] != '-')
            break;
        end = i + 1;
    }
    return end;
}

}  // namespace

void setFlatScalar(std::string_view key, std::string_view value, std::vector<std::string>& lines) {
    std::string line = std::string(key) + ": " + std::string(value);
    for (auto& existing : lines) {
        if (cl::isTopLevelLineWithKey(existing, key)) {
            existing = cl::keepLineEnd(existing, line);
            return;
        }
    }
    bool crlf = cl::usesCrlf(lines);
    cl::insertLines(lines, lines.size(), {line}, crlf);
}

void setNestedScalar(std::string_view section, std::string_view key, std::string_view value,
                     std::vector<std::string>& lines) {
    std::string line = "  " + std::string(key) + ": " + std::string(value);
    bool crlf = cl::usesCrlf(lines);
    auto found = findSection(lines, section);
    if (!found) {
        cl::insertLines(lines, lines.size(), {std::string(section) + ":", line}, crlf);
        return;
    }
    if (auto index = findNestedKey(lines, *found, key)) {
        lines[*index] = cl::keepLineEnd(lines[*index], line);
        return;
    }
    cl::insertLines(lines, found->bodyEnd, {line}, crlf);
}

void setNestedWeeklyGrid(std::string_view section, std::string_view key, const ScheduleGrid& grid,
                         std::vector<std::string>& lines) {
    std::vector<std::string> block{"  " + std::string(key) + ":"};
    auto rows = weeklyGridRows(grid);
    block.insert(block.end(), rows.begin(), rows.end());
    bool crlf = cl::usesCrlf(lines);

    auto found = findSection(lines, section);
    if (!found) {
        block.insert(block.begin(), std::string(section) + ":");
        cl::insertLines(lines, lines.size(), std::move(block), crlf);
        return;
    }
    std::string header = std::string(key) + ":";
    std::optional<size_t> at;
    for (size_t i = found->header + 1; i < found->bodyEnd && !at; ++i) {
        if (cl::isIndented(lines[i]) && cl::trimSpacesAndTabs(cl::content(lines[i])) == header)
            at = i;
    }
    if (!at) {
        cl::insertLines(lines, found->bodyEnd, std::move(block), crlf);
        return;
    }
    // The new lines take the line end of the old header, or the file's where the header was the
    // last line and had none to give; the last of them ends as the old grid did when that ended
    // the file.
    size_t end = gridEnd(lines, *at, found->bodyEnd);
    const bool headerCrlf = lines[*at].ends_with('\r') || (*at + 1 == lines.size() && crlf);
    const bool lastCrlf = end == lines.size() ? lines[end - 1].ends_with('\r') : headerCrlf;
    for (auto& line : block) {
        if (headerCrlf) line += '\r';
    }
    if (lastCrlf && !headerCrlf) block.back() += '\r';
    if (!lastCrlf && headerCrlf) block.back().pop_back();
    lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(*at),
                lines.begin() + static_cast<std::ptrdiff_t>(end));
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(*at), block.begin(), block.end());
}

std::vector<std::string> weeklyGridRows(const ScheduleGrid& grid) {
    auto full = ScheduleGrid::normalize(grid.weeklyGrid);
    std::vector<std::string> rows;
    for (const auto& day : full.weeklyGrid) {
        std::string row = "    - [";
        for (size_t hour = 0; hour < day.size(); ++hour) {
            if (hour > 0) row += ", ";
            row += day[hour] ? "true" : "false";
        }
        rows.push_back(row + "]");
    }
    return rows;
}

}  // namespace corvane::configyaml
