#include "CorvaneApp/config/ConfigScanners.h"

#include "CorvaneApp/config/ConfigLines.h"

namespace corvane::configyaml {
namespace {

namespace cl = configlines;

std::vector<std::string> linesOf(std::string_view yaml) {
    return cl::split(cl::splitBom(yaml).body);
}

std::string scalarValue(std::string_view rest) {
    auto value = cl::removeOnePairOfQuotes(cl::trimSpacesAndTabs(rest));
    return std::string(cl::cutInlineComment(value));
}

// Calls `visit(index)` for every line inside `section` (entered again at a repeated header);
// stops early when `visit` returns true.
template <typename Visit>
void forEachSectionLine(const std::vector<std::string>& lines, std::string_view section,
                        Visit visit) {
    bool inSection = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string& line = lines[i];
        if (cl::isTopLevelLineWithKey(line, section)) {
            inSection = true;
            continue;
        }
        if (!inSection || cl::isEmpty(line)) continue;
        if (!cl::isIndented(line)) {
            if (cl::endsSection(line)) inSection = false;
            continue;
        }
        if (visit(i)) return;
    }
}

// A "- [a, b, ...]" row whose every element is true or false.
std::optional<std::vector<bool>> flowRow(std::string_view trimmed) {
    if (!cl::startsWith(trimmed, "- [") || trimmed.back() != ']') return std::nullopt;
    std::string_view inner = trimmed.substr(3, trimmed.size() - 4);
    std::vector<bool> row;
    if (cl::trimSpacesAndTabs(inner).empty()) return row;
    size_t start = 0;
    while (true) {
        size_t comma = inner.find(',', start);
        auto element = cl::trimSpacesAndTabs(
            inner.substr(start, comma == std::string_view::npos ? inner.npos : comma - start));
        // Only true and false, in any case: the wider Boolean words of toBool are not taken here.
        auto value = cl::toBool(element);
        if (!value || element.size() < 4) return std::nullopt;
        row.push_back(*value);
        if (comma == std::string_view::npos) return row;
        start = comma + 1;
    }
}

int indentWidth(std::string_view line) {
    size_t n = line.find_first_not_of(" \t");
    return n == std::string_view::npos ? static_cast<int>(line.size()) : static_cast<int>(n);
}

}  // namespace

std::optional<std::string> scalarTop(std::string_view section, std::string_view key,
                                     std::string_view yaml) {
    auto lines = linesOf(yaml);
    std::string prefix = std::string(key) + ":";
    std::optional<std::string> found;
    forEachSectionLine(lines, section, [&](size_t i) {
        auto trimmed = cl::trimSpacesAndTabs(cl::content(lines[i]));
        if (!cl::startsWith(trimmed, prefix)) return false;
        found = scalarValue(trimmed.substr(prefix.size()));
        return true;
    });
    return found;
}

std::optional<std::string> scalarFlat(std::string_view key, std::string_view yaml) {
    for (const auto& line : linesOf(yaml)) {
        if (!cl::isTopLevelLineWithKey(line, key)) continue;
        auto body = cl::content(line);
        return scalarValue(body.substr(body.find(':') + 1));
    }
    return std::nullopt;
}

std::optional<std::vector<std::vector<bool>>> nestedWeeklyGrid(std::string_view section,
                                                               std::string_view key,
                                                               std::string_view yaml) {
    auto lines = linesOf(yaml);
    std::string header = std::string(key) + ":";
    std::optional<size_t> headerIndex;
    forEachSectionLine(lines, section, [&](size_t i) {
        if (cl::trimSpacesAndTabs(cl::content(lines[i])) != header) return false;
        headerIndex = i;
        return true;
    });
    if (!headerIndex) return std::nullopt;

    std::vector<std::vector<bool>> rows;
    for (size_t i = *headerIndex + 1; i < lines.size(); ++i) {
        auto line = cl::content(lines[i]);
        if (line.empty()) continue;
        if (cl::endsSection(line)) break;
        auto trimmed = cl::trimSpacesAndTabs(line);
        bool isRow = cl::startsWith(trimmed, "-");
        int spaces = cl::leadingSpaces(line);
        if (!isRow && (spaces == 2 || spaces == 3) && indentWidth(line) == spaces) break;
        if (!isRow) continue;
        if (auto row = flowRow(trimmed)) {
            rows.push_back(std::move(*row));
            continue;
        }
        // Block row: its elements are the deeper "- value" lines right after it. A value that
        // isn't a Boolean ends the row there; the rest of the day comes from normalisation.
        std::vector<bool> row;
        bool readable = true;
        int depth = indentWidth(line);
        while (i + 1 < lines.size()) {
            auto next = cl::content(lines[i + 1]);
            auto nextTrimmed = cl::trimSpacesAndTabs(next);
            if (next.empty() || indentWidth(next) <= depth || !cl::startsWith(nextTrimmed, "-"))
                break;
            ++i;
            auto value = cl::toBool(cl::trimSpacesAndTabs(nextTrimmed.substr(1)));
            if (!value) readable = false;
            if (readable) row.push_back(*value);
        }
        rows.push_back(std::move(row));
    }
    if (rows.empty()) return std::nullopt;
    return rows;
}

std::optional<std::string> extractTranscribeQuantization(std::string_view yaml) {
    bool inHandlers = false;
    bool inTranscribe = false;
    for (const auto& raw : linesOf(yaml)) {
        auto line = cl::content(raw);
        auto trimmed = cl::trimSpacesAndTabs(line);
        if (trimmed.empty() || cl::startsWith(trimmed, "#")) continue;
        int depth = cl::leadingSpaces(line);
        if (depth == 0) {
            inHandlers = trimmed == "handlers:";
            inTranscribe = false;
            continue;
        }
        if (!inHandlers) continue;
        if (depth == 2) {
            inTranscribe = trimmed == "transcribe:";
            continue;
        }
        if (!inTranscribe || depth != 4 || !cl::startsWith(trimmed, "quantization:")) continue;
        auto value = cl::removeOnePairOfQuotes(
            cl::trimSpacesAndTabs(trimmed.substr(std::string_view("quantization:").size())));
        if (value.empty()) return std::nullopt;
        return std::string(value);
    }
    return std::nullopt;
}

}  // namespace corvane::configyaml
