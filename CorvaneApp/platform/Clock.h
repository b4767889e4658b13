#pragma once
// Points in time and the injected clock every long-lived object reads instead of the system's.

#include <chrono>
#include <functional>

namespace corvane {

using Date = std::chrono::system_clock::time_point;
using NowFunction = std::function<Date()>;

inline Date systemNow() { return std::chrono::system_clock::now(); }

// Seconds from `from` to `to` (negative when `to` is earlier).
inline double secondsBetween(Date from, Date to) {
    return std::chrono::duration<double>(to - from).count();
}

inline Date addSeconds(Date date, double seconds) {
    return date + std::chrono::duration_cast<Date::duration>(std::chrono::duration<double>(seconds));
}

inline double unixSeconds(Date date) {
    return std::chrono::duration<double>(date.time_since_epoch()).count();
}

inline Date dateFromUnixSeconds(double seconds) { return addSeconds(Date{}, seconds); }

}  // namespace corvane
