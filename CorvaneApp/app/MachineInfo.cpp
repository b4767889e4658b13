#include "CorvaneApp/app/MachineInfo.h"

#include <pwd.h>
#include <unistd.h>

#include <algorithm>

#include "CorvaneApp/app/OnboardingMachineFacts.h"
#include "CorvaneApp/models/MachineProbe.h"
#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {

MachineInfo MachineInfo::current(const MachineProbe& probe, std::string appVersion) {
    MachineInfo info;
    info.name = OnboardingMachineFacts::readComputerName({});
    info.chipDisplay = chipDescriptionFrom(probe.cpuBrandString()).value_or("");
    // The maker's name for the computer where the firmware gives one, else its processor.
    const auto product = readFile("/sys/class/dmi/id/product_name");
    const std::string family = product ? trimWhitespaceAndNewlines(*product) : std::string();
    info.modelDisplay = !family.empty() && family != "System Product Name" ? family
                        : !info.chipDisplay.empty()                        ? info.chipDisplay
                                                                           : "Linux computer";
    info.totalCores = std::max(1, probe.logicalCoreCount());
    if (auto bytes = probe.physicalMemoryBytes())
        info.totalRAM_GB = double(*bytes) / double(1ULL << 30);
    if (!appVersion.empty()) info.appVersion = std::move(appVersion);
    if (const passwd* user = ::getpwuid(::getuid())) {
        std::string gecos = user->pw_gecos ? user->pw_gecos : "";
        gecos = gecos.substr(0, gecos.find(','));
        info.signedInAs = gecos.empty() ? user->pw_name : gecos;
    }
    return info;
}

}  // namespace corvane
