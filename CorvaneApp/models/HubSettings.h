#pragma once
// Where the model hub lives and the token to show it, from the environment the hub tools share.

#include <functional>
#include <optional>
#include <string>

namespace corvane {

struct HubSettings {
    static constexpr const char* defaultBaseURL = "https://huggingface.co";

    std::string baseURL = defaultBaseURL;  // no trailing '/'
    std::optional<std::string> token;      // sent as a bearer token to the hub only; never stored

    using EnvironmentReader = std::function<std::optional<std::string>(const char* name)>;
    // Base: "REGISTRY_URL", else "MODEL_REGISTRY_URL", else the public hub. Token: the first set
    // of "HF_TOKEN", "HUGGING_FACE_HUB_TOKEN", "HUGGINGFACEHUB_API_TOKEN". Empty values count as
    // unset.
    static HubSettings fromEnvironment(const EnvironmentReader& read);
    static HubSettings fromEnvironment();

    // Whether `url` points into the hub, and so may carry the token.
    bool isHubURL(const std::string& url) const;
};

}  // namespace corvane
