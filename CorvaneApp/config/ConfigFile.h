#pragma once
// Reading and replacing config.yaml as a whole file. The text is handled as bytes: the line
// editors never touch a line they don't own, so nothing needs decoding.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::configfile {

// ~/.varnix-compute/config.yaml
std::filesystem::path defaultPath();

// The file's text; absent when it doesn't exist or can't be read.
std::optional<std::string> read(const std::filesystem::path& path);

// The file's text, an empty text when it doesn't exist; throws std::system_error when it exists
// but can't be read, so that a caller never mistakes an unreadable file for a missing one.
std::string readOrEmptyIfMissing(const std::filesystem::path& path);

// Replaces the file so that a reader sees the old text or the new one, never a mix: temp file in
// the same folder, fsync, rename. Creates missing parent folders. An existing file keeps its
// permissions (a symlink keeps pointing at it); a new one is created 0600. A file without write
// permission is refused, not replaced. Throws std::system_error or
// std::filesystem::filesystem_error; the old file is untouched on failure.
void writeAtomic(std::string_view text, const std::filesystem::path& path);

}  // namespace corvane::configfile
