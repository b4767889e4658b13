#pragma once
// Which source powers the machine, read from the kernel's power-supply class folder
// (/sys/class/power_supply): "AC Power" or "Battery Power".

#include <filesystem>
#include <optional>
#include <string>

namespace corvane {

class PowerSupplyReader {
  public:
    // What answer the folder gave, so that the caller can tell "no folder" from "no verdict".
    struct Reading {
        bool folderReadable = false;
        std::optional<std::string> providingSourceType;  // "AC Power" or "Battery Power"
    };

    explicit PowerSupplyReader(std::filesystem::path root = "/sys/class/power_supply")
        : root_(std::move(root)) {}

    // A supply of type "Mains" or "USB*" that is online means mains power. Otherwise a
    // system battery (scope other than "Device") that is discharging means battery power, one
    // that charges or is full means mains, and a mains supply that is present but offline means
    // battery. No system battery at all is a desktop or server: mains. A battery that says only
    // "Unknown" and no mains supply to ask gives no verdict.
    Reading read() const;

  private:
    std::filesystem::path root_;
};

}  // namespace corvane
