#pragma once
// Texts from the page states into Qt, changing a widget only when its text differs, so that a
// render with nothing new repaints nothing.

#include <QAbstractButton>
#include <QLabel>
#include <QString>
#include <QWidget>

#include <string>
#include <string_view>

namespace corvane {

inline QString qt(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

inline void setText(QLabel& label, std::string_view text) {
    const QString value = qt(text);
    if (label.text() != value) label.setText(value);
}

// A button's text treats '&' as a mnemonic marker; the text is shown as it is.
inline QString buttonText(std::string_view text) {
    return qt(text).replace(u'&', QStringLiteral("&&"));
}

inline void setText(QAbstractButton& button, std::string_view text) {
    const QString value = buttonText(text);
    if (button.text() != value) button.setText(value);
}

inline void setVisibleIfChanged(QWidget& widget, bool visible) {
    if (widget.isHidden() == visible) widget.setVisible(visible);
}

}  // namespace corvane
