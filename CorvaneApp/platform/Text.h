#pragma once
// Small text helpers every subsystem shares: trimming and ASCII case folding.

#include <string>
#include <string_view>

namespace corvane {

// `text` without leading and trailing white space and newlines of the full Unicode set (what a
// person typed or pasted). Invalid UTF-8 bytes are kept.
std::string trimWhitespaceAndNewlines(std::string_view text);

// `text` without leading and trailing ASCII white space (" \t\n\r\v\f"): what machine-written
// text (files under /proc, headers, model output) is trimmed of.
std::string_view trimAsciiWhitespace(std::string_view text);

// `text` with A-Z lowered; other bytes are kept.
std::string asciiLowercased(std::string_view text);
bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b);

}  // namespace corvane
