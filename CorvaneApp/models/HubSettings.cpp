#include "CorvaneApp/models/HubSettings.h"

#include <cstdlib>

namespace corvane {
namespace {

std::optional<std::string> firstSet(const HubSettings::EnvironmentReader& read,
                                    std::initializer_list<const char*> names) {
    for (const char* name : names) {
        if (auto value = read(name); value && !value->empty()) return value;
    }
    return std::nullopt;
}

}  // namespace

HubSettings HubSettings::fromEnvironment(const EnvironmentReader& read) {
    HubSettings settings;
    if (auto base = firstSet(read, {"REGISTRY_URL", "MODEL_REGISTRY_URL"})) {
        while (!base->empty() && base->back() == '/') base->pop_back();
        if (!base->empty()) settings.baseURL = *base;
    }
    settings.token =
        firstSet(read, {"HF_TOKEN", "HUGGING_FACE_HUB_TOKEN", "HUGGINGFACEHUB_API_TOKEN"});
    return settings;
}

HubSettings HubSettings::fromEnvironment() {
    return fromEnvironment([](const char* name) -> std::optional<std::string> {
        const char* value = std::getenv(name);
        if (!value) return std::nullopt;
        return std::string(value);
    });
}

bool HubSettings::isHubURL(const std::string& url) const {
    return url.size() > baseURL.size() && url.compare(0, baseURL.size(), baseURL) == 0 &&
           url[baseURL.size()] == '/';
}

}  // namespace corvane
