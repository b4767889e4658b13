#pragma once
// The desktop entry point: a Qt application with no window of its own at start, a status icon in
// the tray, and the session running on the Qt event loop. One instance per desktop session.

#include <functional>
#include <memory>
#include <string>

#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

struct DesktopOptions {
    std::string version;
    // Announce this instance in the status file, as a headless worker does, so that `corvane
    // status` shows it and `corvane signout` waits for it.
    bool publishStatus = false;
};

// Builds the session on the main sequence it will run on. May throw: the desktop then ends with 1.
using SessionFactory = std::function<std::unique_ptr<Session>(Executor& mainSequence)>;

// Runs until the menu's quit, SIGTERM or SIGINT; each ends the session once (shards in flight are
// reported) and stops the loop. Returns the process's exit code: 0 after a clean end, also when
// another instance was running and has been brought forward; 1 when the session could not be
// built or its end failed.
int runDesktop(int argc, char** argv, const SessionFactory& makeSession, DesktopOptions options);

}  // namespace corvane
