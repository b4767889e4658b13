#pragma once
// The line classes and value conversions shared by every config.yaml scanner and editor. The
// file is never parsed into a tree: each reader looks for one key, each editor swaps or inserts
// single lines, so comments, unknown keys and their order survive.
//
// Tolerated beyond plain LF text: a UTF-8 byte-order mark (kept in front of the first line) and
// CRLF line ends (a line's "\r" is not part of its content, and an edited line keeps it).

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::configlines {

// Split on '\n', keeping empty lines ("a\n" is {"a", ""}); join is its exact inverse.
std::vector<std::string> split(std::string_view text);
std::string join(const std::vector<std::string>& lines);

// A leading byte-order mark, split off so that the first line's key is seen.
struct BomSplit {
    bool hasBom = false;
    std::string_view body;
};
BomSplit splitBom(std::string_view text);
std::string withBom(bool hasBom, std::string text);

// The line without a trailing "\r".
std::string_view content(std::string_view line);
// `replacement` given the line end of `original` (CRLF stays CRLF).
std::string keepLineEnd(std::string_view original, std::string replacement);
// The line end new lines take in this file: CRLF when its first line has one.
bool usesCrlf(const std::vector<std::string>& lines);
// Inserts `added` before index `at`, each line ending in CR when `crlf`. Past the end of a CRLF
// file the line that was last (the empty one after the final line break, or a last line without
// one) gets its CR too, now that a line break follows it.
void insertLines(std::vector<std::string>& lines, size_t at, std::vector<std::string> added,
                 bool crlf);

bool isEmpty(std::string_view line);
// Starts with a space or a tab.
bool isIndented(std::string_view line);
// A "#" at column 0.
bool isComment(std::string_view line);
// The text before the first ":", trimmed of spaces and tabs; absent without ":".
std::optional<std::string> topLevelKey(std::string_view line);
// Unindented, not a comment, and its key is `key`.
bool isTopLevelLineWithKey(std::string_view line, std::string_view key);
// Unindented, not a comment, with a ":": the line that ends a section.
bool endsSection(std::string_view line);
int leadingSpaces(std::string_view line);

std::string_view trimSpacesAndTabs(std::string_view text);
bool startsWith(std::string_view text, std::string_view prefix);
// ASCII lower case; other bytes unchanged.
std::string lowercased(std::string_view text);

// One pair of equal enclosing quotes (' or ") removed; doubled quotes inside stay doubled.
std::string_view removeOnePairOfQuotes(std::string_view value);
// What stands before " #", trimmed; the whole value when there is none.
std::string_view cutInlineComment(std::string_view value);
// Wrapped in single quotes, each single quote inside doubled.
std::string singleQuoted(std::string_view value);

// "true", "yes", "on", "1" and "false", "no", "off", "0", any case.
std::optional<bool> toBool(std::string_view text);
// The whole text as a decimal number in the C locale, no leading blank; finite values only.
std::optional<double> toNumber(std::string_view text);

// Throws std::invalid_argument when `value` would break out of its line.
void requireSingleLine(std::string_view what, std::string_view value);

}  // namespace corvane::configlines
