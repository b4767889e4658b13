#pragma once
// One way of learning the seconds since the user's last input. Several are chained, since which
// one answers depends on the desktop (GNOME, KDE, X11) or its absence (a server).

#include <optional>
#include <string_view>

namespace corvane {

class IdleTimeSource {
  public:
    virtual ~IdleTimeSource() = default;
    virtual std::string_view name() const = 0;
    // Seconds since the last input as this source sees it; absent when it can't answer now.
    virtual std::optional<double> idleSeconds() = 0;
};

}  // namespace corvane
