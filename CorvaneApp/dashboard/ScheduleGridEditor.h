#pragma once
// The schedule page's working copy of the weekly grid, and the rules by which the owner edits it
// on the heatmap. A click (or Space) toggles one cell and is saved at once. A drag paints: its
// first cell sets the value to the opposite of what that cell allows, every cell the pointer
// enters takes that value, each cell once, and the grid is saved once, when the drag ends.

#include <optional>
#include <set>

#include "CorvaneApp/config/ScheduleGrid.h"

namespace corvane {

struct HeatmapCell {
    int day = 0;  // 0 is Monday
    int hour = 0;
    friend auto operator<=>(const HeatmapCell&, const HeatmapCell&) = default;
};

class ScheduleGridEditor {
  public:
    explicit ScheduleGridEditor(ScheduleGrid grid = ScheduleGrid::recommended());

    const ScheduleGrid& grid() const { return grid_; }
    bool isDragging() const { return mode_.has_value(); }
    const std::set<HeatmapCell>& paintedCells() const { return painted_; }

    // The saved grid changed (the file, the suggestions): taken unless a drag is running, whose
    // strokes would otherwise vanish under the pointer. True when it was taken.
    bool follow(const ScheduleGrid& saved);

    // One cell flipped; the caller saves the grid now. Out-of-range cells change nothing (false).
    bool toggleCell(HeatmapCell cell);
    // The pointer is on `cell` during a drag; the first call starts the drag. True when the cell
    // changed. A cell outside the grid is passed over.
    bool paintDraggedCell(HeatmapCell cell);
    // Ends the drag. True when one ran: the caller saves the grid, once.
    bool finishDragPaint();

  private:
    static bool inGrid(HeatmapCell cell);

    ScheduleGrid grid_;
    std::optional<bool> mode_;  // the value the drag paints; absent with no drag
    std::set<HeatmapCell> painted_;
};

}  // namespace corvane
