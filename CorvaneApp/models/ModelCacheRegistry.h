#pragma once
// The fixed list of models that the cache fetches as single files, with the hub they come from.

#include <optional>
#include <vector>

#include "CorvaneApp/models/HubSettings.h"
#include "CorvaneApp/models/ModelSpec.h"

namespace corvane {

class ModelCacheRegistry {
  public:
    // Whisper's weights on the hub, the one entry the product has.
    explicit ModelCacheRegistry(HubSettings hub = HubSettings::fromEnvironment());
    // Another list, for a local hub or for tests.
    ModelCacheRegistry(HubSettings hub, std::vector<ModelSpec> entries)
        : hub_(std::move(hub)), all_(std::move(entries)) {}

    const std::vector<ModelSpec>& all() const { return all_; }
    // The first entry whose identifier matches in all three fields.
    std::optional<ModelSpec> spec(const ModelIdentifier& identifier) const;
    const HubSettings& hub() const { return hub_; }

  private:
    HubSettings hub_;
    std::vector<ModelSpec> all_;
};

}  // namespace corvane
