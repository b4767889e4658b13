#include "CorvaneApp/config/DataMode.h"

#include "CorvaneApp/config/UserDefaults.h"

namespace corvane {

DataMode resolveDataMode(const std::vector<std::string>& arguments,
                         const std::map<std::string, std::string>& environment,
                         const UserDefaults& userDefaults) {
    constexpr std::string_view prefix = "--data-mode=";
    for (const auto& argument : arguments) {
        if (!argument.starts_with(prefix)) continue;
        if (auto mode = dataModeFromRaw(std::string_view(argument).substr(prefix.size())))
            return *mode;
    }
    if (auto it = environment.find("CORVANE_DATA_MODE"); it != environment.end()) {
        if (auto mode = dataModeFromRaw(it->second)) return *mode;
    }
    if (auto stored = userDefaults.string("CorvaneDataMode")) {
        if (auto mode = dataModeFromRaw(*stored)) return *mode;
    }
    return DataMode::real;
}

}  // namespace corvane
