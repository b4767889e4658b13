#pragma once
// Which application is in front: the process behind the active window, and the name the
// window gives its application.

#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/eligibility/X11Display.h"

namespace corvane {

class ForegroundAppSource {
  public:
    struct App {
        int processID = 0;
        std::optional<std::string> applicationName;  // the window's class name, when it has one
    };

    virtual ~ForegroundAppSource() = default;
    virtual std::optional<App> frontmost() = 0;
};

// The active window of an EWMH window manager on X11 (_NET_ACTIVE_WINDOW, _NET_WM_PID,
// WM_CLASS). Under Wayland only XWayland windows are seen; a native Wayland window in front reads
// as no application, which holds no pause.
class X11ForegroundAppSource final : public ForegroundAppSource {
  public:
    explicit X11ForegroundAppSource(std::shared_ptr<X11Display> display)
        : display_(std::move(display)) {}
    std::optional<App> frontmost() override;

  private:
    std::shared_ptr<X11Display> display_;
};

}  // namespace corvane
