#include "CorvaneApp/ui/shell/PaintLog.h"

#include <QCoreApplication>
#include <QEvent>
#include <QWidget>

#include <cstdlib>

#include "CorvaneApp/platform/Log.h"

namespace corvane {

std::unique_ptr<PaintLog> PaintLog::installIfRequested() {
    if (!std::getenv("CORVANE_PAINT_LOG")) return nullptr;
    auto log = std::make_unique<PaintLog>();
    QCoreApplication::instance()->installEventFilter(log.get());
    return log;
}

bool PaintLog::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint) {
        if (auto* widget = qobject_cast<QWidget*>(watched)) {
            const QWidget* window = widget->window();
            log::get("PaintLog")
                ->info("paint: {} / {}", window->objectName().toStdString(),
                       widget->objectName().isEmpty() ? widget->metaObject()->className()
                                                      : widget->objectName().toStdString());
        }
    }
    return false;
}

}  // namespace corvane
