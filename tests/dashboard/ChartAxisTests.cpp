#include "CorvaneApp/dashboard/ChartAxis.h"

#include <gtest/gtest.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>

#include <memory>
#include <stdexcept>

namespace corvane {
namespace {

using Range = ChartAxis::Range;
using Labels = std::vector<std::string>;
using Positions = std::vector<int>;
const ChartAxis::Calendar newYork{"America/New_York"};
const ChartAxis::Calendar berlin{"Europe/Berlin"};

// A wall-clock time in the calendar's zone.
ChartAxis::Date at(const ChartAxis::Calendar& calendar, int year, int month, int day, int hour = 12,
                   int minute = 0) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::TimeZone> zone(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(calendar.timeZoneID)));
    icu::GregorianCalendar cal(*zone, status);
    cal.clear();
    cal.set(year, month - 1, day, hour, minute, 0);
    auto millis = static_cast<std::int64_t>(cal.getTime(status));
    EXPECT_TRUE(U_SUCCESS(status));
    return ChartAxis::Date{std::chrono::milliseconds{millis}};
}

TEST(ChartAxisTest, FixedRangesPlaceTheirLabels) {
    auto now = at(newYork, 2024, 5, 10);
    auto hours = ChartAxis::positionedLabels(Range::hours24(), 24, now, "en_US", newYork);
    EXPECT_EQ(hours[23], "24");
    EXPECT_EQ(ChartAxis::positions(Range::hours24(), 24, newYork, now),
              (Positions{0, 6, 12, 18, 23}));

    EXPECT_EQ(ChartAxis::labels(Range::days7(), now, "en_US", newYork),
              (Labels{"Mon", "Tue", "Wed", "Thu", "Today"}));

    EXPECT_EQ(ChartAxis::positions(Range::days30(), 20, newYork, now),
              (Positions{0, 1, 5, 12, 19}));
    EXPECT_EQ(ChartAxis::labels(Range::days30(), now, "en_US", newYork),
              (Labels{"Apr 11", "Apr 19", "Apr 26", "May 3", "Today"}));
    EXPECT_EQ(ChartAxis::labels(Range::days90(), now, "en_US", newYork),
              (Labels{"Feb", "Mar", "Apr", "May", "Today"}));
    EXPECT_EQ(ChartAxis::positions(Range::days90(), 91, newYork, now),
              (Positions{0, 23, 45, 68, 90}));
}

TEST(ChartAxisTest, LocaleDecidesWordsAndFieldOrder) {
    auto now = at(berlin, 2024, 5, 10);
    EXPECT_EQ(ChartAxis::labels(Range::days30(), now, "de_DE", berlin),
              (Labels{"11. Apr.", "19. Apr.", "26. Apr.", "3. Mai", "Today"}));
    EXPECT_EQ(ChartAxis::labels(Range::days7(), now, "de_DE", berlin),
              (Labels{"Mo", "Di", "Mi", "Do", "Today"}));
    auto lastYear = Range::all(at(berlin, 2023, 12, 24));
    EXPECT_EQ(ChartAxis::labels(lastYear, now, "de_DE", berlin),
              (Labels{"24. Dez. 23", "1. Jan. 24", "1. Apr. 24", "Today"}));
}

TEST(ChartAxisTest, TimeZoneAndDaylightSavingFollowTheCalendar) {
    // One instant, two zones: in New York it is still Friday evening, in Berlin already Saturday.
    ChartAxis::Date instant = at(berlin, 2024, 6, 1, 2);
    EXPECT_EQ(ChartAxis::labels(Range::days7(), instant, "en_US", newYork)[3], "Thu");
    EXPECT_EQ(ChartAxis::labels(Range::days7(), instant, "en_US", berlin)[3], "Fri");
    // Just after the spring change a day has 23 hours: one calendar day back from 00:30 is
    // Sunday, where 24 hours back would be Saturday.
    auto afterChange = at(newYork, 2024, 3, 11, 0, 30);
    EXPECT_EQ(ChartAxis::labels(Range::days7(), afterChange, "en_US", newYork)[3], "Sun");
    EXPECT_EQ(ChartAxis::daysBetween(at(newYork, 2024, 3, 9, 23, 30), afterChange, newYork), 2);
    EXPECT_EQ(ChartAxis::daysBetween(at(berlin, 2024, 10, 26, 23), at(berlin, 2024, 10, 28, 0, 30),
                                     berlin),
              2);
}

TEST(ChartAxisTest, AllRangeMarkersAndPositions) {
    auto now = at(newYork, 2024, 11, 15);
    auto twoYears = Range::all(at(newYork, 2022, 9, 20));
    EXPECT_EQ(ChartAxis::labels(twoYears, now, "en_US", newYork),
              (Labels{"Sep 20, 22", "Oct 1, 22", "Oct 1, 23", "Oct 1, 24", "Today"}));
    EXPECT_EQ(ChartAxis::positions(twoYears, 788, newYork, now), (Positions{0, 11, 376, 742, 787}));

    auto newYear = Range::all(at(newYork, 2024, 1, 1, 0));
    EXPECT_EQ(ChartAxis::labels(newYear, now, "en_US", newYork),
              (Labels{"Jan 1", "Apr 1", "Jul 1", "Oct 1", "Today"}));

    auto today = Range::all(at(newYork, 2024, 11, 15, 1));
    auto placed = ChartAxis::positionedLabels(today, 10, now, "en_US", newYork);
    EXPECT_EQ(placed.front(), "Nov 15");
    EXPECT_EQ(placed.back(), "Today");

    // A start in the future: no markers, the date in its own year, at the two ends.
    auto future = Range::all(at(newYork, 2025, 1, 5));
    EXPECT_EQ(ChartAxis::labels(future, now, "en_US", newYork), (Labels{"Jan 5, 25", "Today"}));
    EXPECT_EQ(ChartAxis::positions(future, 5, newYork, now), (Positions{0, 4}));
}

TEST(ChartAxisTest, ShortSeries) {
    auto now = at(newYork, 2024, 5, 10);
    EXPECT_TRUE(ChartAxis::positionedLabels(Range::days30(), 0, now, "en_US", newYork).empty());
    EXPECT_EQ(ChartAxis::positionedLabels(Range::days7(), 1, now, "en_US", newYork),
              (std::vector<std::optional<std::string>>{"Mon"}));
    EXPECT_EQ(ChartAxis::normalizedPositions({0, 0, 0, 0, 1}, 2), (Positions{-3, -2, -1, 0, 1}));
    EXPECT_THROW(ChartAxis::positionedLabels(Range::hours24(), 1, now, "en_US", newYork),
                 std::invalid_argument);
    EXPECT_THROW(ChartAxis::positionedLabels(Range::all(now), 1, now, "en_US", newYork),
                 std::invalid_argument);
}

}  // namespace
}  // namespace corvane
