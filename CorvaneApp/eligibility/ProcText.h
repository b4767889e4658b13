#pragma once
// Small readers for the text files of /proc and /sys: whole-file reads into fixed buffers (no
// allocation on hot paths), and the number formats those files use.

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::ProcText {

template <std::size_t N>
struct Buffer {
    std::array<char, N> bytes{};
    std::size_t size = 0;
    std::string_view view() const { return {bytes.data(), size}; }
};

// Reads up to `capacity` bytes of the file at `path`. False when it can't be opened or read, or
// when it is larger than the buffer (a truncated read would parse as something it isn't).
bool readInto(const char* path, char* data, std::size_t capacity, std::size_t& size);

template <std::size_t N>
bool readInto(const char* path, Buffer<N>& buffer) {
    return readInto(path, buffer.bytes.data(), N, buffer.size);
}

// The whole file, for files of a few lines (sysfs attributes, /proc/<pid>/comm); absent when
// unreadable or over `limit` bytes.
std::optional<std::string> readSmallFile(const std::filesystem::path& path,
                                         std::size_t limit = 64 * 1024);

// A decimal number taking the whole of `text` (after trimming); absent otherwise.
std::optional<std::uint64_t> parseUnsigned(std::string_view text);
std::optional<double> parseDouble(std::string_view text);

// The value of "Key:   1234 kB" in a meminfo-style text.
std::optional<std::uint64_t> meminfoKilobytes(std::string_view text, std::string_view key);

// True when `name` is `prefix` followed by one or more digits ("card0", "pcm3c" is not).
bool isPrefixAndNumber(std::string_view name, std::string_view prefix);

}  // namespace corvane::ProcText
