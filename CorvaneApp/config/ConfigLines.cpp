#include "CorvaneApp/config/ConfigLines.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <stdexcept>

namespace corvane::configlines {
namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";

}  // namespace

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> lines;
    size_t start = 0;
    while (true) {
        size_t end = text.find('\n', start);
        if (end == std::string_view::npos) {
            lines.emplace_back(text.substr(start));
            return lines;
        }
        lines.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
}

std::string join(const std::vector<std::string>& lines) {
    std::string out;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i > 0) out += '\n';
        out += lines[i];
    }
    return out;
}

BomSplit splitBom(std::string_view text) {
    if (startsWith(text, kBom)) return {true, text.substr(kBom.size())};
    return {false, text};
}

std::string withBom(bool hasBom, std::string text) {
    if (!hasBom) return text;
    return std::string(kBom) + text;
}

std::string_view content(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

std::string keepLineEnd(std::string_view original, std::string replacement) {
    if (!original.empty() && original.back() == '\r') replacement += '\r';
    return replacement;
}

bool usesCrlf(const std::vector<std::string>& lines) {
    return !lines.empty() && !lines.front().empty() && lines.front().back() == '\r';
}

void insertLines(std::vector<std::string>& lines, size_t at, std::vector<std::string> added,
                 bool crlf) {
    if (crlf) {
        for (auto& line : added) line += '\r';
        if (at == lines.size() && !lines.empty() && !lines.back().ends_with('\r'))
            lines.back() += '\r';
    }
    lines.insert(lines.begin() + static_cast<std::ptrdiff_t>(at), added.begin(), added.end());
}

bool isEmpty(std::string_view line) {
    return content(line).empty();
}

bool isIndented(std::string_view line) {
    return !line.empty() && (line.front() == ' ' || line.front() == '\t');
}

bool isComment(std::string_view line) {
    return !line.empty() && line.front() == '#';
}

std::optional<std::string> topLevelKey(std::string_view line) {
    line = content(line);
    size_t colon = line.find(':');
    if (colon == std::string_view::npos) return std::nullopt;
    return std::string(trimSpacesAndTabs(line.substr(0, colon)));
}

bool isTopLevelLineWithKey(std::string_view line, std::string_view key) {
    if (isIndented(line) || isComment(line)) return false;
    auto lineKey = topLevelKey(line);
    return lineKey && *lineKey == key;
}

bool endsSection(std::string_view line) {
    return !isEmpty(line) && !isIndented(line) && !isComment(line) &&
           content(line).find(':') != std::string_view::npos;
}

int leadingSpaces(std::string_view line) {
    int count = 0;
    while (static_cast<size_t>(count) < line.size() && line[static_cast<size_t>(count)] == ' ')
        ++count;
    return count;
}

std::string_view trimSpacesAndTabs(std::string_view text) {
    size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return {};
    size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) {
        return static_cast<char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    });
    return out;
}

std::string_view removeOnePairOfQuotes(std::string_view value) {
    if (value.size() >= 2 && value.front() == value.back() &&
        (value.front() == '"' || value.front() == '\'')) {
        return value.substr(1, value.size() - 2);
    }
    return value;
}

std::string_view cutInlineComment(std::string_view value) {
    size_t hash = value.find(" #");
    if (hash == std::string_view::npos) return value;
    return trimSpacesAndTabs(value.substr(0, hash));
}

std::string singleQuoted(std::string_view value) {
    std::string out = "'";
    for (char c : value) {
        out += c;
        if (c == '\'') out += '\'';
    }
    out += '\'';
    return out;
}

std::optional<bool> toBool(std::string_view text) {
    std::string lower = lowercased(text);
    if (lower == "true" || lower == "yes" || lower == "on" || lower == "1") return true;
    if (lower == "false" || lower == "no" || lower == "off" || lower == "0") return false;
    return std::nullopt;
}

std::optional<double> toNumber(std::string_view text) {
    // from_chars is locale-independent; it refuses a leading '+', which a number may carry.
    if (text.size() > 1 && text.front() == '+' && text[1] != '-' && text[1] != '+')
        text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    // Infinity and NaN are no setting; they would also not survive being written back whole.
    if (!std::isfinite(value)) return std::nullopt;
    return value;
}

void requireSingleLine(std::string_view what, std::string_view value) {
    if (value.find_first_of("\r\n") != std::string_view::npos) {
        throw std::invalid_argument(std::string(what) + " must not contain a line break");
    }
}

}  // namespace corvane::configlines
