#include "CorvaneApp/dashboard/EarningsRangeSelection.h"

namespace corvane {

std::string_view segmentLabel(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return "Today";
        case EarningsRange::week:
            return "7d";
        case EarningsRange::month:
            return "30d";
        case EarningsRange::quarter:
            return "90d";
        case EarningsRange::all:
            return "All";
    }
    return "30d";
}

EarningsRange fromSegmentLabel(std::string_view label) {
    for (auto range : allEarningsRanges) {
        if (segmentLabel(range) == label) return range;
    }
    return EarningsRange::month;
}

std::string_view longName(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return "Today so far";
        case EarningsRange::week:
            return "Last 7 days";
        case EarningsRange::month:
            return "Last 30 days";
        case EarningsRange::quarter:
            return "Last 90 days";
        case EarningsRange::all:
            return "All time";
    }
    return "Last 30 days";
}

int zeroSeriesLength(EarningsRange range) {
    switch (range) {
        case EarningsRange::day:
            return 24;
        case EarningsRange::week:
            return 7;
        case EarningsRange::quarter:
            return 90;
        case EarningsRange::month:
        case EarningsRange::all:
            return 30;
    }
    return 30;
}

ChartAxis::Range chartAxisRange(EarningsRange range, ChartAxis::Date start) {
    switch (range) {
        case EarningsRange::day:
            return ChartAxis::Range::hours24();
        case EarningsRange::week:
            return ChartAxis::Range::days7();
        case EarningsRange::month:
            return ChartAxis::Range::days30();
        case EarningsRange::quarter:
            return ChartAxis::Range::days90();
        case EarningsRange::all:
            return ChartAxis::Range::all(start);
    }
    return ChartAxis::Range::days30();
}

EarningsRange EarningsRangeSelection::inForce() const {
    const auto& earnings = model_.earnings();
    if (asked_ && earnings.earningsRangeLoading()) return *asked_;
    return earnings.earningsVisibleRange();
}

bool EarningsRangeSelection::write(std::string_view label) {
    const EarningsRange range = fromSegmentLabel(label);
    const std::string stored(segmentLabel(range));
    if (defaults_.string(defaultsKey) != stored) defaults_.setString(defaultsKey, stored);
    if (range == inForce()) return false;
    asked_ = range;
    model_.selectEarningsRange(range);
    return true;
}

bool EarningsRangeSelection::restore() {
    const auto stored = defaults_.string(defaultsKey);
    return stored && write(*stored);
}

}  // namespace corvane
