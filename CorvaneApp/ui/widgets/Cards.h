#pragma once
// What every dashboard page lays out: cards the theme draws and labels in a theme role.

#include <QFrame>
#include <QLabel>
#include <QScrollArea>
#include <QString>
#include <QVBoxLayout>
#include <QWidget>

#include <string_view>

#include "CorvaneApp/ui/style/Theme.h"

namespace corvane {

// The theme draws a frame named "card" as a card; a screen reader reads `accessibleName`.
inline QFrame* makeCard(QWidget* parent, const char* accessibleName = nullptr) {
    auto* frame = new QFrame(parent);
    frame->setObjectName(QStringLiteral("card"));
    if (accessibleName) frame->setAccessibleName(QString::fromUtf8(accessibleName));
    return frame;
}

// A page's scroll area filling the page, frameless, its content sized to its width.
inline QScrollArea* makePageScroll(QWidget& page) {
    auto* outer = new QVBoxLayout(&page);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(&page);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    outer->addWidget(scroll);
    return scroll;
}

// A label in a theme role ("" for body text).
inline QLabel* makeLabel(QWidget* parent, std::string_view role, bool wrap = false) {
    auto* text = new QLabel(parent);
    text->setWordWrap(wrap);
    if (!role.empty()) theme::setRole(*text, role);
    return text;
}

// A wrapping label that tests find by its object name.
inline QLabel* makeNamedLabel(QWidget* parent, const char* objectName, std::string_view role = {}) {
    auto* text = makeLabel(parent, role, true);
    text->setObjectName(QString::fromLatin1(objectName));
    return text;
}

}  // namespace corvane
