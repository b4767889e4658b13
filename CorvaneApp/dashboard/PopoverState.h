#pragma once
// The tray popover as words and numbers: the status block, the resource bars and their note, the
// model download row, the status's actions and the footer; or the welcome while the computer is
// not enrolled.

#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/app/AppModel.h"
#include "CorvaneApp/dashboard/ShellState.h"

namespace corvane {

struct ResourceBar {
    std::string label;     // "Corvane CPU"
    std::string value;     // "87%" or "1.4 GB"
    double fraction = 0;   // of the bar's full width, 0 to 1
    bool corvane = false;  // Corvane's own use, drawn in the accent colour
    friend bool operator==(const ResourceBar&, const ResourceBar&) = default;
};

struct DownloadRowState {
    std::string title;               // "Whisper large-v3 turbo"
    std::string subtitle;            // "41% · 655 MB / 1.6 GB", or the failure's text
    std::optional<double> fraction;  // absent: an indefinite bar, or none once failed
    bool failed = false;
    friend bool operator==(const DownloadRowState&, const DownloadRowState&) = default;
};
// The row of the model download on its way, or that failed; absent otherwise.
std::optional<DownloadRowState> downloadRowState(const AppModel& model);

struct PopoverState {
    std::optional<PreOnboardingState> preOnboarding;  // set: nothing else is shown
    WorkerStatus status = WorkerStatus::idle;
    std::string statusLabel;
    std::string statusLine;
    std::string todayEarnings;  // "$3.46 today"
    std::vector<ResourceBar> cpuBars;
    std::vector<ResourceBar> ramBars;
    std::string barsNote;
    std::optional<DownloadRowState> download;
    std::vector<StatusAction> actions;
    std::vector<FooterAction> footer;
    friend bool operator==(const PopoverState&, const PopoverState&) = default;
};
PopoverState popoverState(const AppModel& model);

}  // namespace corvane
