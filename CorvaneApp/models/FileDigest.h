#pragma once
// SHA-256 of a file, read in 1 MiB pieces so that memory stays flat whatever its size.

#include <filesystem>
#include <string>

namespace corvane {

// Lower-case hexadecimal, two digits a byte. Throws std::system_error when the file can't be read.
std::string sha256HexOfFile(const std::filesystem::path& path);

}  // namespace corvane
