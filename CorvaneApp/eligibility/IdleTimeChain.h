#pragma once
// Seconds since the last input, from the first source of a list that answers. Only when none
// answers does the reading fail.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/eligibility/IdleTimeSource.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class IdleTimeChain {
  public:
    explicit IdleTimeChain(std::vector<std::unique_ptr<IdleTimeSource>> sources)
        : sources_(std::move(sources)) {}

    // In order: GNOME's idle monitor and the freedesktop screen saver on the session bus, the X11
    // screen-saver extension (not under Wayland), logind's idle hint on the system bus, and the
    // newest access time of the terminals (or the time since boot).
    static IdleTimeChain system(NowFunction now = systemNow);

    // The first answer, tried in order; absent when no source answers. Logs when the source that
    // answers changes, so a support log says where the readings come from.
    std::optional<double> idleSeconds();

    // Which source gave the last answer; empty before the first or after a failed reading.
    const std::string& lastSourceName() const { return lastSourceName_; }

  private:
    std::vector<std::unique_ptr<IdleTimeSource>> sources_;
    std::string lastSourceName_;
    bool reportedFailure_ = false;
};

}  // namespace corvane
