#include "CorvaneApp/dashboard/OverviewPageState.h"

#include <algorithm>
#include <cmath>

#include "CorvaneApp/dashboard/EarningsPageState.h"
#include "CorvaneApp/dashboard/Formatting.h"

namespace corvane {
namespace {

constexpr std::size_t labelEveryMinutes = 15;

double largestStacked(const std::vector<ChartSeries>& series) {
    double top = 0;
    const std::size_t count = series.empty() ? 0 : series.front().values.size();
    for (std::size_t i = 0; i < count; ++i) {
        double stacked = 0;
        for (const auto& s : series) {
            if (i < s.values.size() && std::isfinite(s.values[i])) stacked += s.values[i];
        }
        top = std::max(top, stacked);
    }
    return top;
}

// `unit` follows the value in the axis's format ("%%" for a percent) and in the summary.
ChartState lastHourChart(std::string title, std::vector<ChartSeries> series, double floor,
                         const std::string& axisUnit, const std::string& unit) {
    ChartState chart;
    chart.kind = ChartState::Kind::stackedArea;
    chart.title = std::move(title);
    chart.series = std::move(series);
    chart.xLabels = lastHourLabels(chart.series.front().values.size());
    chart.yMax = niceAxisTop(largestStacked(chart.series), floor);
    chart.yLabelFormat = valueAxisFormat(chart.yMax, "", axisUnit);
    chart.summary = chart.title + ". ";
    if (chart.series.front().values.empty()) {
        chart.summary += "No samples yet.";
    } else {
        for (const auto& s : chart.series)
            chart.summary += s.name + " now " + fixed(s.values.back(), 1) + unit + ". ";
        chart.summary.pop_back();
    }
    return chart;
}

}  // namespace

std::vector<std::optional<std::string>> lastHourLabels(std::size_t count) {
    std::vector<std::optional<std::string>> labels(count);
    for (std::size_t age = 0; age < count; age += labelEveryMinutes) {
        labels[count - 1 - age] = age == 0 ? "now" : "−" + std::to_string(age) + " min";
    }
    return labels;
}

std::optional<DownloadCardState> downloadCardState(const AppModel& model) {
    const auto& progress = model.modelInstall().modelDownloadProgress();
    if (!progress || !progress->isVisible()) return std::nullopt;
    const std::string& name = progress->modelDisplayName;
    DownloadCardState card;
    if (const auto* failed = std::get_if<ModelDownloadProgress::Failed>(&progress->phase)) {
        card.failed = true;
        card.title = "Model download failed";
        card.body = "Corvane can't start earning on this computer until the " + name +
                    " weights download completes.";
        card.detail = failed->description;
        return card;
    }
    const auto& downloading = std::get<ModelDownloadProgress::Downloading>(progress->phase);
    card.title = "Downloading " + name;
    card.body = "Corvane is fetching " + name + " to run transcription jobs with.";
    card.fraction = progress->fractionComplete();
    card.detail = byteProgressSubtitle(downloading.bytes, downloading.total, card.fraction);
    return card;
}

OverviewPageState overviewPageState(const AppModel& model) {
    const EarningsState& earnings = model.earnings();
    const AccountState& account = model.account();
    OverviewPageState state;
    state.status = model.status();
    state.statusLabel = model.statusLabel();
    state.statusLine = model.statusSubtitle();
    state.statusExplanation = model.inlineStatusExplanation();
    if (state.statusExplanation == state.statusLine) state.statusExplanation.reset();

    state.today = formatUSD(earnings.todayEarnings());
    if (auto delta = earnings.deltaVsYesterday())
        state.todayDelta = formattedDelta(*delta) + " vs yesterday";
    state.pace = recentPaceLabel(earnings);
    const auto jobs = earnings.jobsCompletedToday();
    state.activity = std::to_string(jobs) + (jobs == 1 ? " job today" : " jobs today");
    if (earnings.activeMinutesToday())
        state.activity += " · " + formatActiveTime(earnings.activeMinutesToday()) + " active";

    state.available = formatUSD(account.availableBalance());
    state.held = formatUSD(account.heldBalance());
    state.week = formatUSD(earnings.weekEarnings());

    const auto& history = model.resources().history();
    const auto& machine = model.machine();
    state.memoryChart = lastHourChart(
        "Memory in use (GB) · last hour (per-minute avg)",
        {{"Corvane resident memory",
          ResourceHistory::ramGBHistory(history.ramCorvane, machine.totalRAM_GB), true},
         {"Machine memory remainder",
          ResourceHistory::ramGBHistory(history.ramOther, machine.totalRAM_GB), false}},
        1, " GB", " GB");
    state.cpuChart = lastHourChart(
        "Process CPU (100% = 1 core) · last hour (per-minute avg)",
        {{"Corvane process CPU",
          ResourceHistory::cpuProcessHistory(history.cpuCorvane, machine.totalCores), true},
         {"Other process CPU",
          ResourceHistory::cpuProcessHistory(history.cpuOther, machine.totalCores), false}},
        100, "%%", "%");
    state.download = downloadCardState(model);
    return state;
}

}  // namespace corvane
