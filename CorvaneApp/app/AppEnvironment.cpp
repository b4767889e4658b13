#include "CorvaneApp/app/AppEnvironment.h"

#include <mutex>

#include "CorvaneApp/app/ProgramLocation.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/eligibility/IdleEligibilityMonitor.h"
#include "CorvaneApp/eligibility/IdleTimeChain.h"
#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/eligibility/SystemMeetingProbe.h"
#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane {

AppEnvironment AppEnvironment::system(std::string version) {
    AppEnvironment env;
    env.configPath = paths::varnixDir() / "config.yaml";
    env.runtimeStatePath = paths::varnixDir() / "worker-runtime-state.json";
    env.modelRoot = ModelCache::defaultRootDirectory();
    env.parakeetDirectory = ParakeetCache::defaultDirectory();
    // No runtime for Parakeet's compiled networks exists on Linux yet: it stays unadvertised.
    env.tempDirectory = paths::shardAudioDir();
    env.userDefaultsFile = UserDefaults::defaultFile();
    env.logDirectory = paths::logDir();
    env.program = corvaneLauncherPath();
    env.version = std::move(version);
    env.credentials = chooseCredentialBackend();
    env.session = std::make_shared<const http::Session>(http::SessionConfig{30, 120, 30});
    env.machine = std::make_shared<ProcMachineProbe>();
    env.samplerProbes =
        std::make_shared<ResourceSamplerProcProbes>(ResourceSamplerProcProbes::Options{});
    // The idle chain keeps per-source state; the worker's thread selection and the settings store
    // may ask from different threads.
    auto chain = std::make_shared<IdleTimeChain>(IdleTimeChain::system());
    auto chainMutex = std::make_shared<std::mutex>();
    env.secondsSinceLastInput = [chain, chainMutex] {
        std::lock_guard lock(*chainMutex);
        return chain->idleSeconds();
    };
    env.isOnACPower = [] { return IdleEligibilityMonitor::systemIsOnACPower(); };
    auto meeting = std::make_shared<SystemMeetingProbe>();
    env.meetingProbe = [meeting] { return meeting->read(); };
    return env;
}

}  // namespace corvane
