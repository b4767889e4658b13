#include "CorvaneApp/ui/widgets/ScheduleHeatmap.h"

#include <QAbstractButton>
#include <QFocusEvent>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>

#include <algorithm>

#include "CorvaneApp/ui/style/Theme.h"
#include "CorvaneApp/ui/widgets/Text.h"

namespace corvane {
namespace {

using CellState = HeatmapState::CellState;

// One hour. The heatmap takes its pointer events (a drag crosses cells) and its keys.
class HeatmapCellButton final : public QAbstractButton {
  public:
    HeatmapCellButton(ScheduleHeatmap& heatmap, HeatmapCell at)
        : QAbstractButton(&heatmap), heatmap_(heatmap) {
        setObjectName(QStringLiteral("heatmapCell_%1_%2").arg(at.day).arg(at.hour));
        setCheckable(true);  // checked: Corvane may run in this hour
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_TransparentForMouseEvents);
        setFixedSize(ScheduleHeatmap::cellSize, ScheduleHeatmap::cellSize);
    }
    void setState(CellState state) {
        if (state_ == state) return;
        state_ = state;
        update();
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
        ScheduleHeatmap::paintCell(painter, box, state_, palette());
        if (hasFocus()) {
            painter.setPen(QPen(palette().color(QPalette::WindowText), 1.5));
            painter.setBrush(Qt::NoBrush);
            painter.drawRoundedRect(box, 3, 3);
        }
    }
    void keyPressEvent(QKeyEvent* event) override { heatmap_.cellKeyPressed(*event); }
    void keyReleaseEvent(QKeyEvent* event) override { heatmap_.cellKeyReleased(*event); }

  private:
    ScheduleHeatmap& heatmap_;
    CellState state_ = CellState::allowed;
};

}  // namespace

ScheduleHeatmap::ScheduleHeatmap(Actions actions, QWidget* parent)
    : QWidget(parent), actions_(std::move(actions)) {
    setObjectName(QStringLiteral("scheduleHeatmap"));
    setAccessibleName(QStringLiteral("Weekly schedule"));
    setAccessibleDescription(
        QStringLiteral("Arrows move, Space toggles an hour, Shift with arrows paints."));
    auto* grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 0);
    grid->setHorizontalSpacing(cellGap);
    grid->setVerticalSpacing(cellGap);
    for (int day = 0; day < 7; ++day) {
        auto* label = new QLabel(this);
        theme::setRole(*label, "muted");
        grid->addWidget(label, day, 0);
        dayLabels_[std::size_t(day)] = label;
        for (int hour = 0; hour < 24; ++hour) {
            auto* cell = new HeatmapCellButton(*this, {day, hour});
            cell->installEventFilter(this);
            grid->addWidget(cell, day, hour + 1);
            cells_[std::size_t(day)][std::size_t(hour)] = cell;
        }
    }
    grid->setColumnMinimumWidth(0, 34);
    grid->setColumnStretch(25, 1);
    cells_[0][0]->setFocusPolicy(Qt::StrongFocus);
}

QAbstractButton& ScheduleHeatmap::cell(HeatmapCell at) {
    return *cells_.at(std::size_t(at.day)).at(std::size_t(at.hour));
}

void ScheduleHeatmap::paintCell(QPainter& painter, const QRectF& box, CellState state,
                                const QPalette& palette) {
    painter.setPen(Qt::NoPen);
    painter.setBrush(colorFor(state, palette));
    painter.drawRoundedRect(box, 3, 3);
    if (state == CellState::quietSuggest) {
        // A suggestion reads as an outline in the colour it would take.
        painter.setPen(QPen(colorFor(CellState::allowed, palette), 1.6));
        painter.setBrush(Qt::NoBrush);
        painter.drawRoundedRect(box.adjusted(1, 1, -1, -1), 2.5, 2.5);
    }
}

QColor ScheduleHeatmap::colorFor(CellState state, const QPalette& palette) {
    const bool dark = theme::isDark(palette);
    switch (state) {
        case CellState::allowed:
            return dark ? QColor(0x2f, 0x9e, 0x5c) : QColor(0x5c, 0xc4, 0x85);
        case CellState::allowedBusy:
            return dark ? QColor(0xd0, 0x8a, 0x1a) : QColor(0xe8, 0xa3, 0x2c);
        case CellState::quietSuggest:
        case CellState::blocked:
            return dark ? QColor(0x44, 0x47, 0x4d) : QColor(0xd6, 0xd2, 0xca);
    }
    return palette.color(QPalette::Mid);
}

void ScheduleHeatmap::render(const HeatmapState& state) {
    if (shown_ == state) return;
    for (int day = 0; day < 7; ++day) {
        setText(*dayLabels_[std::size_t(day)], state.dayLabels[std::size_t(day)]);
        for (int hour = 0; hour < 24; ++hour) {
            const auto& next = state.cells[std::size_t(day)][std::size_t(hour)];
            if (shown_ && shown_->cells[std::size_t(day)][std::size_t(hour)] == next) continue;
            auto* button =
                static_cast<HeatmapCellButton*>(cells_[std::size_t(day)][std::size_t(hour)]);
            button->setState(next.state);
            button->setChecked(next.state == CellState::allowed ||
                               next.state == CellState::allowedBusy);
            button->setAccessibleName(qt(next.accessibleName));
        }
    }
    if (!shown_ || shown_->hourMarks != state.hourMarks) {
        auto* grid = static_cast<QGridLayout*>(layout());
        for (auto* label : hourLabels_) label->deleteLater();
        hourLabels_.clear();
        for (std::size_t i = 0; i < state.hourMarks.size(); ++i) {
            const auto& [hour, text] = state.hourMarks[i];
            const int next = i + 1 < state.hourMarks.size() ? state.hourMarks[i + 1].first : 24;
            auto* label = new QLabel(qt(text), this);
            theme::setRole(*label, "muted");
            grid->addWidget(label, 7, hour + 1, 1, next - hour, Qt::AlignLeft);
            hourLabels_.push_back(label);
        }
    }
    shown_ = state;
}

std::optional<HeatmapCell> ScheduleHeatmap::cellAt(const QPoint& point) const {
    for (int day = 0; day < 7; ++day) {
        for (int hour = 0; hour < 24; ++hour) {
            // A point in the gap counts for the cell to its left or above, so a drag along a row
            // never skips one.
            const QRect area = cells_[std::size_t(day)][std::size_t(hour)]->geometry().adjusted(
                0, 0, cellGap, cellGap);
            if (area.contains(point)) return HeatmapCell{day, hour};
        }
    }
    return std::nullopt;
}

void ScheduleHeatmap::moveCurrent(HeatmapCell to) {
    to.day = std::clamp(to.day, 0, 6);
    to.hour = std::clamp(to.hour, 0, 23);
    if (!(to == current_)) {
        cell(current_).setFocusPolicy(Qt::NoFocus);
        current_ = to;
        cell(current_).setFocusPolicy(Qt::StrongFocus);
    }
    cell(current_).setFocus(Qt::OtherFocusReason);
}

void ScheduleHeatmap::endGesture() {
    if (!gesture_) return;
    gesture_ = false;
    lastPainted_.reset();
    if (actions_.finish) actions_.finish();
}

void ScheduleHeatmap::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    const auto at = cellAt(event->position().toPoint());
    if (!at) return;
    endGesture();
    moveCurrent(*at);
    gesture_ = true;
    lastPainted_ = at;
    if (actions_.paint) actions_.paint(*at);
}

void ScheduleHeatmap::mouseMoveEvent(QMouseEvent* event) {
    if (!gesture_) return;
    const auto at = cellAt(event->position().toPoint());
    if (!at || at == lastPainted_) return;
    lastPainted_ = at;
    if (actions_.paint) actions_.paint(*at);
}

void ScheduleHeatmap::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) endGesture();
}

bool ScheduleHeatmap::eventFilter(QObject* watched, QEvent* event) {
    // A keyboard paint ends when the cells lose the focus to something else.
    if (event->type() == QEvent::FocusOut) {
        auto* focus = static_cast<QFocusEvent*>(event);
        if (focus->reason() != Qt::OtherFocusReason) endGesture();
        static_cast<QWidget*>(watched)->update();
    } else if (event->type() == QEvent::FocusIn) {
        static_cast<QWidget*>(watched)->update();
    }
    return QWidget::eventFilter(watched, event);
}

void ScheduleHeatmap::cellKeyPressed(QKeyEvent& event) {
    HeatmapCell to = current_;
    switch (event.key()) {
        case Qt::Key_Left:
            --to.hour;
            break;
        case Qt::Key_Right:
            ++to.hour;
            break;
        case Qt::Key_Up:
            --to.day;
            break;
        case Qt::Key_Down:
            ++to.day;
            break;
        case Qt::Key_Home:
            to.hour = 0;
            break;
        case Qt::Key_End:
            to.hour = 23;
            break;
        case Qt::Key_Space:
        case Qt::Key_Return:
        case Qt::Key_Enter:
            if (!event.isAutoRepeat() && actions_.toggle) actions_.toggle(current_);
            return event.accept();
        default:
            return event.ignore();
    }
    event.accept();
    const bool painting = event.modifiers().testFlag(Qt::ShiftModifier);
    if (painting && !gesture_) {
        gesture_ = true;
        lastPainted_ = current_;
        if (actions_.paint) actions_.paint(current_);
    } else if (!painting) {
        endGesture();
    }
    moveCurrent(to);
    if (painting && !(lastPainted_ == current_)) {
        lastPainted_ = current_;
        if (actions_.paint) actions_.paint(current_);
    }
}

void ScheduleHeatmap::cellKeyReleased(QKeyEvent& event) {
    if (event.key() == Qt::Key_Shift) endGesture();
    event.ignore();
}

}  // namespace corvane
