#pragma once
// Trimming of UTF-8 text by the full Unicode white-space-and-newline set, not just ASCII.

#include <string>
#include <string_view>

namespace corvane {

// `text` without leading and trailing white space and newlines. Invalid UTF-8 bytes are kept.
std::string trimWhitespaceAndNewlines(std::string_view text);

}  // namespace corvane
