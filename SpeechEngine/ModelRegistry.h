#pragma once
// Builds the hub's URLs for listing and fetching repository files. The base comes from
// "REGISTRY_URL", else "MODEL_REGISTRY_URL", else the public hub, and can be changed later.

#include <mutex>
#include <stdexcept>
#include <string>

#include "SpeechEngine/Environment.h"

namespace speech {

class ModelRegistryError : public std::runtime_error {
  public:
    explicit ModelRegistryError(const std::string& url)
        : std::runtime_error("Invalid URL construction: " + url) {}
};

class ModelRegistry {
  public:
    static constexpr const char* huggingFaceBaseURL = "https://huggingface.co";

    // Variables set to an empty value count as unset.
    explicit ModelRegistry(const EnvironmentLookup& environment);

    std::string baseURL() const;
    void setBaseURL(std::string baseURL);

    // base + "/api/models/" + repo + "/" + path. Throws ModelRegistryError for a base that is not
    // an http(s) URL with a host.
    std::string apiModels(const std::string& repo, const std::string& path) const;
    // base + "/" + repo + "/resolve/main/" + path.
    std::string resolveModel(const std::string& repo, const std::string& path) const;

  private:
    std::string checked(std::string url) const;

    mutable std::mutex mutex_;
    std::string baseURL_;  // guarded by mutex_, without trailing "/"
};

}  // namespace speech
