#include "CorvaneApp/dashboard/EarningsTexts.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return out;
}

}  // namespace

std::string recentPaceLabel(const EarningsState& earnings) {
    const std::string minutes = std::to_string(earnings.hourlyEstimateWindowMinutes());
    const auto estimate = earnings.hourlyEstimate();
    if (!estimate) return "waiting for last " + minutes + " min pace";
    if (earnings.hourlyEstimateUsesRecentWindow())
        return "$" + fixed(*estimate, 2) + "/hr last " + minutes + " min pace";
    return "$" + fixed(*estimate, 2) + "/hr today completed-work pace";
}

std::string projectionNote(EarningsRange visible) {
    if (visible == EarningsRange::day)
        return "Actuals so far today. Projected totals on this page estimate future earnings from "
               "your current pace.";
    return "Actuals for " + lowercased(longName(visible)) +
           ". Only today's totals project forward — all other figures are confirmed.";
}

std::optional<std::string> recentUnpaidLagNote(std::optional<double> recentUnpaidUSD,
                                               std::int64_t windowMinutes) {
    if (!recentUnpaidUSD) return std::nullopt;
    return "About $" + fixed(*recentUnpaidUSD, 2) + " of recent completed work from the last " +
           std::to_string(windowMinutes) + " min may not appear here yet.";
}

std::string areaChartSubtitle(EarningsRange range) {
    const std::string name(longName(range));
    if (name == "Today so far")
        return name + " gross actuals so far, after Corvane's 50% routing fee";
    return name + " gross actuals, after Corvane's 50% routing fee";
}

std::string monthProjectionLine(double monthProjectionUSD) {
    return "projected total: $" + fixed(monthProjectionUSD, 0) + " this month";
}

std::string audioSizeLabel(double durationSeconds) {
    const long long seconds =
        std::isfinite(durationSeconds) ? std::max(0LL, std::llround(durationSeconds)) : 0;
    const long long rest = seconds % 60;
    return std::to_string(seconds / 60) + ":" + (rest < 10 ? "0" : "") + std::to_string(rest) +
           " audio";
}

std::vector<double> earningsChartSeries(EarningsRange range,
                                        const EarningsRangeSnapshot& snapshot) {
    if (snapshot.daily.empty()) return std::vector<double>(std::size_t(zeroSeriesLength(range)), 0);
    // The day is drawn by the hour: its one daily amount is no curve, and its axis counts hours.
    if (range == EarningsRange::day) return EarningsState::normalizeHourly(snapshot.hourly);
    return snapshot.daily;
}

std::vector<double> earningsExportSeries(EarningsRange range,
                                         const EarningsRangeSnapshot& snapshot) {
    if (!snapshot.daily.empty()) return snapshot.daily;
    return std::vector<double>(std::size_t(earningsRangeDays(range).value_or(30)), 0);
}

}  // namespace corvane
