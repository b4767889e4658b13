#include "CorvaneApp/eligibility/PowerSupplyReader.h"

#include <system_error>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

std::optional<std::string> attribute(const std::filesystem::path& supply, const char* name) {
    auto text = ProcText::readSmallFile(supply / name, 256);
    if (!text) return std::nullopt;
    return std::string(trimAsciiWhitespace(*text));
}

}  // namespace

PowerSupplyReader::Reading PowerSupplyReader::read() const {
    Reading reading;
    std::error_code error;
    std::filesystem::directory_iterator it(root_, error);
    if (error) return reading;
    reading.folderReadable = true;

    bool mainsOnline = false;
    bool mainsPresent = false;
    bool batteryPresent = false;
    bool batteryDischarging = false;
    bool batteryExternallyPowered = false;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) break;
        const auto& supply = it->path();
        auto type = attribute(supply, "type");
        if (!type) continue;
        if (*type == "Mains" || type->rfind("USB", 0) == 0) {
            auto online = attribute(supply, "online");
            if (!online) continue;
            mainsPresent = true;
            if (*online == "1") mainsOnline = true;
        } else if (*type == "Battery" || *type == "UPS") {
            // Batteries of a mouse or headset report scope "Device"; they don't power the machine.
            if (attribute(supply, "scope") == "Device") continue;
            batteryPresent = true;
            auto status = attribute(supply, "status");
            if (status == "Discharging") {
                batteryDischarging = true;
            } else if (status == "Charging" || status == "Full" || status == "Not charging") {
                batteryExternallyPowered = true;
            }
        }
    }
    if (mainsOnline) {
        reading.providingSourceType = "AC Power";
    } else if (batteryDischarging) {
        reading.providingSourceType = "Battery Power";
    } else if (!batteryPresent || batteryExternallyPowered) {
        reading.providingSourceType = "AC Power";
    } else if (mainsPresent) {
        reading.providingSourceType = "Battery Power";
    }
    return reading;
}

}  // namespace corvane
