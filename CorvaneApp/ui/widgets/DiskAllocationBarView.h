#pragma once
// The volume of the model weights as one bar: the system and the owner's files, Corvane's
// models, the headroom its budget leaves, and the free rest, each in its own colour.

#include <QColor>
#include <QWidget>

#include <optional>

#include "CorvaneApp/dashboard/ModelsPageState.h"

namespace corvane {

class DiskAllocationBarView final : public QWidget {
  public:
    explicit DiskAllocationBarView(QWidget* parent = nullptr);
    // Absent: the volume is not measured yet, and the bar is empty.
    void render(const std::optional<DiskAllocationBar>& bar);
    // A segment's colour; the legend uses the same.
    static QColor colorFor(DiskAllocationBar::Segment::Kind kind, const QPalette& palette);

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    std::optional<DiskAllocationBar> bar_;
    bool rendered_ = false;
};

}  // namespace corvane
