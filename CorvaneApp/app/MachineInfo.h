#pragma once
// This computer as the screens describe it.

#include <string>

namespace corvane {

class MachineProbe;

struct MachineInfo {
    std::string name;
    std::string modelDisplay;
    std::string chipDisplay;
    int totalCores = 1;
    double totalRAM_GB = 0;
    std::string region = "us-west · Pacific";
    std::string workerID = "wk_local";
    std::string appVersion = "0.2.0";
    std::string buildNumber = "1";
    std::string signedInAs;
    bool operator==(const MachineInfo&) const = default;

    // Read from the system: the name the computer registers under, the processor, the memory and
    // the owner's full name. The worker id is left to the caller.
    static MachineInfo current(const MachineProbe& probe, std::string appVersion);
};

}  // namespace corvane
