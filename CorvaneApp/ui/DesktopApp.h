#pragma once
// The desktop entry point: a Qt application with no window and no taskbar entry, a status icon in
// the tray, and the application's session running on the Qt event loop.

#include <functional>
#include <memory>

#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/ui/DesktopSession.h"

namespace corvane {

struct DesktopOptions {
    double statusRefreshSeconds = 2.0;  // how often the tray re-reads the session's status
};

// Builds the session on the main sequence it will run on. May throw: the desktop then ends with 1.
using DesktopSessionFactory =
    std::function<std::unique_ptr<DesktopSession>(Executor& mainSequence)>;

// Runs until the menu's quit, SIGTERM or SIGINT; each calls the session's shutdown() once and
// ends the loop. Returns the process's exit code: 0 after a clean shutdown, 1 when the session
// could not be built or its shutdown failed. Without a system tray it warns and keeps running.
int runDesktop(int argc, char** argv, const DesktopSessionFactory& makeSession,
               DesktopOptions options = {});

}  // namespace corvane
