#pragma once
// Which points of a chart's time series carry an axis label, and what each label says. No
// state and no knowledge of earnings: a range, a sample count, the present, a locale and a
// calendar (its time zone) in, labels out. Dates are formatted from skeletons, so the order of
// the fields follows the locale.

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace corvane {

struct ChartAxis {
    using Date = std::chrono::system_clock::time_point;

    struct Range {
        enum class Kind { all, hours24, days7, days30, days90 };
        Kind kind = Kind::hours24;
        Date start{};  // only for `all`

        static Range all(Date start) { return {Kind::all, start}; }
        static Range hours24() { return {Kind::hours24, {}}; }
        static Range days7() { return {Kind::days7, {}}; }
        static Range days30() { return {Kind::days30, {}}; }
        static Range days90() { return {Kind::days90, {}}; }
        friend bool operator==(const Range&, const Range&) = default;
    };

    // The Gregorian calendar in one time zone ("Europe/Berlin"; "" means the process's zone).
    struct Calendar {
        std::string timeZoneID;
    };

    // locale is an ICU/POSIX locale name: "en_US", "de_DE", "ja_JP".
    static std::vector<std::string> labels(const Range& range, Date now, const std::string& locale,
                                           const Calendar& calendar);
    static std::vector<int> positions(const Range& range, int sampleCount, const Calendar& calendar,
                                      Date now);
    // sampleCount entries, the label at each index that carries one. Throws std::invalid_argument
    // when the series is too short to hold the range's labels apart.
    static std::vector<std::optional<std::string>> positionedLabels(const Range& range,
                                                                    int sampleCount, Date now,
                                                                    const std::string& locale,
                                                                    const Calendar& calendar);

    // The parts, public for the pages that need one of them.
    static std::vector<Date> quarterStartsBetween(Date start, Date end, const Calendar& calendar);
    static std::vector<Date> selectIntermediateMarkers(std::vector<Date> markers);
    static std::vector<int> normalizedPositions(const std::vector<int>& raw, int sampleCount);
    static int daysBetween(Date start, Date end, const Calendar& calendar);
    static std::optional<Date> startOfDay(Date date, const Calendar& calendar);
    static std::string format(Date date, const std::string& skeleton, const std::string& locale,
                              const Calendar& calendar);
};

}  // namespace corvane
