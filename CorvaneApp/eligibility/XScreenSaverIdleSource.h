#pragma once
// Idle time from the X11 screen-saver extension, which counts from the last input the X server
// saw. Silent under Wayland, where that would be only XWayland clients' input.

#include <memory>

#include "CorvaneApp/eligibility/IdleTimeSource.h"
#include "CorvaneApp/eligibility/X11Display.h"

namespace corvane {

class XScreenSaverIdleSource final : public IdleTimeSource {
  public:
    XScreenSaverIdleSource(std::shared_ptr<X11Display> display, bool skipUnderWayland = true)
        : display_(std::move(display)), skipUnderWayland_(skipUnderWayland) {}

    std::string_view name() const override { return "X11 screen saver"; }
    std::optional<double> idleSeconds() override;

  private:
    std::shared_ptr<X11Display> display_;
    bool skipUnderWayland_;
};

}  // namespace corvane
