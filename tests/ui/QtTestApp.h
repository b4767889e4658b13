#pragma once
// The one QApplication of a Qt test binary (offscreen: no display needed), and a way to run its
// event loop until a condition holds.

#include <QApplication>
#include <QDeadlineTimer>
#include <QInputDevice>
#include <QTimer>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>

namespace corvane::testing {

inline QApplication& qtTestApp() {
    // A binary whose main() owns the application (see PageTestMain.cpp) gets that one.
    if (auto* owned = qobject_cast<QApplication*>(QCoreApplication::instance())) return *owned;
    static std::unique_ptr<QApplication> app = [] {
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
        // Qt's list of input devices is a static made on first use; made after the application,
        // it would be gone at exit before the devices the application still owns unregister
        // from it. Touched first, it outlives them.
        QInputDevice::devices();
        static int argc = 1;
        static char name[] = "ui_tests";
        static char* argv[] = {name, nullptr};
        return std::make_unique<QApplication>(argc, argv);
    }();
    return *app;
}

// Runs the event loop until `done` holds; false when `limit` passes first. The condition must be
// made true by work on this thread's loop (each event wakes the check).
inline bool runEventsUntil(const std::function<bool()>& done,
                           std::chrono::milliseconds limit = std::chrono::seconds(30)) {
    QDeadlineTimer deadline(limit);
    QTimer wake;  // makes the last wait return at the deadline
    wake.setSingleShot(true);
    wake.start(limit);
    while (!done()) {
        if (deadline.hasExpired()) return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
    }
    return true;
}

}  // namespace corvane::testing
