#pragma once
// What registration says about this machine: its worker id, name, chip, memory and build.

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

class MachineProbe;

struct OnboardingMachineFacts {
    std::string workerID;
    std::string computerName;
    std::optional<std::string> chipDescription;
    std::optional<std::uint64_t> physicalMemoryBytes;
    std::optional<std::string> buildIdentity;

    // Where the facts are read from; tests point these into a fixture tree.
    struct Sources {
        std::filesystem::path machineIDFile = "/etc/machine-id";
        std::filesystem::path machineInfoFile = "/etc/machine-info";
        std::optional<std::string> hostName;  // absent: gethostname()
        std::filesystem::path executable = "/proc/self/exe";
        std::string version;  // the build's version, e.g. "0.1.0"
    };
    static OnboardingMachineFacts read(const MachineProbe& probe, const Sources& sources);
    // The name the computer registers under, and the one every screen shows.
    static std::string readComputerName(const Sources& sources);
};

// "wk_" and 16 hex digits derived from the machine id, so that a machine registers under the
// same id every time without exposing the id itself; random when there is no machine id.
std::string workerIDForMachine(std::optional<std::string_view> machineID);
// PRETTY_HOSTNAME of a machine-info text, else the host name without ".local"; "computer" when
// neither gives anything.
std::string computerNameFrom(std::optional<std::string_view> machineInfo,
                             std::string_view hostName);
// The CPU brand without a leading "Apple "; absent when that leaves nothing.
std::optional<std::string> chipDescriptionFrom(std::string_view brandString);
// "<version> sha256:<first 12 hex digits of the executable>", or what of it is known.
std::optional<std::string> buildIdentityFrom(std::string_view version,
                                             std::optional<std::string_view> executableSHA256);

}  // namespace corvane
