#pragma once
// Reading environment variables through a function given at construction, so that tests never
// touch the process environment.

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

namespace speech {

// The value of a variable, or absent when it is not set.
using EnvironmentLookup = std::function<std::optional<std::string>(const std::string& name)>;

inline EnvironmentLookup processEnvironment() {
    return [](const std::string& name) -> std::optional<std::string> {
        const char* value = std::getenv(name.c_str());
        if (!value) return std::nullopt;
        return std::string(value);
    };
}

}  // namespace speech
