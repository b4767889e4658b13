#pragma once
// Names a model: the back-end that runs it, its name there and the version of its packaging.

#include <functional>
#include <optional>
#include <string>

#include "CorvaneApp/coordinator/JsonCoding.h"

namespace corvane {

struct ModelIdentifier {
    std::string backend;
    std::string model;
    std::string version;

    bool operator==(const ModelIdentifier&) const = default;

    Json encode() const {
        return Json{{"backend", backend}, {"model", model}, {"version", version}};
    }
    // Absent for anything that is not an object with the three string keys.
    static std::optional<ModelIdentifier> decodeLeniently(const Json& json);
};

// The model of a claim that names none.
inline ModelIdentifier defaultModelIdentifier() {
    return {"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "1"};
}

}  // namespace corvane

template <>
struct std::hash<corvane::ModelIdentifier> {
    size_t operator()(const corvane::ModelIdentifier& id) const noexcept {
        size_t h = std::hash<std::string>{}(id.backend);
        h = h * 31 + std::hash<std::string>{}(id.model);
        return h * 31 + std::hash<std::string>{}(id.version);
    }
};
