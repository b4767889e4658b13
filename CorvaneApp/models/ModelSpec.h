#pragma once
// One single-file model the cache can fetch: where it lives, its name on disk and how to check it.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/coordinator/ModelIdentifier.h"

namespace corvane {

struct ModelSpec {
    ModelIdentifier identifier;
    std::string downloadURL;
    std::string filename;
    std::optional<std::uint64_t> expectedSizeBytes;  // for progress when the server gives no length
    std::optional<std::string> sha256;               // hexadecimal; absent means no check

    bool operator==(const ModelSpec&) const = default;
};

}  // namespace corvane

template <>
struct std::hash<corvane::ModelSpec> {
    size_t operator()(const corvane::ModelSpec& spec) const noexcept {
        size_t h = std::hash<corvane::ModelIdentifier>{}(spec.identifier);
        h = h * 31 + std::hash<std::string>{}(spec.downloadURL);
        h = h * 31 + std::hash<std::string>{}(spec.filename);
        h = h * 31 + std::hash<std::optional<std::uint64_t>>{}(spec.expectedSizeBytes);
        return h * 31 + std::hash<std::optional<std::string>>{}(spec.sha256);
    }
};
