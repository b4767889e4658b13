#include "CorvaneApp/ui/style/Theme.h"

#include <QApplication>
#include <QProxyStyle>
#include <QStyle>
#include <QStyleFactory>
#include <QStyleOptionButton>
#include <QWidget>

#include <memory>

namespace corvane::theme {
namespace {

// Roles are set as a dynamic property, so the sheet selects them without a class per role.
const char* const kStyleSheet = R"(
QLabel[role="title"] { font-size: 17pt; font-weight: 600; }
QLabel[role="heading"] { font-size: 11pt; font-weight: 600; }
QLabel[role="hero"] { font-size: 22pt; font-weight: 600; }
QFrame#card {
    background: palette(base);
    border: 1px solid palette(mid);
    border-radius: 8px;
}
QFrame#sidebar { background: palette(alternate-base); border: none; }
QPushButton#sidebarEntry {
    text-align: left;
    padding: 6px 10px;
    border: none;
    border-radius: 6px;
    background: transparent;
}
QPushButton#sidebarEntry:checked { background: palette(highlight); color: palette(highlighted-text); }
QPushButton#sidebarEntry:focus { outline: none; border: 1px solid palette(highlight); }
QProgressBar { border: none; border-radius: 3px; background: palette(midlight); max-height: 6px; }
QProgressBar::chunk { border-radius: 3px; background: #2fb864; }
)";

// Fusion outlines check boxes and radio buttons in the window colour darkened, which on the dark
// palette is near-black on a near-black card: the controls all but vanish. There they are
// outlined in the grey of secondary marks instead; the light palette is drawn as Fusion draws it.
class IndicatorContrastStyle final : public QProxyStyle {
  public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override {
        const auto* button = qstyleoption_cast<const QStyleOptionButton*>(option);
        if (!button || !isDark(option->palette) ||
            (element != PE_IndicatorCheckBox && element != PE_IndicatorRadioButton)) {
            QProxyStyle::drawPrimitive(element, option, painter, widget);
            return;
        }
        QStyleOptionButton outlined = *button;
        // Fusion's outline is the window colour darker by 140 %: undo that for the grey wanted.
        outlined.palette.setColor(QPalette::Window, otherColor(option->palette).lighter(140));
        QProxyStyle::drawPrimitive(element, &outlined, painter, widget);
    }
};

}  // namespace

QPalette lightPalette() {
    const std::unique_ptr<QStyle> fusion(QStyleFactory::create(QStringLiteral("Fusion")));
    QPalette palette = fusion ? fusion->standardPalette() : QPalette();
    palette.setColor(QPalette::Window, QColor(0xf4, 0xf3, 0xf0));
    palette.setColor(QPalette::AlternateBase, QColor(0xea, 0xe8, 0xe3));
    palette.setColor(QPalette::Highlight, QColor(0x1f, 0x7a, 0x45));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    return palette;
}

QPalette darkPalette() {
    QPalette palette;
    const QColor window(0x1e, 0x1f, 0x22), base(0x26, 0x28, 0x2c), text(0xe8, 0xe6, 0xe1);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, QColor(0x2c, 0x2e, 0x33));
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x34, 0x37, 0x3c));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, Qt::white);
    palette.setColor(QPalette::Highlight, QColor(0x2f, 0x9e, 0x5c));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Mid, QColor(0x44, 0x47, 0x4d));
    palette.setColor(QPalette::Midlight, QColor(0x3a, 0x3d, 0x42));
    palette.setColor(QPalette::Dark, QColor(0x15, 0x16, 0x18));
    palette.setColor(QPalette::Light, QColor(0x50, 0x53, 0x59));
    palette.setColor(QPalette::PlaceholderText, QColor(0x9a, 0x98, 0x93));
    palette.setColor(QPalette::ToolTipBase, base);
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::Link, QColor(0x6c, 0xb4, 0xff));
    palette.setColor(QPalette::Disabled, QPalette::Text, QColor(0x80, 0x80, 0x80));
    palette.setColor(QPalette::Disabled, QPalette::ButtonText, QColor(0x80, 0x80, 0x80));
    palette.setColor(QPalette::Disabled, QPalette::WindowText, QColor(0x80, 0x80, 0x80));
    return palette;
}

void apply(QApplication& app, Variant variant) {
    // Fusion draws from the palette alone, so light and dark read the same way everywhere.
    if (auto* fusion = QStyleFactory::create(QStringLiteral("Fusion")))
        QApplication::setStyle(new IndicatorContrastStyle(fusion));  // owned: app, then proxy
    if (variant == Variant::light) QApplication::setPalette(lightPalette());
    if (variant == Variant::dark) QApplication::setPalette(darkPalette());
    app.setStyleSheet(QString::fromLatin1(kStyleSheet));
}

bool isDark(const QPalette& palette) {
    return palette.color(QPalette::Window).lightness() < 128;
}

QColor corvaneColor() {
    return QColor(0x2f, 0xb8, 0x64);
}

QColor otherColor(const QPalette& palette) {
    return isDark(palette) ? QColor(0x8a, 0x8f, 0x98) : QColor(0x9a, 0xa0, 0xa8);
}

QColor glyphColor(CorvaneColor color) {
    switch (color) {
        case CorvaneColor::bone400:
            return QColor(0xa3, 0x9e, 0x93);
        case CorvaneColor::phosphor500:
            return QColor(0x2f, 0xb8, 0x64);
        case CorvaneColor::signalInfo:
            return QColor(0x3b, 0x82, 0xf6);
        case CorvaneColor::signalWarn:
            return QColor(0xe0, 0x9b, 0x0b);
        case CorvaneColor::signalError:
            return QColor(0xe5, 0x48, 0x4d);
        case CorvaneColor::plum500:
            return QColor(0x8e, 0x4e, 0xc6);
    }
    return QColor(0xa3, 0x9e, 0x93);
}

QColor mutedText(const QPalette& palette) {
    // Halfway between the text and its background keeps a contrast above 4.5:1 on both palettes.
    const QColor text = palette.color(QPalette::WindowText);
    const QColor back = palette.color(QPalette::Window);
    return QColor((text.red() * 2 + back.red()) / 3, (text.green() * 2 + back.green()) / 3,
                  (text.blue() * 2 + back.blue()) / 3);
}

void setRole(QWidget& widget, std::string_view role) {
    const QString name = QString::fromUtf8(role.data(), qsizetype(role.size()));
    if (widget.property("role").toString() == name) return;
    widget.setProperty("role", name);
    // A changed property takes effect in the stylesheet only once the widget is polished again.
    // Unpolishing first: the stylesheet's unpolish puts back the palette the widget had when it
    // was polished, which would undo a colour set before it.
    widget.style()->unpolish(&widget);
    QPalette palette = widget.palette();
    const QPalette application = QApplication::palette();
    palette.setColor(QPalette::WindowText, role == "muted" ? mutedText(application)
                                           : role == "error"
                                               ? (isDark(application) ? QColor(0xff, 0x8a, 0x8a)
                                                                      : QColor(0xb4, 0x23, 0x18))
                                               : application.color(QPalette::WindowText));
    widget.setPalette(palette);
    widget.style()->polish(&widget);
}

}  // namespace corvane::theme
