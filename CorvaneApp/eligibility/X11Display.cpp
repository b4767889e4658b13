#include "CorvaneApp/eligibility/X11Display.h"

#include <X11/Xlib.h>

#include <cstdlib>
#include <cstring>
#include <mutex>

namespace corvane {
namespace {

// Xlib's default handlers end the process on a protocol error (a window that vanished between two
// requests) or a lost connection. A probe must never do that, so errors are ignored here and the
// caller sees a failed request instead. Xlib keeps the protocol handler per process.
int ignoreProtocolError(Display*, XErrorEvent*) {
    return 0;
}

void installErrorHandlerOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        XInitThreads();
        XSetErrorHandler(ignoreProtocolError);
    });
}

}  // namespace

struct X11Display::State {
    Display* display = nullptr;
    bool lost = false;
};

X11Display::X11Display(std::string displayName)
    : displayName_(std::move(displayName)), state_(std::make_unique<State>()) {}

X11Display::~X11Display() {
    if (state_->display) XCloseDisplay(state_->display);
}

_XDisplay* X11Display::get() {
    if (state_->display && state_->lost) {
        XCloseDisplay(state_->display);
        state_->display = nullptr;
        state_->lost = false;
    }
    if (state_->display) return state_->display;
    const char* name = displayName_.empty() ? std::getenv("DISPLAY") : displayName_.c_str();
    if (!name || !*name) return nullptr;
    installErrorHandlerOnce();
    Display* display = XOpenDisplay(name);
    if (!display) return nullptr;
    // A dropped connection marks the state lost instead of exiting; the next get() reconnects.
    XSetIOErrorExitHandler(
        display, [](Display*, void* data) { static_cast<State*>(data)->lost = true; },
        state_.get());
    state_->display = display;
    return display;
}

bool X11Display::sessionIsWayland() {
    const char* wayland = std::getenv("WAYLAND_DISPLAY");
    const char* type = std::getenv("XDG_SESSION_TYPE");
    return (wayland && *wayland) || (type && std::strcmp(type, "wayland") == 0);
}

}  // namespace corvane
