#include "CorvaneApp/eligibility/IdleTimeChain.h"

#include "CorvaneApp/eligibility/DBusIdleSource.h"
#include "CorvaneApp/eligibility/LogindIdleSource.h"
#include "CorvaneApp/eligibility/SdBusClient.h"
#include "CorvaneApp/eligibility/TerminalIdleSource.h"
#include "CorvaneApp/eligibility/XScreenSaverIdleSource.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

IdleTimeChain IdleTimeChain::system(NowFunction now) {
    auto sessionBus = std::make_shared<SdBusClient>(SdBusClient::Bus::session);
    auto systemBus = std::make_shared<SdBusClient>(SdBusClient::Bus::system);
    std::vector<std::unique_ptr<IdleTimeSource>> sources;
    sources.push_back(DBusIdleSource::mutter(sessionBus));
    sources.push_back(DBusIdleSource::freedesktopScreenSaver(sessionBus));
    sources.push_back(std::make_unique<XScreenSaverIdleSource>(std::make_shared<X11Display>()));
    sources.push_back(std::make_unique<LogindIdleSource>(systemBus, now));
    sources.push_back(std::make_unique<TerminalIdleSource>(now));
    return IdleTimeChain(std::move(sources));
}

std::optional<double> IdleTimeChain::idleSeconds() {
    for (auto& source : sources_) {
        auto seconds = source->idleSeconds();
        if (!seconds) continue;
        reportedFailure_ = false;
        if (lastSourceName_ != source->name()) {
            lastSourceName_ = std::string(source->name());
            log::get("IdleEligibilityMonitor")->info("idle time now read from {}", lastSourceName_);
        }
        return seconds;
    }
    lastSourceName_.clear();
    if (!reportedFailure_) {
        reportedFailure_ = true;
        log::get("IdleEligibilityMonitor")
            ->error("no source of idle time answers — counting the computer as in use");
    }
    return std::nullopt;
}

}  // namespace corvane
