#pragma once
// The earnings page's words and series that need no calendar library, shared with
// `corvane earnings`: the pace, the notes that tell actuals from estimates, the chart's subtitle,
// the month's projection, a job's audio length, and the points the chart draws and the export
// writes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/EarningsState.h"

namespace corvane {

// "waiting for last 15 min pace", "$1.25/hr last 15 min pace", "$1.25/hr today completed-work
// pace".
std::string recentPaceLabel(const EarningsState& earnings);
// What the page's figures are: actuals, and which of them project forward.
std::string projectionNote(EarningsRange visible);
// "About $0.42 of recent completed work from the last 15 min may not appear here yet."; absent
// without such work.
std::optional<std::string> recentUnpaidLagNote(std::optional<double> recentUnpaidUSD,
                                               std::int64_t windowMinutes);
// "Last 7 days gross actuals, after Corvane's 50% routing fee" (today's reads "so far").
std::string areaChartSubtitle(EarningsRange range);
// "projected total: $142 this month"
std::string monthProjectionLine(double monthProjectionUSD);
// "5:07 audio": whole seconds as minutes and seconds.
std::string audioSizeLabel(double durationSeconds);
// The area chart's points: the day's 24 hours, or the range's days; zeros of the range's length
// before anything is earned.
std::vector<double> earningsChartSeries(EarningsRange range, const EarningsRangeSnapshot& snapshot);
// The days the export writes (the last is today); zeros of the range's days when there are none.
std::vector<double> earningsExportSeries(EarningsRange range,
                                         const EarningsRangeSnapshot& snapshot);

}  // namespace corvane
