#include "CorvaneApp/ui/widgets/ChartView.h"

#include <QAreaSeries>
#include <QBarSeries>
#include <QBarSet>
#include <QCategoryAxis>
#include <QChart>
#include <QChartView>
#include <QEvent>
#include <QGraphicsLayout>
#include <QLabel>
#include <QLegend>
#include <QLegendMarker>
#include <QLineSeries>
#include <QScatterSeries>
#include <QVBoxLayout>
#include <QValueAxis>

#include <algorithm>
#include <cmath>
#include <memory>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

QColor seriesColor(const ChartSeries& series, const QPalette& palette) {
    return series.corvane ? theme::corvaneColor() : theme::otherColor(palette);
}

QColor withAlpha(QColor color, int alpha) {
    color.setAlpha(alpha);
    return color;
}

double finite(double value) {
    return std::isfinite(value) ? value : 0.0;
}

// The time axis: a label at each point that carries one, the grid at the same points.
QCategoryAxis* timeAxis(const ChartState& state, int count, const QPalette& palette,
                        const QFont& font) {
    auto* axis = new QCategoryAxis;
    axis->setLabelsPosition(QCategoryAxis::AxisLabelsPositionOnValue);
    const bool bars = state.kind == ChartState::Kind::bars;
    // Bars stand on whole numbers and need half a step of room on each side.
    const double first = bars ? -0.5 : 0.0;
    const double last = bars ? count - 0.5 : std::max(count - 1, 1);
    axis->setRange(first, last);
    axis->setStartValue(first);
    for (std::size_t i = 0; i < state.xLabels.size(); ++i) {
        if (state.xLabels[i]) axis->append(qt(*state.xLabels[i]), double(i));
    }
    axis->setLabelsColor(theme::mutedText(palette));
    axis->setLabelsFont(font);
    axis->setGridLineColor(palette.color(QPalette::Midlight));
    axis->setLinePenColor(palette.color(QPalette::Mid));
    axis->setGridLineVisible(false);
    return axis;
}

QValueAxis* valueAxis(const ChartState& state, const QPalette& palette, const QFont& font) {
    auto* axis = new QValueAxis;
    axis->setRange(0, state.yMax > 0 ? state.yMax : 1);
    axis->setTickCount(5);  // the top is four round steps
    axis->setLabelFormat(qt(state.yLabelFormat.empty() ? "%.0f" : state.yLabelFormat));
    axis->setLabelsColor(theme::mutedText(palette));
    axis->setLabelsFont(font);
    axis->setGridLineColor(palette.color(QPalette::Midlight));
    axis->setLinePenColor(palette.color(QPalette::Mid));
    axis->setLineVisible(false);
    return axis;
}

}  // namespace

ChartView::ChartView(QWidget* parent)
    : QWidget(parent),
      title_(new QLabel(this)),
      subtitle_(new QLabel(this)),
      view_(new QChartView(this)) {
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(2);
    theme::setRole(*title_, "heading");
    title_->setWordWrap(true);
    theme::setRole(*subtitle_, "muted");
    subtitle_->setWordWrap(true);
    column->addWidget(title_);
    column->addWidget(subtitle_);
    view_->setRenderHint(QPainter::Antialiasing);
    view_->setFrameShape(QFrame::NoFrame);
    view_->setStyleSheet(QStringLiteral("background: transparent"));
    view_->setFocusPolicy(Qt::NoFocus);  // nothing to operate in it
    view_->setMinimumHeight(140);
    column->addWidget(view_, 1);
}

ChartView::~ChartView() = default;

void ChartView::render(const ChartState& state) {
    setText(*title_, state.title);
    setText(*subtitle_, state.subtitle);
    setVisibleIfChanged(*subtitle_, !state.subtitle.empty());
    if (shown_ == state) return;
    rebuild(state);
    shown_ = state;
}

void ChartView::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::PaletteChange && shown_) rebuild(*shown_);
}

void ChartView::rebuild(const ChartState& state) {
    ++rebuilds_;
    const QPalette& colors = palette();
    QFont small = font();
    small.setPointSizeF(small.pointSizeF() * 0.85);

    auto chart = std::make_unique<QChart>();
    chart->setAnimationOptions(QChart::NoAnimation);
    chart->setBackgroundVisible(false);
    chart->setPlotAreaBackgroundVisible(false);
    // Room on the right for half of the last label ("Today", "now"), which stands on the last
    // point.
    chart->setMargins(QMargins(0, 4, 18, 0));
    chart->layout()->setContentsMargins(0, 0, 0, 0);
    chart->setBackgroundRoundness(0);

    const int count = state.series.empty() ? 0 : int(state.series.front().values.size());
    auto* xAxis = timeAxis(state, count, colors, small);
    auto* yAxis = valueAxis(state, colors, small);
    chart->addAxis(xAxis, Qt::AlignBottom);
    chart->addAxis(yAxis, Qt::AlignLeft);

    if (state.kind == ChartState::Kind::bars) {
        auto* bars = new QBarSeries;
        bars->setBarWidth(0.7);
        for (const auto& s : state.series) {
            auto* set = new QBarSet(qt(s.name));
            for (double value : s.values) set->append(finite(value));
            set->setColor(seriesColor(s, colors));
            set->setBorderColor(seriesColor(s, colors));
            bars->append(set);
        }
        chart->addSeries(bars);
        bars->attachAxis(xAxis);
        bars->attachAxis(yAxis);
    } else {
        std::vector<double> base(std::size_t(count), 0.0);
        QLineSeries* previous = nullptr;
        for (const auto& s : state.series) {
            // The chart owns the lines too, whichever way the area treats them.
            auto* upper = new QLineSeries(chart.get());
            for (int i = 0; i < count; ++i) {
                const double value = i < int(s.values.size()) ? finite(s.values[i]) : 0.0;
                if (state.kind == ChartState::Kind::stackedArea) base[i] += value;
                upper->append(i, state.kind == ChartState::Kind::stackedArea ? base[i] : value);
            }
            auto* area = new QAreaSeries(upper, previous);
            area->setName(qt(s.name));
            const QColor color = seriesColor(s, colors);
            area->setColor(withAlpha(color, s.corvane ? 110 : 90));
            area->setBorderColor(color);
            QPen pen(color);
            pen.setWidthF(1.6);
            area->setPen(pen);
            chart->addSeries(area);
            area->attachAxis(xAxis);
            area->attachAxis(yAxis);
            if (state.kind == ChartState::Kind::stackedArea) {
                // The next area stands on this one's line.
                previous = new QLineSeries(chart.get());
                previous->append(upper->points());
            }
        }
    }

    if (state.highlightIndex && !state.series.empty() && *state.highlightIndex < count) {
        const int at = *state.highlightIndex;
        double value = 0;
        for (const auto& s : state.series) {
            if (at < int(s.values.size())) value += finite(s.values[at]);
            if (state.kind != ChartState::Kind::stackedArea) break;
        }
        auto* now = new QScatterSeries;
        now->setMarkerSize(8);
        now->setColor(theme::corvaneColor());
        now->setBorderColor(colors.color(QPalette::Base));
        now->append(at, value);
        chart->addSeries(now);
        now->attachAxis(xAxis);
        now->attachAxis(yAxis);
    }

    QLegend* legend = chart->legend();
    legend->setVisible(state.series.size() > 1);
    legend->setAlignment(Qt::AlignBottom);
    legend->setLabelColor(colors.color(QPalette::WindowText));
    legend->setFont(small);
    for (QLegendMarker* marker : legend->markers()) {
        if (marker->type() == QLegendMarker::LegendMarkerTypeXY) marker->setVisible(false);
    }

    view_->setAccessibleName(qt(state.title));
    view_->setAccessibleDescription(qt(state.summary));
    std::unique_ptr<QChart> old(view_->chart());
    view_->setChart(chart.release());
    // The view hands back the chart it showed; a view starts with an empty chart of its own.
}

}  // namespace corvane
