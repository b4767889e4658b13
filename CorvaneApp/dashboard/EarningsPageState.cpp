#include "CorvaneApp/dashboard/EarningsPageState.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <stdexcept>
#include <system_error>

#include "CorvaneApp/app/AppModelDateParser.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/dashboard/CSVExporter.h"
#include "CorvaneApp/dashboard/ChartAxis.h"
#include "CorvaneApp/dashboard/EarningsRangeSelection.h"
#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

constexpr double secondsPerDay = 86400;

std::string lowercased(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return out;
}

bool isBlank(const std::string& text) {
    return text.find_first_not_of(" \t\r\n") == std::string::npos;
}

// The labels of the time axis at their points, or none when the series is shorter than the
// range's labels: they could not stand apart, and a short week would name days it doesn't show.
std::vector<std::optional<std::string>> axisLabels(const ChartAxis::Range& range, int count,
                                                   Date now, const std::string& locale,
                                                   const ChartAxis::Calendar& calendar) {
    if (count < 1 || count < int(ChartAxis::labels(range, now, locale, calendar).size())) return {};
    try {
        return ChartAxis::positionedLabels(range, count, now, locale, calendar);
    } catch (const std::invalid_argument&) {
        return {};
    }
}

double largest(const std::vector<double>& values) {
    double top = 0;
    for (double value : values) {
        if (std::isfinite(value)) top = std::max(top, value);
    }
    return top;
}

double sum(const std::vector<double>& values) {
    return std::accumulate(values.begin(), values.end(), 0.0, [](double total, double value) {
        return std::isfinite(value) ? total + value : total;
    });
}

// The process's own zone, named: the calendar library keeps the zone it found first, while the
// owner's zone is read afresh.
ChartAxis::Calendar ownersCalendar() {
    return {currentTimeZoneIdentifier()};
}

std::string formattedDate(const std::optional<std::string>& completedAt, const std::string& locale,
                          const ChartAxis::Calendar& calendar) {
    if (!completedAt || isBlank(*completedAt)) return "—";
    const auto date = AppModelDateParser::parseCoordinatorTimestamp(*completedAt);
    if (!date) return *completedAt;
    const std::string text = ChartAxis::format(*date, "MMMdjmm", locale, calendar);
    return text.empty() ? *completedAt : text;
}

}  // namespace

std::string formattedJobDate(const std::optional<std::string>& completedAt,
                             const std::string& locale) {
    return formattedDate(completedAt, locale, ownersCalendar());
}

EarningsPageState earningsPageState(const AppModel& model, EarningsRange inForce,
                                    const std::string& locale) {
    const EarningsState& earnings = model.earnings();
    const EarningsRange visible = earnings.earningsVisibleRange();
    const EarningsRangeSnapshot snapshot = earnings.currentEarningsSnapshot();
    const Date now = model.currentDate();
    const ChartAxis::Calendar calendar = ownersCalendar();

    EarningsPageState state;
    for (auto range : allEarningsRanges) state.rangeLabels.emplace_back(segmentLabel(range));
    state.selectedRange =
        int(std::find(allEarningsRanges.begin(), allEarningsRanges.end(), inForce) -
            allEarningsRanges.begin());
    if (earnings.earningsRangeLoading()) {
        state.loadingNote =
            "Loading earnings for " +
            (inForce == EarningsRange::day   ? std::string("today")
             : inForce == EarningsRange::all ? std::string("all time")
                                             : "the " + lowercased(longName(inForce))) +
            "…";
    }

    state.today = formatUSD(earnings.todayEarnings());
    if (auto delta = earnings.deltaVsYesterday())
        state.todayDelta = formattedDelta(*delta) + " vs yesterday";
    state.rangeTitle = std::string(longName(visible));
    const auto days = earningsExportSeries(visible, snapshot);
    const double total = sum(days);
    state.rangeTotal = formatUSD(total);
    state.rangeCaption = visible == EarningsRange::day
                             ? std::string("Gross actuals so far today")
                             : "Average " + formatUSD(total / double(days.size())) +
                                   " a day over " + std::to_string(days.size()) +
                                   (days.size() == 1 ? " day" : " days");
    state.pace = recentPaceLabel(earnings);
    state.paceCaption = earnings.hourlyEstimateCaption();
    state.projectionNote = projectionNote(visible);
    state.unpaidLagNote = recentUnpaidLagNote(model.estimatedRecentUnpaidCompletedWork(),
                                              earnings.hourlyEstimateWindowMinutes());

    ChartState& area = state.areaChart;
    area.kind = ChartState::Kind::area;
    area.title = "Gross earnings";
    area.subtitle = areaChartSubtitle(visible);
    area.series = {{"Gross earnings", earningsChartSeries(visible, snapshot), true}};
    const int count = int(area.series.front().values.size());
    const Date start = snapshot.startDate.value_or(addSeconds(now, -(count - 1) * secondsPerDay));
    area.xLabels = axisLabels(chartAxisRange(visible, start), count, now, locale, calendar);
    area.yMax = niceAxisTop(largest(area.series.front().values), 1);
    area.yLabelFormat = valueAxisFormat(area.yMax, "$", "", 2);
    int todayIndex = earnings.earningsChartTodayIndex(now);
    if (visible != EarningsRange::day && snapshot.daily.empty()) todayIndex = count - 1;
    area.highlightIndex = std::clamp(todayIndex, 0, std::max(count - 1, 0));
    area.summary = area.subtitle + ": " + formatUSD(total) + ".";

    ChartState& bars = state.hourBars;
    bars.kind = ChartState::Kind::bars;
    bars.title = "By hour of day";
    bars.subtitle = std::string(longName(visible)) + ", by the hour the work was done";
    bars.series = {{"Earnings by hour", EarningsState::normalizeHourly(snapshot.hourly), true}};
    bars.xLabels = axisLabels(ChartAxis::Range::hours24(), 24, now, locale, calendar);
    bars.yMax = niceAxisTop(largest(bars.series.front().values), 1);
    bars.yLabelFormat = valueAxisFormat(bars.yMax, "$", "", 2);
    const auto& hours = bars.series.front().values;
    const auto best = std::max_element(hours.begin(), hours.end());
    bars.summary = best == hours.end() || *best <= 0
                       ? bars.subtitle + ": nothing earned yet."
                       : bars.subtitle + ": most at " + std::to_string(best - hours.begin()) +
                             ":00, " + formatUSD(*best) + ".";

    const auto month = earnings.monthEarnings();
    const auto projection = earnings.monthProjection();
    state.monthToDate = formatUSD(month) + " so far";
    if (projection) state.monthProjection = monthProjectionLine(*projection);
    if (month && projection && *projection > 0)
        state.monthFraction = std::clamp(*month / *projection, 0.0, 1.0);

    for (const auto& job : model.account().topJobs()) {
        RecentJobRow row;
        row.title = job.clientDisplayName && !isBlank(*job.clientDisplayName)
                        ? *job.clientDisplayName
                        : job.jobId;
        row.jobID = job.jobId;
        row.audioSize = audioSizeLabel(job.durationSeconds);
        row.earnings = formatUSD(job.amountUSD);
        row.completed = formattedDate(job.completedAt, locale, calendar);
        state.jobs.push_back(std::move(row));
    }
    state.jobsEmpty = "No jobs in the selected window.";
    return state;
}

std::string earningsExportFileName(const AppModel& model) {
    return CSVExporter::suggestedFileName("earnings", model.currentDate());
}

ExportOutcome exportEarningsCSV(const AppModel& model, const std::filesystem::path& path) {
    const auto& earnings = model.earnings();
    const auto series =
        earningsExportSeries(earnings.earningsVisibleRange(), earnings.currentEarningsSnapshot());
    const std::string name = path.filename().string();
    try {
        CSVExporter::writeEarningsDoubles(series, model.currentDate(), path);
    } catch (const std::system_error& error) {
        return {"Couldn't save " + name + ": " + error.code().message() + ".", true};
    } catch (const std::exception& error) {
        return {"Couldn't save " + name + ": " + error.what(), true};
    }
    return {"Saved " + std::to_string(series.size()) + (series.size() == 1 ? " day" : " days") +
                " to " + path.string() + ".",
            false};
}

}  // namespace corvane
