#include "CorvaneApp/models/ModelCatalogue.h"

#include <algorithm>

namespace corvane {
namespace {

HardwareRequirements everyTier(std::int64_t minRAMGB, std::int64_t minDiskGB) {
    return {minRAMGB, minDiskGB, {allChipTiers.begin(), allChipTiers.end()}};
}

}  // namespace

// The name says q4 although the weights behind it are q5_0; both strings are fixed on the wire.
ModelIdentifier whisperModelIdentifier() {
    return defaultModelIdentifier();
}

ModelIdentifier parakeetModelIdentifier() {
    return {"speech-engine-native", "parakeet-tdt-0.6b-v2", "1"};
}

const std::vector<ModelCatalogueEntry>& modelCatalogue() {
    static const std::vector<ModelCatalogueEntry> entries{
        {whisperModelIdentifier(), "Whisper large-v3 turbo", everyTier(8, 2), 574041195},
        {parakeetModelIdentifier(), "Parakeet TDT v2", everyTier(8, 2), 1300000000},
    };
    return entries;
}

std::optional<ModelCatalogueEntry> catalogueEntry(const ModelIdentifier& identifier) {
    const auto& entries = modelCatalogue();
    auto found = std::find_if(
        entries.begin(), entries.end(),
        [&](const ModelCatalogueEntry& entry) { return entry.identifier == identifier; });
    if (found == entries.end()) return std::nullopt;
    return *found;
}

std::string modelDisplayName(const ModelIdentifier& identifier) {
    auto entry = catalogueEntry(identifier);
    return entry ? entry->displayName : identifier.model;
}

}  // namespace corvane
