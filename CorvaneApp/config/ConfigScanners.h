#pragma once
// Readers of single keys in config.yaml text. Each is total: a missing key, an unparsable value
// or a malformed line gives absent, never an error. The first match wins throughout.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane::configyaml {

// The value of `key` nested under the top-level `section`, one pair of quotes removed, then an
// inline " #" comment cut. A repeated section header is entered again.
std::optional<std::string> scalarTop(std::string_view section, std::string_view key,
                                     std::string_view yaml);

// The value of the top-level `key`, with the same quote and comment rules.
std::optional<std::string> scalarFlat(std::string_view key, std::string_view yaml);

// The rows of the grid `key` under `section`, in flow form ("- [true, false, ...]") or block
// form ("-" then deeper "- true" lines). Rows may be short or too many; absent when none is read.
std::optional<std::vector<std::vector<bool>>> nestedWeeklyGrid(std::string_view section,
                                                               std::string_view key,
                                                               std::string_view yaml);

// handlers.transcribe.quantization, found by space indentation (0, 2, 4).
std::optional<std::string> extractTranscribeQuantization(std::string_view yaml);

}  // namespace corvane::configyaml
