#pragma once
// The models this system knows: their identifiers, display names, needs and download sizes.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/models/HardwareRequirements.h"

namespace corvane {

struct ModelCatalogueEntry {
    ModelIdentifier identifier;
    std::string displayName;
    HardwareRequirements requirements;
    std::uint64_t downloadSizeBytes = 0;  // shown before the download starts
};

ModelIdentifier whisperModelIdentifier();
ModelIdentifier parakeetModelIdentifier();

// Whisper, then Parakeet.
const std::vector<ModelCatalogueEntry>& modelCatalogue();
// The entry whose identifier matches in all three fields.
std::optional<ModelCatalogueEntry> catalogueEntry(const ModelIdentifier& identifier);
// The catalogue's name for a known model; any other identifier shows its `model` string.
std::string modelDisplayName(const ModelIdentifier& identifier);

}  // namespace corvane
