#include "CorvaneApp/config/WorkerConfig.h"

#include "CorvaneApp/config/ConfigFile.h"
#include "CorvaneApp/config/ConfigLines.h"

namespace corvane {

namespace cl = configlines;

std::optional<WorkerConfig> WorkerConfig::load(const std::filesystem::path& path) {
    auto text = configfile::read(path);
    if (!text) return std::nullopt;
    return parse(*text);
}

std::optional<WorkerConfig> WorkerConfig::parse(std::string_view yaml) {
    auto workerID = extractTopLevelString("worker_id", yaml);
    auto coordinatorURL = extractTopLevelString("coordinator_url", yaml);
    if (!workerID || !coordinatorURL) return std::nullopt;
    return WorkerConfig{*coordinatorURL, *workerID,
                        extractTopLevelString("onboarding_completed_at", yaml)};
}

std::optional<std::string> WorkerConfig::extractTopLevelString(std::string_view key,
                                                               std::string_view yaml) {
    for (const auto& line : cl::split(cl::splitBom(yaml).body)) {
        if (!cl::isTopLevelLineWithKey(line, key)) continue;
        auto body = cl::content(line);
        auto value = body.substr(body.find(':') + 1);
        value = value.substr(0, value.find('#'));
        auto result = cl::removeOnePairOfQuotes(cl::trimSpacesAndTabs(value));
        if (result.empty()) return std::nullopt;
        return std::string(result);
    }
    return std::nullopt;
}

}  // namespace corvane
