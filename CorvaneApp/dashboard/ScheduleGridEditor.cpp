#include "CorvaneApp/dashboard/ScheduleGridEditor.h"

namespace corvane {

ScheduleGridEditor::ScheduleGridEditor(ScheduleGrid grid)
    : grid_(ScheduleGrid::normalize(grid.weeklyGrid)) {}

bool ScheduleGridEditor::inGrid(HeatmapCell cell) {
    return cell.day >= 0 && cell.day < ScheduleGrid::dayCount && cell.hour >= 0 &&
           cell.hour < ScheduleGrid::hourCount;
}

bool ScheduleGridEditor::follow(const ScheduleGrid& saved) {
    if (isDragging()) return false;
    grid_ = ScheduleGrid::normalize(saved.weeklyGrid);
    return true;
}

bool ScheduleGridEditor::toggleCell(HeatmapCell cell) {
    if (!inGrid(cell)) return false;
    grid_.setAllowed(!grid_.isAllowed(cell.day, cell.hour), cell.day, cell.hour);
    return true;
}

bool ScheduleGridEditor::paintDraggedCell(HeatmapCell cell) {
    if (!inGrid(cell)) return false;
    if (!mode_) mode_ = !grid_.isAllowed(cell.day, cell.hour);
    if (!painted_.insert(cell).second) return false;
    if (grid_.isAllowed(cell.day, cell.hour) == *mode_) return false;
    grid_.setAllowed(*mode_, cell.day, cell.hour);
    return true;
}

bool ScheduleGridEditor::finishDragPaint() {
    const bool ran = mode_.has_value();
    mode_.reset();
    painted_.clear();
    return ran;
}

}  // namespace corvane
