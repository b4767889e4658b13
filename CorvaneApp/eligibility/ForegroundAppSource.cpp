#include "CorvaneApp/eligibility/ForegroundAppSource.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <memory>

namespace corvane {
namespace {

struct XFreeDeleter {
    void operator()(void* data) const {
        if (data) XFree(data);
    }
};

// The first 32-bit item of a window property, as Xlib hands it out (in a long).
std::optional<unsigned long> cardinalProperty(Display* display, Window window, Atom property,
                                              Atom type) {
    Atom actualType = None;
    int actualFormat = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* raw = nullptr;
    int status = XGetWindowProperty(display, window, property, 0, 1, False, type, &actualType,
                                    &actualFormat, &count, &remaining, &raw);
    std::unique_ptr<unsigned char, XFreeDeleter> data(raw);
    if (status != Success || actualType != type || actualFormat != 32 || count < 1 || !data) {
        return std::nullopt;
    }
    return *reinterpret_cast<unsigned long*>(data.get());
}

}  // namespace

std::optional<ForegroundAppSource::App> X11ForegroundAppSource::frontmost() {
    Display* display = display_->get();
    if (!display) return std::nullopt;
    Atom activeAtom = XInternAtom(display, "_NET_ACTIVE_WINDOW", True);
    Atom pidAtom = XInternAtom(display, "_NET_WM_PID", True);
    if (activeAtom == None || pidAtom == None) return std::nullopt;
    auto window = cardinalProperty(display, DefaultRootWindow(display), activeAtom, XA_WINDOW);
    if (!window || *window == None) return std::nullopt;
    auto processID = cardinalProperty(display, static_cast<Window>(*window), pidAtom, XA_CARDINAL);
    if (!processID || *processID < 1 || *processID > 0x7fffffff) return std::nullopt;

    App app{static_cast<int>(*processID), std::nullopt};
    XClassHint hint{};
    if (XGetClassHint(display, static_cast<Window>(*window), &hint)) {
        std::unique_ptr<char, XFreeDeleter> name(hint.res_name);
        std::unique_ptr<char, XFreeDeleter> className(hint.res_class);
        if (className && *className) app.applicationName = className.get();
    }
    return app;
}

}  // namespace corvane
