#include "CorvaneApp/app/AppModelDateParser.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <string>

#include "CorvaneApp/eligibility/RuntimeStateDateParser.h"

namespace corvane {

std::optional<Date> AppModelDateParser::parseCoordinatorTimestamp(std::string_view text) {
    if (auto date = RuntimeStateDateParser::parse(text)) return date;
    if (text.size() != 19 && text.size() != 24) return std::nullopt;
    const std::string copy(text);
    std::tm parts{};
    const char* end = strptime(copy.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
    if (!end || end != copy.c_str() + 19) return std::nullopt;
    const std::tm asParsed = parts;
    const std::time_t seconds = timegm(&parts);
    if (parts.tm_mday != asParsed.tm_mday || parts.tm_mon != asParsed.tm_mon)
        return std::nullopt;  // Feb 30
    long offset = 0;
    if (copy.size() == 24) {
        const char sign = copy[19];
        if ((sign != '+' && sign != '-') || !std::all_of(copy.begin() + 20, copy.end(), [](char c) {
                return std::isdigit(static_cast<unsigned char>(c));
            })) {
            return std::nullopt;
        }
        const long hours = std::stol(copy.substr(20, 2));
        const long minutes = std::stol(copy.substr(22, 2));
        if (hours > 23 || minutes > 59) return std::nullopt;
        offset = (sign == '+' ? 1 : -1) * (hours * 3600 + minutes * 60);
    }
    return std::chrono::system_clock::from_time_t(seconds - offset);
}

}  // namespace corvane
