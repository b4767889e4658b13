#pragma once
// Idle time from systemd-logind's combined idle hint over all sessions (and idle inhibitors):
// while the hint is off someone is active now; while it is on, the user has been idle since
// IdleSinceHint. Answers for services outside any session and for terminal logins too.

#include <memory>

#include "CorvaneApp/eligibility/DBusClient.h"
#include "CorvaneApp/eligibility/IdleTimeSource.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class LogindIdleSource final : public IdleTimeSource {
  public:
    LogindIdleSource(std::shared_ptr<DBusClient> systemBus, NowFunction now)
        : bus_(std::move(systemBus)), now_(std::move(now)) {}

    std::string_view name() const override { return "logind idle hint"; }
    // Absent when logind can't be asked, or when its hint has no time yet (no session has ever
    // reported one): that is no reading, and the terminals answer instead.
    std::optional<double> idleSeconds() override;

  private:
    std::shared_ptr<DBusClient> bus_;
    NowFunction now_;
};

}  // namespace corvane
