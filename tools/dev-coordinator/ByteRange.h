#pragma once
// The one byte range a "Range" header asks of a body, resolved against the body's size.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvane::dev {

struct ByteRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0;  // inclusive

    bool operator==(const ByteRange&) const = default;
    std::uint64_t length() const { return last - first + 1; }
};

struct RangeRequest {
    // `whole`: no usable range (absent, another unit, several ranges or malformed, all of which
    // a server may ignore); `part`: serve `range` with 206; `unsatisfiable`: answer 416.
    enum class Kind { whole, part, unsatisfiable };
    Kind kind = Kind::whole;
    ByteRange range;

    bool operator==(const RangeRequest&) const = default;
};

RangeRequest resolveRange(std::optional<std::string_view> header, std::uint64_t size);

// "bytes 2-4/10".
std::string contentRangeValue(const ByteRange& range, std::uint64_t size);
// "bytes */10", sent with 416.
std::string unsatisfiedRangeValue(std::uint64_t size);

}  // namespace corvane::dev
