#include "CorvaneApp/eligibility/LogindIdleSource.h"

#include <algorithm>

namespace corvane {
namespace {

const DBusObject kLogindManager{"org.freedesktop.login1", "/org/freedesktop/login1",
                                "org.freedesktop.login1.Manager"};

}  // namespace

std::optional<double> LogindIdleSource::idleSeconds() {
    auto idle = bus_->boolProperty(kLogindManager, "IdleHint");
    if (!idle) return std::nullopt;
    auto sinceMicros = bus_->unsignedProperty(kLogindManager, "IdleSinceHint");
    if (!sinceMicros || *sinceMicros == 0) return std::nullopt;
    if (!*idle) return 0.0;
    double since = static_cast<double>(*sinceMicros) / 1e6;
    return std::max(0.0, unixSeconds(now_()) - since);
}

}  // namespace corvane
