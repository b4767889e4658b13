#pragma once
// Points in time and the injected clock every long-lived object reads instead of the system's.

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

using Date = std::chrono::system_clock::time_point;
using NowFunction = std::function<Date()>;

inline Date systemNow() {
    return std::chrono::system_clock::now();
}

// Seconds from `from` to `to` (negative when `to` is earlier).
inline double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}

inline Date addSeconds(Date date, double seconds) {
    return date +
           std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

inline double unixSeconds(Date date) {
    return std::chrono::duration<double>(date.time_since_epoch()).count();
}

inline Date dateFromUnixSeconds(double seconds) {
    return addSeconds(Date{}, seconds);
}

// Calendar fields in the computer's own zone, as the owner reads "today", and back; the way back
// lets the zone decide daylight saving time.
inline std::tm localParts(Date date) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(date);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    return parts;
}

inline Date fromLocalParts(std::tm parts) {
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts));
}

// The local calendar day of `date` as "yyyy-MM-dd", the key the coordinator's daily rows carry.
inline std::string localDayKey(Date date) {
    const std::tm parts = localParts(date);
    char text[16];
    std::strftime(text, sizeof text, "%Y-%m-%d", &parts);
    return text;
}

// A "yyyy-MM-dd" key as that day's local calendar fields (midnight); absent for anything else.
inline std::optional<std::tm> parseLocalDayKey(std::string_view key) {
    if (key.size() != 10) return std::nullopt;
    std::tm parts{};
    const std::string copy(key);
    const char* end = strptime(copy.c_str(), "%Y-%m-%d", &parts);
    if (!end || *end != '\0') return std::nullopt;
    return parts;
}

// The number of days of the month that `parts` falls in.
inline int daysInLocalMonth(const std::tm& parts) {
    std::tm next{};
    next.tm_year = parts.tm_year;
    next.tm_mon = parts.tm_mon + 1;
    next.tm_mday = 0;  // the last day of parts' month
    next.tm_hour = 12;
    return localParts(fromLocalParts(next)).tm_mday;
}

}  // namespace corvane
