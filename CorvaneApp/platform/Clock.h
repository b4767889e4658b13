#pragma once
// Points in time and the injected clock every long-lived object reads instead of the system's.

#include <chrono>
#include <ctime>
#include <functional>

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

}  // namespace corvane
