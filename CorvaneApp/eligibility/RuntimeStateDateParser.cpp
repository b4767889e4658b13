#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"

#include <cctype>
#include <chrono>

namespace corvane {
namespace {

// Reads exactly `digits` decimal digits at `pos`, advancing it.
std::optional<int> number(std::string_view text, std::size_t& pos, std::size_t digits) {
    if (pos + digits > text.size()) return std::nullopt;
    int value = 0;
    for (std::size_t i = 0; i < digits; ++i) {
        const char c = text[pos + i];
        if (!std::isdigit(static_cast<unsigned char>(c))) return std::nullopt;
        value = value * 10 + (c - '0');
    }
    pos += digits;
    return value;
}

bool expect(std::string_view text, std::size_t& pos, char wanted) {
    if (pos >= text.size() || text[pos] != wanted) return false;
    ++pos;
    return true;
}

}  // namespace

std::optional<Date> RuntimeStateDateParser::parse(std::string_view text) {
    using namespace std::chrono;
    std::size_t pos = 0;
    auto year = number(text, pos, 4);
    if (!year || !expect(text, pos, '-')) return std::nullopt;
    auto month = number(text, pos, 2);
    if (!month || !expect(text, pos, '-')) return std::nullopt;
    auto day = number(text, pos, 2);
    if (!day || !expect(text, pos, 'T')) return std::nullopt;
    auto hour = number(text, pos, 2);
    if (!hour || !expect(text, pos, ':')) return std::nullopt;
    auto minute = number(text, pos, 2);
    if (!minute || !expect(text, pos, ':')) return std::nullopt;
    auto second = number(text, pos, 2);
    if (!second) return std::nullopt;

    double fraction = 0;
    if (pos < text.size() && text[pos] == '.') {
        ++pos;
        double scale = 0.1;
        const std::size_t start = pos;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
            fraction += (text[pos] - '0') * scale;
            scale /= 10;
            ++pos;
        }
        if (pos == start) return std::nullopt;
    }

    int offsetMinutes = 0;
    if (expect(text, pos, 'Z')) {
    } else if (pos < text.size() && (text[pos] == '+' || text[pos] == '-')) {
        const int sign = text[pos] == '-' ? -1 : 1;
        ++pos;
        auto offsetHours = number(text, pos, 2);
        if (!offsetHours || !expect(text, pos, ':')) return std::nullopt;
        auto offsetRest = number(text, pos, 2);
        if (!offsetRest || *offsetHours > 23 || *offsetRest > 59) return std::nullopt;
        offsetMinutes = sign * (*offsetHours * 60 + *offsetRest);
    } else {
        return std::nullopt;
    }
    if (pos != text.size()) return std::nullopt;

    const year_month_day date{std::chrono::year{*year},
                              std::chrono::month{static_cast<unsigned>(*month)},
                              std::chrono::day{static_cast<unsigned>(*day)}};
    if (!date.ok() || *hour > 23 || *minute > 59 || *second > 59) return std::nullopt;
    const auto wholeSeconds = sys_days{date} + hours{*hour} + minutes{*minute} + seconds{*second} -
                              minutes{offsetMinutes};
    // A Date counts nanoseconds in 64 bits, from about 1678 to 2262; a moment outside that can't
    // be held, and reads as absent like any other unreadable timestamp.
    constexpr auto limit = duration_cast<seconds>(Date::duration::max()) - seconds{1};
    if (wholeSeconds.time_since_epoch() > limit || wholeSeconds.time_since_epoch() < -limit)
        return std::nullopt;
    return addSeconds(time_point_cast<Date::duration>(wholeSeconds), fraction);
}

}  // namespace corvane
