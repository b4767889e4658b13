#include "CorvaneApp/ui/tray/TrayIconSet.h"

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

#include <array>

namespace corvane {
namespace {

// The palette of the status glyphs. Mid-tone colours with a darker rim stay legible on light and
// dark panels alike.
const QColor kPhosphor500{0x2f, 0xb8, 0x64};
const QColor kSignalInfo{0x3b, 0x82, 0xf6};
const QColor kBone400{0xa3, 0x9e, 0x93};
const QColor kSignalWarn{0xe0, 0x9b, 0x0b};
const QColor kSignalError{0xe5, 0x48, 0x4d};
const QColor kPlum500{0x8e, 0x4e, 0xc6};

// What is drawn inside the glyph, so that statuses that share a colour still look different.
enum class Mark { none, hollow, dot, ring, bars, bar, cross, arrowDown };

struct Style {
    std::string_view name;
    QColor color;
    Mark mark;
};

const std::array kStyles{
    Style{"notEnrolled", kBone400, Mark::hollow}, Style{"earning", kPhosphor500, Mark::dot},
    Style{"idle", kSignalInfo, Mark::ring},       Style{"paused", kBone400, Mark::bars},
    Style{"scheduled", kSignalWarn, Mark::bar},   Style{"throttled", kSignalWarn, Mark::arrowDown},
    Style{"offline", kSignalError, Mark::cross},  Style{"updating", kPlum500, Mark::arrowDown},
};

Style styleFor(std::string_view name) {
    for (const auto& style : kStyles) {
        if (style.name == name) return style;
    }
    return Style{name, kBone400, Mark::none};
}

// The outline in a 32-unit grid: six corners on the lines 8 and 24 and the two margins.
QPainterPath glyphOutline() {
    constexpr double margin = 3.0;
    QPainterPath path;
    path.moveTo(8, margin);
    path.lineTo(24, margin);
    path.lineTo(32 - margin, 16);
    path.lineTo(24, 32 - margin);
    path.lineTo(8, 32 - margin);
    path.lineTo(margin, 16);
    path.closeSubpath();
    return path;
}

void drawMark(QPainter& painter, Mark mark) {
    QPen pen(QColor(255, 255, 255, 235), 3.2, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    switch (mark) {
        case Mark::none:
        case Mark::hollow:
            break;
        case Mark::dot:
            painter.setPen(Qt::NoPen);
            painter.setBrush(pen.color());
            painter.drawEllipse(QPointF(16, 16), 4.5, 4.5);
            break;
        case Mark::ring:
            painter.drawEllipse(QPointF(16, 16), 4.5, 4.5);
            break;
        case Mark::bars:
            painter.drawLine(QPointF(13, 11), QPointF(13, 21));
            painter.drawLine(QPointF(19, 11), QPointF(19, 21));
            break;
        case Mark::bar:
            painter.drawLine(QPointF(11, 16), QPointF(21, 16));
            break;
        case Mark::cross:
            painter.drawLine(QPointF(12, 12), QPointF(20, 20));
            painter.drawLine(QPointF(20, 12), QPointF(12, 20));
            break;
        case Mark::arrowDown:
            painter.drawLine(QPointF(16, 10), QPointF(16, 21));
            painter.drawLine(QPointF(11.5, 16.5), QPointF(16, 21));
            painter.drawLine(QPointF(20.5, 16.5), QPointF(16, 21));
            break;
    }
}

}  // namespace

QColor TrayIconSet::colorFor(std::string_view statusName) {
    return styleFor(statusName).color;
}

QImage TrayIconSet::render(std::string_view statusName, int size) {
    const auto style = styleFor(statusName);
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 32.0, size / 32.0);

    const auto outline = glyphOutline();
    QPen rim(style.color.darker(140), 1.6, Qt::SolidLine, Qt::SquareCap, Qt::MiterJoin);
    painter.setPen(rim);
    if (style.mark == Mark::hollow) {
        // Not enrolled: an outline only, thicker so it reads at 16 px.
        rim.setColor(style.color);
        rim.setWidthF(3.2);
        painter.setPen(rim);
        painter.setBrush(Qt::NoBrush);
    } else {
        painter.setBrush(style.color);
    }
    painter.drawPath(outline);
    drawMark(painter, style.mark);
    painter.end();
    return image;
}

const QIcon& TrayIconSet::icon(std::string_view statusName) {
    if (auto found = cache_.find(statusName); found != cache_.end()) return found->second;
    QIcon icon;
    for (int size : kSizes) icon.addPixmap(QPixmap::fromImage(render(statusName, size)));
    return cache_.emplace(std::string(statusName), std::move(icon)).first->second;
}

}  // namespace corvane
