#pragma once
// The overview page as words and numbers: the hero with today's earnings and the status, the
// balance card, the memory and CPU charts of the last hour, and the card of a model download on
// its way or failed.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/dashboard/ChartState.h"

namespace corvane {

struct DownloadCardState {
    std::string title;   // "Downloading Whisper large-v3 turbo", "Model download failed"
    std::string body;    // what the download is for, or what its failure stops
    std::string detail;  // "41% · 655 MB / 1.6 GB", or the failure's own words
    std::optional<double> fraction;  // absent: an indefinite bar, or none once failed
    bool failed = false;
    std::string retryTitle = "Retry download";
    friend bool operator==(const DownloadCardState&, const DownloadCardState&) = default;
};
std::optional<DownloadCardState> downloadCardState(const AppModel& model);

// "−45 min", "−30 min", "−15 min", "now" under a series of one point a minute, the newest last.
std::vector<std::optional<std::string>> lastHourLabels(std::size_t count);

struct OverviewPageState {
    WorkerStatus status = WorkerStatus::idle;
    std::string statusLabel;
    std::string statusLine;
    std::optional<std::string> statusExplanation;  // absent when the line says it already

    std::string todayTitle = "Earned today";
    std::string today;       // "$2.06"
    std::string todayDelta;  // "+$0.25 vs yesterday"; empty when unknown
    std::string pace;        // "$0.42/hr last 15 min pace"
    std::string activity;    // "14 jobs today · 5 hr 12 min active"

    std::string availableTitle = "Available";
    std::string available;
    std::string heldTitle = "Held";
    std::string held;
    std::string weekTitle = "Last 7 days of earnings";
    std::string week;

    ChartState memoryChart;
    ChartState cpuChart;
    std::optional<DownloadCardState> download;
    friend bool operator==(const OverviewPageState&, const OverviewPageState&) = default;
};
OverviewPageState overviewPageState(const AppModel& model);

}  // namespace corvane
