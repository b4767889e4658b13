#pragma once
// The earnings page as words and numbers: the range control, today and the range's totals, the
// pace and the notes that tell actuals from estimates, the area chart with its time axis, the hour
// bars, the month's projection, and the week's best jobs. Dates follow the owner's locale and the
// process's time zone.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/dashboard/ChartState.h"
#include "CorvaneApp/dashboard/EarningsTexts.h"

namespace corvane {

// A coordinator timestamp in the owner's locale ("Jun 18, 2:05 PM"); one that does not parse as
// it stands, and "—" when there is none.
std::string formattedJobDate(const std::optional<std::string>& completedAt,
                             const std::string& locale);
struct RecentJobRow {
    std::string title;  // the client's name, else the job's id
    std::string jobID;
    std::string audioSize;  // "5:07 audio"
    std::string earnings;   // "$0.71"
    std::string completed;  // "Jun 18, 2:05 PM"
    friend bool operator==(const RecentJobRow&, const RecentJobRow&) = default;
};

struct EarningsPageState {
    std::vector<std::string> rangeLabels;  // "Today", "7d", "30d", "90d", "All"
    int selectedRange = 2;                 // the range in force, as an index of the labels
    std::string loadingNote;  // "Loading earnings for the last 7 days…" while it is awaited

    std::string todayTitle = "Today";
    std::string today;       // "$2.06"
    std::string todayDelta;  // "+$0.25 vs yesterday"; empty when unknown
    std::string rangeTitle;  // "Last 30 days"
    std::string rangeTotal;  // "$128.40"
    std::string rangeCaption;
    std::string paceTitle = "Recent pace";
    std::string pace;
    std::string paceCaption;
    std::string projectionNote;
    std::optional<std::string> unpaidLagNote;

    ChartState areaChart;
    ChartState hourBars;

    std::string monthTitle = "This month";
    std::string monthToDate;      // "$48.10 so far"
    std::string monthProjection;  // "projected total: $142 this month"; empty when unknown
    double monthFraction = 0;     // the month so far over its projection, 0 to 1

    std::string jobsTitle = "Recent jobs";
    std::string jobsCaption = "model · audio size · earnings";
    std::vector<RecentJobRow> jobs;
    std::string jobsEmpty;  // shown without jobs

    std::string exportTitle = "Export CSV";
    friend bool operator==(const EarningsPageState&, const EarningsPageState&) = default;
};

// `inForce` is the range the owner chose (it may still be loading); the figures are those of the
// range the model shows. `locale` is an ICU name such as "en_US".
EarningsPageState earningsPageState(const AppModel& model, EarningsRange inForce,
                                    const std::string& locale);

// "corvane-earnings-20260618.csv", today in the model's calendar.
std::string earningsExportFileName(const AppModel& model);
// What the export button tells after a save: where it went, or why it could not be written (the
// old file, if any, is then untouched).
struct ExportOutcome {
    std::string text;
    bool failed = false;
    friend bool operator==(const ExportOutcome&, const ExportOutcome&) = default;
};
// Writes the chart's days (the last is today) to `path` as CSV, atomically.
ExportOutcome exportEarningsCSV(const AppModel& model, const std::filesystem::path& path);

}  // namespace corvane
