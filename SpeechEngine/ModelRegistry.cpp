#include "SpeechEngine/ModelRegistry.h"

#include "CorvaneApp/platform/Http.h"

namespace speech {
namespace {

std::string withoutTrailingSlashes(std::string url) {
    while (!url.empty() && url.back() == '/') url.pop_back();
    return url;
}

bool hasSchemeAndHost(const std::string& url) {
    for (const char* scheme : {"http://", "https://"}) {
        std::string_view prefix(scheme);
        if (url.starts_with(prefix)) {
            auto host = url.substr(prefix.size());
            return !host.empty() && host.front() != '/' &&
                   host.find_first_of(" \t\r\n") == std::string::npos;
        }
    }
    return false;
}

}  // namespace

ModelRegistry::ModelRegistry(const EnvironmentLookup& environment) : baseURL_(huggingFaceBaseURL) {
    for (const char* name : {"REGISTRY_URL", "MODEL_REGISTRY_URL"}) {
        auto value = environment ? environment(name) : std::nullopt;
        if (value && !value->empty()) {
            baseURL_ = withoutTrailingSlashes(*value);
            break;
        }
    }
}

std::string ModelRegistry::baseURL() const {
    std::lock_guard lock(mutex_);
    return baseURL_;
}

void ModelRegistry::setBaseURL(std::string baseURL) {
    std::lock_guard lock(mutex_);
    baseURL_ = withoutTrailingSlashes(std::move(baseURL));
}

std::string ModelRegistry::checked(std::string url) const {
    if (!hasSchemeAndHost(url)) throw ModelRegistryError(url);
    return url;
}

std::string ModelRegistry::apiModels(const std::string& repo, const std::string& path) const {
    return checked(baseURL() + "/api/models/" + corvane::http::percentEncodePath(repo) + "/" +
                   corvane::http::percentEncodePath(path));
}

std::string ModelRegistry::resolveModel(const std::string& repo, const std::string& path) const {
    return checked(baseURL() + "/" + corvane::http::percentEncodePath(repo) + "/resolve/main/" +
                   corvane::http::percentEncodePath(path));
}

}  // namespace speech
