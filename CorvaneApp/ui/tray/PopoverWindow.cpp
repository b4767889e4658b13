#include "CorvaneApp/ui/tray/PopoverWindow.h"

#include <QCursor>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

#include <algorithm>

namespace corvane {

bool PopoverWindow::canPlaceItself() {
    return !QGuiApplication::platformName().startsWith(QStringLiteral("wayland"));
}

PopoverWindow::PopoverWindow(PopoverActions actions)
    : QWidget(nullptr,
              canPlaceItself() ? Qt::Popup | Qt::FramelessWindowHint : Qt::Window | Qt::Dialog),
      view_(new PopoverView(std::move(actions), this)) {
    setObjectName(QStringLiteral("popoverWindow"));
    setWindowTitle(QStringLiteral("Corvane"));
    setAccessibleName(QStringLiteral("Corvane status"));
    setAutoFillBackground(true);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(view_);
}

void PopoverWindow::toggle() {
    if (isVisible()) {
        close();
        return;
    }
    showNearPointer();
}

void PopoverWindow::showNearPointer() {
    adjustSize();
    if (canPlaceItself()) {
        // Below and left of the pointer, as a panel menu opens, kept on the pointer's screen.
        const QPoint pointer = QCursor::pos();
        QScreen* screen = QGuiApplication::screenAt(pointer);
        const QRect area = screen ? screen->availableGeometry() : QRect(pointer, size());
        QPoint at(pointer.x() - width() / 2, pointer.y() + 8);
        if (at.y() + height() > area.bottom()) at.setY(pointer.y() - height() - 8);
        at.setX(std::clamp(at.x(), area.left(), std::max(area.left(), area.right() - width())));
        at.setY(std::clamp(at.y(), area.top(), std::max(area.top(), area.bottom() - height())));
        move(at);
    }
    show();
    raise();
    activateWindow();
}

void PopoverWindow::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QWidget::keyPressEvent(event);
}

}  // namespace corvane
