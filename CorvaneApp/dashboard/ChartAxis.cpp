#include "CorvaneApp/dashboard/ChartAxis.h"

#include <unicode/calendar.h>
#include <unicode/dtptngen.h>
#include <unicode/gregocal.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

namespace corvane {
namespace {

using Date = ChartAxis::Date;

UDate toUDate(Date date) {
    return static_cast<UDate>(
        std::chrono::duration_cast<std::chrono::milliseconds>(date.time_since_epoch()).count());
}

Date fromUDate(UDate millis) {
    return Date{std::chrono::duration_cast<Date::duration>(
        std::chrono::milliseconds{static_cast<std::int64_t>(millis)})};
}

std::unique_ptr<icu::TimeZone> makeZone(const ChartAxis::Calendar& calendar) {
    if (calendar.timeZoneID.empty())
        return std::unique_ptr<icu::TimeZone>(icu::TimeZone::createDefault());
    return std::unique_ptr<icu::TimeZone>(
        icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(calendar.timeZoneID)));
}

std::unique_ptr<icu::Calendar> makeCalendar(const ChartAxis::Calendar& calendar, Date at) {
    UErrorCode status = U_ZERO_ERROR;
    auto cal = std::make_unique<icu::GregorianCalendar>(*makeZone(calendar), icu::Locale::getRoot(),
                                                        status);
    if (U_FAILURE(status)) return nullptr;
    cal->setTime(toUDate(at), status);
    if (U_FAILURE(status)) return nullptr;
    return cal;
}

void clearTimeOfDay(icu::Calendar& cal) {
    cal.set(UCAL_HOUR_OF_DAY, 0);
    cal.set(UCAL_MINUTE, 0);
    cal.set(UCAL_SECOND, 0);
    cal.set(UCAL_MILLISECOND, 0);
}

// `date` moved by `amount` of `field` in the calendar; absent when the calendar can't.
std::optional<Date> adding(Date date, UCalendarDateFields field, int amount,
                           const ChartAxis::Calendar& calendar) {
    auto cal = makeCalendar(calendar, date);
    if (!cal) return std::nullopt;
    UErrorCode status = U_ZERO_ERROR;
    cal->add(field, amount, status);
    UDate moved = cal->getTime(status);
    if (U_FAILURE(status)) return std::nullopt;
    return fromUDate(moved);
}

long roundHalfAway(double value) {
    return std::lround(value);
}

std::vector<Date> allMarkers(Date start, Date now, const ChartAxis::Calendar& calendar) {
    auto startDay = ChartAxis::startOfDay(start, calendar);
    auto today = ChartAxis::startOfDay(now, calendar);
    if (!startDay || !today || !(*startDay < *today)) return {};
    return ChartAxis::selectIntermediateMarkers(
        ChartAxis::quarterStartsBetween(*startDay, *today, calendar));
}

int yearOf(Date date, const ChartAxis::Calendar& calendar) {
    auto cal = makeCalendar(calendar, date);
    if (!cal) return 0;
    UErrorCode status = U_ZERO_ERROR;
    return cal->get(UCAL_EXTENDED_YEAR, status);
}

}  // namespace

std::optional<Date> ChartAxis::startOfDay(Date date, const Calendar& calendar) {
    auto cal = makeCalendar(calendar, date);
    if (!cal) return std::nullopt;
    clearTimeOfDay(*cal);
    UErrorCode status = U_ZERO_ERROR;
    UDate day = cal->getTime(status);
    if (U_FAILURE(status)) return std::nullopt;
    return fromUDate(day);
}

int ChartAxis::daysBetween(Date start, Date end, const Calendar& calendar) {
    auto from = startOfDay(start, calendar);
    auto to = startOfDay(end, calendar);
    if (!from || !to) return 0;
    auto cal = makeCalendar(calendar, *from);
    if (!cal) return 0;
    UErrorCode status = U_ZERO_ERROR;
    int days = cal->fieldDifference(toUDate(*to), UCAL_DATE, status);
    return U_FAILURE(status) ? 0 : days;
}

std::string ChartAxis::format(Date date, const std::string& skeleton, const std::string& locale,
                              const Calendar& calendar) {
    UErrorCode status = U_ZERO_ERROR;
    icu::Locale icuLocale(locale.c_str());
    std::unique_ptr<icu::DateTimePatternGenerator> generator(
        icu::DateTimePatternGenerator::createInstance(icuLocale, status));
    if (U_FAILURE(status)) throw std::runtime_error("no date patterns for locale " + locale);
    icu::UnicodeString pattern =
        generator->getBestPattern(icu::UnicodeString::fromUTF8(skeleton), status);
    icu::SimpleDateFormat formatter(pattern, icuLocale, status);
    if (U_FAILURE(status)) throw std::runtime_error("no date format for locale " + locale);
    auto cal = makeCalendar(calendar, date);
    if (!cal) throw std::runtime_error("no calendar for time zone " + calendar.timeZoneID);
    formatter.setCalendar(*cal);
    icu::UnicodeString text;
    formatter.format(toUDate(date), text);
    std::string out;
    text.toUTF8String(out);
    return out;
}

std::vector<std::string> ChartAxis::labels(const Range& range, Date now, const std::string& locale,
                                           const Calendar& calendar) {
    std::vector<std::string> out;
    auto addShifted = [&](UCalendarDateFields field, std::initializer_list<int> backs,
                          const char* skeleton) {
        for (int back : backs) {
            if (auto date = adding(now, field, -back, calendar))
                out.push_back(format(*date, skeleton, locale, calendar));
        }
    };
    switch (range.kind) {
        case Range::Kind::hours24:
            return {"00", "06", "12", "18", "24"};
        case Range::Kind::days7:
            addShifted(UCAL_DATE, {4, 3, 2, 1}, "EEE");
            break;
        case Range::Kind::days30:
            addShifted(UCAL_DATE, {29, 21, 14, 7}, "MMMd");
            break;
        case Range::Kind::days90:
            addShifted(UCAL_MONTH, {3, 2, 1, 0}, "MMM");
            break;
        case Range::Kind::all: {
            const char* skeleton =
                yearOf(range.start, calendar) == yearOf(now, calendar) ? "MMMd" : "MMMdyy";
            out.push_back(format(range.start, skeleton, locale, calendar));
            for (Date marker : allMarkers(range.start, now, calendar)) {
                out.push_back(format(marker, skeleton, locale, calendar));
            }
            break;
        }
    }
    out.emplace_back("Today");
    return out;
}

std::vector<Date> ChartAxis::quarterStartsBetween(Date start, Date end, const Calendar& calendar) {
    auto firstOfMonth = [&](Date date) -> std::unique_ptr<icu::Calendar> {
        auto cal = makeCalendar(calendar, date);
        if (!cal) return nullptr;
        cal->set(UCAL_DATE, 1);
        clearTimeOfDay(*cal);
        return cal;
    };
    auto first = firstOfMonth(start);
    auto last = firstOfMonth(end);
    if (!first || !last) return {};
    UErrorCode status = U_ZERO_ERROR;
    UDate firstTime = first->getTime(status);
    UDate lastTime = last->getTime(status);
    if (U_FAILURE(status)) return {};
    auto counter = makeCalendar(calendar, fromUDate(firstTime));
    if (!counter) return {};
    int months = std::max(0, counter->fieldDifference(lastTime, UCAL_MONTH, status));
    if (U_FAILURE(status)) return {};

    std::vector<Date> out;
    for (int count = 0; count <= months; ++count) {
        auto cal = makeCalendar(calendar, fromUDate(firstTime));
        if (!cal) return {};
        cal->add(UCAL_MONTH, count, status);
        int month = cal->get(UCAL_MONTH, status) + 1;
        UDate when = cal->getTime(status);
        if (U_FAILURE(status)) return {};
        if (month % 3 != 1) continue;
        auto day = startOfDay(fromUDate(when), calendar);
        if (day && *day > start && *day < end) out.push_back(*day);
    }
    return out;
}

std::vector<Date> ChartAxis::selectIntermediateMarkers(std::vector<Date> markers) {
    if (markers.size() < 4) return markers;
    auto n = static_cast<long>(markers.size());
    auto middle = roundHalfAway(static_cast<double>(n - 1) * 0.5);
    return {markers.front(), markers[static_cast<size_t>(middle)], markers.back()};
}

std::vector<int> ChartAxis::normalizedPositions(const std::vector<int>& raw, int sampleCount) {
    int last = sampleCount - 1;
    int k = static_cast<int>(raw.size());
    std::vector<int> out;
    out.reserve(raw.size());
    for (int i = 0; i < k; ++i) {
        int lower = i == 0 ? 0 : std::min(out.back() + 1, last);
        int value = std::max(std::clamp(raw[static_cast<size_t>(i)], 0, std::max(last, 0)), lower);
        value = std::min(value, last - (k - 1 - i));
        out.push_back(value);
    }
    return out;
}

std::vector<int> ChartAxis::positions(const Range& range, int sampleCount, const Calendar& calendar,
                                      Date now) {
    int n = sampleCount;
    int last = n - 1;
    std::vector<int> raw;
    switch (range.kind) {
        case Range::Kind::hours24:
            raw = {0, 6, 12, 18, 23};
            break;
        case Range::Kind::days7:
            for (int i = std::max(0, n - 5); i <= last; ++i) raw.push_back(i);
            break;
        case Range::Kind::days30:
            raw = {last < 29 ? 0 : n - 30, last < 21 ? 0 : n - 22, last < 14 ? 0 : n - 15,
                   last < 7 ? 0 : n - 8, last};
            break;
        case Range::Kind::days90:
            for (double share : {0.0, 0.25, 0.5, 0.75})
                raw.push_back(static_cast<int>(roundHalfAway(last * share)));
            raw.push_back(last);
            break;
        case Range::Kind::all: {
            raw.push_back(0);
            int total = std::max(daysBetween(range.start, now, calendar), 1);
            for (Date marker : allMarkers(range.start, now, calendar)) {
                int d = std::clamp(daysBetween(range.start, marker, calendar), 0, total);
                raw.push_back(
                    static_cast<int>(roundHalfAway(static_cast<double>(last) * d / total)));
            }
            raw.push_back(last);
            break;
        }
    }
    return normalizedPositions(raw, sampleCount);
}

std::vector<std::optional<std::string>> ChartAxis::positionedLabels(const Range& range,
                                                                    int sampleCount, Date now,
                                                                    const std::string& locale,
                                                                    const Calendar& calendar) {
    if (sampleCount < 1) return {};
    std::vector<std::optional<std::string>> out(static_cast<size_t>(sampleCount));
    auto texts = labels(range, now, locale, calendar);
    auto places = positions(range, sampleCount, calendar, now);
    size_t pairs = std::min(texts.size(), places.size());
    for (size_t i = 0; i < pairs; ++i) {
        if (places[i] < 0 || places[i] >= sampleCount) {
            throw std::invalid_argument("a series of " + std::to_string(sampleCount) +
                                        " samples can't hold the axis labels of this range apart");
        }
        out[static_cast<size_t>(places[i])] = std::move(texts[i]);
    }
    return out;
}

}  // namespace corvane
