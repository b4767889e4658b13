#include "CorvaneApp/ui/widgets/DiskAllocationBarView.h"

#include <QPainter>
#include <QPainterPath>

#include <algorithm>

#include <cmath>

#include "CorvaneApp/ui/style/Theme.h"

namespace corvane {

DiskAllocationBarView::DiskAllocationBarView(QWidget* parent) : QWidget(parent) {
    setObjectName(QStringLiteral("diskAllocationBar"));
    setFixedHeight(14);
    setMinimumWidth(200);
}

QColor DiskAllocationBarView::colorFor(DiskAllocationBar::Segment::Kind kind,
                                       const QPalette& palette) {
    using Kind = DiskAllocationBar::Segment::Kind;
    switch (kind) {
        case Kind::system:
            return theme::otherColor(palette);
        case Kind::models:
            return theme::corvaneColor();
        case Kind::headroom: {
            QColor headroom = theme::corvaneColor();
            headroom.setAlpha(theme::isDark(palette) ? 90 : 70);
            return headroom;
        }
        case Kind::rest:
            return palette.color(QPalette::Midlight);
    }
    return palette.color(QPalette::Midlight);
}

void DiskAllocationBarView::render(const std::optional<DiskAllocationBar>& bar) {
    if (rendered_ && bar == bar_) return;
    rendered_ = true;
    bar_ = bar;
    setAccessibleName(QStringLiteral("Disk used by Corvane models"));
    update();
}

void DiskAllocationBarView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath clip;
    clip.addRoundedRect(QRectF(rect()), 5, 5);
    painter.setClipPath(clip);
    painter.fillRect(rect(), palette().color(QPalette::Midlight));
    if (!bar_ || bar_->total <= 0) return;
    double x = 0;
    for (const auto& segment : bar_->segments()) {
        const double width = segment.gigabytes / bar_->total * this->width();
        // A segment that exists keeps a sliver of two pixels, so a small model stays visible.
        const double shown = segment.gigabytes > 0 ? std::max(width, 2.0) : 0.0;
        painter.fillRect(QRectF(x, 0, shown, height()), colorFor(segment.kind, palette()));
        x += shown;
    }
}

}  // namespace corvane
