#include "CorvaneApp/eligibility/XScreenSaverIdleSource.h"

#include <X11/Xlib.h>
#include <X11/extensions/scrnsaver.h>

namespace corvane {

std::optional<double> XScreenSaverIdleSource::idleSeconds() {
    if (skipUnderWayland_ && X11Display::sessionIsWayland()) return std::nullopt;
    Display* display = display_->get();
    if (!display) return std::nullopt;
    int eventBase = 0;
    int errorBase = 0;
    if (!XScreenSaverQueryExtension(display, &eventBase, &errorBase)) return std::nullopt;
    XScreenSaverInfo info{};
    if (!XScreenSaverQueryInfo(display, DefaultRootWindow(display), &info)) return std::nullopt;
    return static_cast<double>(info.idle) / 1000.0;
}

}  // namespace corvane
