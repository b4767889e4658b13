#pragma once
// Idle time from the terminals: the kernel stamps a terminal's access time when it is read from,
// so the newest access time of /dev/pts/* and /dev/tty* is the last keyboard input of any login.
// With no terminal at all, the time since boot.

#include <filesystem>

#include "CorvaneApp/eligibility/IdleTimeSource.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class TerminalIdleSource final : public IdleTimeSource {
  public:
    TerminalIdleSource(NowFunction now, std::filesystem::path devRoot = "/dev",
                       std::filesystem::path uptimeFile = "/proc/uptime")
        : now_(std::move(now)), devRoot_(std::move(devRoot)), uptimeFile_(std::move(uptimeFile)) {}

    std::string_view name() const override { return "terminal access times"; }
    std::optional<double> idleSeconds() override;

  private:
    std::optional<double> secondsSinceBoot() const;

    NowFunction now_;
    std::filesystem::path devRoot_;
    std::filesystem::path uptimeFile_;
};

}  // namespace corvane
