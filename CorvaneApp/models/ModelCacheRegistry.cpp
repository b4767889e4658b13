#include "CorvaneApp/models/ModelCacheRegistry.h"

#include <algorithm>

#include "CorvaneApp/models/ModelCatalogue.h"

namespace corvane {

ModelCacheRegistry::ModelCacheRegistry(HubSettings hub) : hub_(std::move(hub)) {
    const std::string whisperFile = "ggml-large-v3-turbo-q5_0.bin";
    all_.push_back(ModelSpec{
        whisperModelIdentifier(),
        hub_.baseURL + "/ggerganov/whisper.cpp/resolve/main/" + whisperFile,
        whisperFile,
        574041195,
        std::nullopt,
    });
}

std::optional<ModelSpec> ModelCacheRegistry::spec(const ModelIdentifier& identifier) const {
    auto found = std::find_if(all_.begin(), all_.end(),
                              [&](const ModelSpec& s) { return s.identifier == identifier; });
    if (found == all_.end()) return std::nullopt;
    return *found;
}

}  // namespace corvane
