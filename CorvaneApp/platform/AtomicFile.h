#pragma once
// Files we own are replaced whole: temp file in the same folder, fsync, rename.

#include <sys/types.h>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

// Writes `contents` to `path` so that a reader sees either the old file or the new one, never a
// part. `mode` sets the permissions of the new file; when absent, an existing file keeps its
// permissions and a new one gets 0644. Throws std::system_error (ENOSPC, EACCES, ...) and leaves
// the old file untouched on failure.
void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::optional<mode_t> mode = std::nullopt);

// Reads a whole file; absent when it does not exist or cannot be read.
std::optional<std::string> readFile(const std::filesystem::path& path);

}  // namespace corvane
