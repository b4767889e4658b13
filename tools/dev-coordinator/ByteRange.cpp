#include "tools/dev-coordinator/ByteRange.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "CorvaneApp/platform/Text.h"

namespace corvane::dev {

namespace {

// Digits only: no sign, no blanks, within 64 bits.
std::optional<std::uint64_t> decimal(std::string_view text) {
    if (text.empty()) return std::nullopt;
    std::uint64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

bool startsWithUnit(std::string_view text) {
    constexpr std::string_view unit = "bytes=";
    return text.size() >= unit.size() &&
           corvane::equalsIgnoringAsciiCase(text.substr(0, unit.size()), unit);
}

}  // namespace

RangeRequest resolveRange(std::optional<std::string_view> header, std::uint64_t size) {
    using Kind = RangeRequest::Kind;
    if (!header) return {};
    std::string_view text = trimAsciiWhitespace(*header);
    if (!startsWithUnit(text)) return {};
    text = trimAsciiWhitespace(text.substr(6));
    if (text.find(',') != std::string_view::npos) return {};
    auto dash = text.find('-');
    if (dash == std::string_view::npos) return {};
    std::string_view firstText = trimAsciiWhitespace(text.substr(0, dash));
    std::string_view lastText = trimAsciiWhitespace(text.substr(dash + 1));

    if (firstText.empty()) {  // suffix form: the last N bytes
        auto count = decimal(lastText);
        if (!count) return {};
        if (*count == 0 || size == 0) return {Kind::unsatisfiable, {}};
        return {Kind::part, {size - std::min(*count, size), size - 1}};
    }
    auto first = decimal(firstText);
    if (!first) return {};
    std::uint64_t last = size == 0 ? 0 : size - 1;
    if (!lastText.empty()) {
        auto asked = decimal(lastText);
        if (!asked || *asked < *first) return {};
        last = std::min(last, *asked);
    }
    if (*first >= size) return {Kind::unsatisfiable, {}};
    return {Kind::part, {*first, last}};
}

std::string contentRangeValue(const ByteRange& range, std::uint64_t size) {
    return "bytes " + std::to_string(range.first) + "-" + std::to_string(range.last) + "/" +
           std::to_string(size);
}

std::string unsatisfiedRangeValue(std::uint64_t size) {
    return "bytes */" + std::to_string(size);
}

}  // namespace corvane::dev
