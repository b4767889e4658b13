#pragma once
// The look shared by every window: the desktop's own palette and font (light or dark), a few
// accent colours of ours, and the stylesheet of cards, headings and muted text. Widgets name
// their role with an objectName or a property; the stylesheet does the rest.

#include <QColor>
#include <QPalette>
#include <QString>

#include <string_view>

#include "CorvaneApp/app/WorkerStatus.h"

class QApplication;
class QWidget;

namespace corvane {

namespace theme {

enum class Variant { system, light, dark };

// Applies the palette and the stylesheet. `system` follows the desktop; the screenshot harness
// pins `light` or `dark`.
void apply(QApplication& app, Variant variant = Variant::system);
QPalette lightPalette();
QPalette darkPalette();
bool isDark(const QPalette& palette);

// Corvane's own use in charts and bars, and what everything else uses.
QColor corvaneColor();
QColor otherColor(const QPalette& palette);
QColor glyphColor(CorvaneColor color);
// Secondary text that still reads on the palette's window colour.
QColor mutedText(const QPalette& palette);

// Marks a label's role for the stylesheet: "title", "heading", "muted", "hero", "error".
void setRole(QWidget& widget, std::string_view role);

}  // namespace theme
}  // namespace corvane
