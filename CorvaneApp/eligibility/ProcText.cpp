#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Text.h"

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>

#include <cctype>
#include <charconv>
#include <fstream>

namespace corvane::ProcText {

bool readInto(const char* path, char* data, std::size_t capacity, std::size_t& size) {
    size = 0;
    int fd = ::open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = true;
    while (true) {
        if (size == capacity) {
            // Full buffer: fine only if the file ends exactly here.
            char extra;
            ssize_t more = ::read(fd, &extra, 1);
            ok = more == 0;
            break;
        }
        ssize_t got = ::read(fd, data + size, capacity - size);
        if (got < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    ::close(fd);
    return ok;
}

std::optional<std::string> readSmallFile(const std::filesystem::path& path, std::size_t limit) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::string text;
    char chunk[4096];
    while (in.read(chunk, sizeof chunk) || in.gcount() > 0) {
        text.append(chunk, static_cast<std::size_t>(in.gcount()));
        if (text.size() > limit) return std::nullopt;
    }
    if (in.bad()) return std::nullopt;
    return text;
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
    text = trimAsciiWhitespace(text);
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<double> parseDouble(std::string_view text) {
    text = trimAsciiWhitespace(text);
    if (text.empty()) return std::nullopt;
    double value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<std::uint64_t> meminfoKilobytes(std::string_view text, std::string_view key) {
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t end = text.find('\n', pos);
        if (end == std::string_view::npos) end = text.size();
        std::string_view line = text.substr(pos, end - pos);
        pos = end + 1;
        if (line.size() <= key.size() || line.substr(0, key.size()) != key ||
            line[key.size()] != ':') {
            continue;
        }
        std::string_view value = trimAsciiWhitespace(line.substr(key.size() + 1));
        if (value.size() >= 2 && value.substr(value.size() - 2) == "kB") {
            value.remove_suffix(2);
        }
        return parseUnsigned(value);
    }
    return std::nullopt;
}

bool isPrefixAndNumber(std::string_view name, std::string_view prefix) {
    if (name.size() <= prefix.size() || name.substr(0, prefix.size()) != prefix) return false;
    for (char c : name.substr(prefix.size())) {
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    }
    return true;
}

}  // namespace corvane::ProcText
