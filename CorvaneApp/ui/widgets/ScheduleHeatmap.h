#pragma once
// The week as seven rows of 24 hour cells, coloured by their state, that reports what the owner
// does to it: a press and every cell the pointer then enters (a drag paint, a click being a drag
// of one cell), the end of that gesture, and a toggle from the keyboard. It decides nothing: the
// page applies the rules and renders the result back.
//
// Keyboard: the heatmap is one stop in the Tab order (the current cell). Arrows move; Space or
// Enter toggles; Shift with arrows paints from the current cell on, and letting go of Shift ends
// that paint. Each cell is a button a screen reader names ("Tuesday 14:00, quiet").

#include <QColor>
#include <QWidget>

#include <array>
#include <functional>
#include <optional>

#include "CorvaneApp/dashboard/ScheduleGridEditor.h"
#include "CorvaneApp/dashboard/SchedulePageState.h"

class QAbstractButton;
class QLabel;
class QPainter;
class QRectF;

namespace corvane {

class ScheduleHeatmap final : public QWidget {
  public:
    struct Actions {
        std::function<void(HeatmapCell)> paint;   // a gesture reached this cell
        std::function<void()> finish;             // the gesture ended
        std::function<void(HeatmapCell)> toggle;  // Space or Enter on a cell
    };

    static constexpr int cellSize = 15;
    static constexpr int cellGap = 2;

    explicit ScheduleHeatmap(Actions actions, QWidget* parent = nullptr);
    void render(const HeatmapState& state);

    QAbstractButton& cell(HeatmapCell at);
    HeatmapCell currentCell() const { return current_; }
    // The cell under a point of this widget, if any.
    std::optional<HeatmapCell> cellAt(const QPoint& point) const;
    // A state's colour on `palette`; the legend uses the same.
    static QColor colorFor(HeatmapState::CellState state, const QPalette& palette);
    // One cell (or a legend's swatch) of `state` filling `box`.
    static void paintCell(QPainter& painter, const QRectF& box, HeatmapState::CellState state,
                          const QPalette& palette);

    // Called by the cells, which forward their keys here.
    void cellKeyPressed(QKeyEvent& event);
    void cellKeyReleased(QKeyEvent& event);

  protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    void moveCurrent(HeatmapCell to);
    void endGesture();

    Actions actions_;
    std::array<std::array<QAbstractButton*, 24>, 7> cells_{};
    std::array<QLabel*, 7> dayLabels_{};
    std::vector<QLabel*> hourLabels_;
    HeatmapCell current_{0, 0};
    bool gesture_ = false;  // a paint (pointer or Shift) is running
    std::optional<HeatmapCell> lastPainted_;
    std::optional<HeatmapState> shown_;
};

}  // namespace corvane
