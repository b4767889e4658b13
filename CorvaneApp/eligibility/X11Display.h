#pragma once
// A lazily opened connection to the X server named by DISPLAY, shared by the X11 probes. With no
// DISPLAY, or no server behind it, there is simply no connection: nothing fails or exits.

#include <memory>
#include <string>

struct _XDisplay;

namespace corvane {

class X11Display {
  public:
    // `displayName` empty means the DISPLAY environment variable.
    explicit X11Display(std::string displayName = {});
    ~X11Display();
    X11Display(const X11Display&) = delete;
    X11Display& operator=(const X11Display&) = delete;

    // The open connection, opening it if needed; null when there is no X server to talk to.
    // A connection the server dropped is closed and opened afresh on the next call.
    _XDisplay* get();

    // True when the session is Wayland: X11 then sees only XWayland clients, and its idle time
    // and active window don't describe the user's activity.
    static bool sessionIsWayland();

  private:
    struct State;
    std::string displayName_;
    std::unique_ptr<State> state_;
};

}  // namespace corvane
