#pragma once
// The application as the desktop layer sees it: what the tray shows and what its menu asks for.
// Plain C++ so that the application shell implements it without Qt. Every call comes on the main
// sequence (the Qt thread).

#include "CorvaneApp/ui/TrayStatus.h"

namespace corvane {

class DesktopSession {
  public:
    virtual ~DesktopSession() = default;
    // Read every refresh (2 s) and once at start.
    virtual TrayStatus trayStatus() = 0;
    virtual void openDashboard() = 0;
    virtual void showPreferences() = 0;
    virtual void about() = 0;
    // The process is about to end (menu quit, SIGTERM, SIGINT, or the loop ending otherwise).
    // Called once; the event loop stops when it returns, so what must finish has to finish inside
    // it.
    virtual void shutdown() = 0;
};

}  // namespace corvane
