#pragma once
// A chart as the pages describe it to the toolkit: its kind, title, series with their names, the
// label of each point of the time axis that carries one, and the value axis. Plain values, so an
// unchanged chart is seen to be unchanged and is not drawn again.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

struct ChartSeries {
    std::string name;            // "Corvane resident memory"
    std::vector<double> values;  // one per point of the time axis, oldest first
    bool corvane = false;        // Corvane's own share, drawn in the accent colour
    friend bool operator==(const ChartSeries&, const ChartSeries&) = default;
};

struct ChartState {
    // Areas stack in series order (the first at the bottom); bars stand side by side.
    enum class Kind { area, stackedArea, bars };
    Kind kind = Kind::area;
    std::string title;
    std::string subtitle;
    std::vector<ChartSeries> series;
    // One entry per point; an absent entry has no label. Empty: no labels at all.
    std::vector<std::optional<std::string>> xLabels;
    double yMax = 1;                    // the top of the value axis, above every value
    std::string yLabelFormat;           // printf-style format of the value axis: "$%.2f", "%.0f%%"
    std::optional<int> highlightIndex;  // the point marked as now
    std::string summary;                // what a screen reader says of the chart
    friend bool operator==(const ChartState&, const ChartState&) = default;
};

// A round top for a value axis whose largest value is `largest`: 1, 2 or 5 times a power of ten,
// and `floor` when nothing is larger.
double niceAxisTop(double largest, double floor);
// The printf-style format of a value axis from 0 to `top` in four steps, with as many decimals as
// a step needs to read exactly (a step of 2.5 shows "2.5", not "2"), between `prefix` ("$") and
// `suffix` (" GB", "%%"); at least `fractionDigits` once a step has a fraction (cents: 2).
std::string valueAxisFormat(double top, std::string_view prefix, std::string_view suffix,
                            int fractionDigits = 1);

}  // namespace corvane
