#pragma once
// The earnings range as the owner picks it: the segment labels ("Today", "7d", "30d", "90d",
// "All"), their long names, the chart axis of each range, and the selection, remembered in
// "cvn.earnings.range", that starts one refresh per change and none for the range already in
// force.

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/dashboard/ChartAxis.h"

namespace corvane {

inline constexpr std::array allEarningsRanges{EarningsRange::day, EarningsRange::week,
                                              EarningsRange::month, EarningsRange::quarter,
                                              EarningsRange::all};

// "Today", "7d", "30d", "90d", "All".
std::string_view segmentLabel(EarningsRange range);
// The range of a segment label; any other text is the month.
EarningsRange fromSegmentLabel(std::string_view label);
// "Today so far", "Last 7 days", "Last 30 days", "Last 90 days", "All time".
std::string_view longName(EarningsRange range);
// Points of the zero series a range shows before anything is earned: hours for the day, days for
// the others (the whole account's range as a month).
int zeroSeriesLength(EarningsRange range);
// The time axis of the range's chart; `all` starts at the account's first day.
ChartAxis::Range chartAxisRange(EarningsRange range, ChartAxis::Date start);

class EarningsRangeSelection {
  public:
    static constexpr std::string_view defaultsKey = "cvn.earnings.range";

    EarningsRangeSelection(AppModel& model, UserDefaults& defaults)
        : model_(model), defaults_(defaults) {}

    // The range in force: the one last asked while its answer is on its way, else the model's.
    EarningsRange inForce() const;
    std::string read() const { return std::string(segmentLabel(inForce())); }
    // Selects and remembers the range of `label`. A range other than the one in force starts one
    // refresh (true); the range in force again starts none.
    bool write(std::string_view label);
    // Brings the remembered range into force, when one is stored: true when that started a
    // refresh.
    bool restore();

  private:
    AppModel& model_;
    UserDefaults& defaults_;
    std::optional<EarningsRange> asked_;
};

}  // namespace corvane
