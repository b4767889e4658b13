#include "CorvaneApp/platform/Text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace corvane {
namespace {

bool isWhitespaceOrNewline(char32_t c) {
    switch (c) {
        case 0x09:
        case 0x0A:
        case 0x0B:
        case 0x0C:
        case 0x0D:
        case 0x20:
        case 0x85:
        case 0xA0:
        case 0x1680:
        case 0x2028:
        case 0x2029:
        case 0x202F:
        case 0x205F:
        case 0x3000:
            return true;
        default:
            return c >= 0x2000 && c <= 0x200A;
    }
}

// Decodes the code point starting at `pos`; sets `length` to its byte count. A malformed sequence
// decodes as U+FFFD of length 1, which is never white space and so is kept.
char32_t decodeAt(std::string_view text, std::size_t pos, std::size_t& length) {
    auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    std::uint8_t lead = byte(pos);
    length = 1;
    if (lead < 0x80) return lead;
    std::size_t extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
    if (extra == 0 || pos + extra >= text.size()) return 0xFFFD;
    char32_t value = lead & (0x3F >> extra);
    for (std::size_t i = 1; i <= extra; ++i) {
        std::uint8_t next = byte(pos + i);
        if ((next & 0xC0) != 0x80) return 0xFFFD;
        value = (value << 6) | (next & 0x3F);
    }
    length = extra + 1;
    return value;
}

}  // namespace

std::string trimWhitespaceAndNewlines(std::string_view text) {
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t length = 0;
        if (!isWhitespaceOrNewline(decodeAt(text, begin, length))) break;
        begin += length;
    }
    // Walk forward from `begin`, remembering where the last non-white code point ends.
    std::size_t end = begin;
    for (std::size_t pos = begin; pos < text.size();) {
        std::size_t length = 0;
        bool white = isWhitespaceOrNewline(decodeAt(text, pos, length));
        pos += length;
        if (!white) end = pos;
    }
    return std::string(text.substr(begin, end - begin));
}

std::string_view trimAsciiWhitespace(std::string_view text) {
    constexpr std::string_view space = " \t\n\r\v\f";
    const auto first = text.find_first_not_of(space);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(space) - first + 1);
}

std::string asciiLowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && asciiLowercased(a) == asciiLowercased(b);
}

}  // namespace corvane
