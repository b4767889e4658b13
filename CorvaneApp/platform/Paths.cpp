#include "CorvaneApp/platform/Paths.h"

#include <pwd.h>
#include <unistd.h>
#include <cstdlib>

namespace corvane::paths {
namespace {

std::filesystem::path fromEnv(const char* name, const std::filesystem::path& fallback) {
    const char* value = std::getenv(name);
    // XDG says a relative value is invalid and must be ignored.
    if (value && *value && value[0] == '/') return value;
    return fallback;
}

}  // namespace

std::filesystem::path home() {
    if (const char* value = std::getenv("HOME"); value && *value) return value;
    if (const passwd* entry = ::getpwuid(::getuid()); entry && entry->pw_dir) return entry->pw_dir;
    return "/";
}

std::filesystem::path varnixDir() {
    return home() / ".varnix-compute";
}
std::filesystem::path configHome() {
    return fromEnv("XDG_CONFIG_HOME", home() / ".config");
}
std::filesystem::path dataHome() {
    return fromEnv("XDG_DATA_HOME", home() / ".local" / "share");
}
std::filesystem::path stateHome() {
    return fromEnv("XDG_STATE_HOME", home() / ".local" / "state");
}
std::filesystem::path cacheHome() {
    return fromEnv("XDG_CACHE_HOME", home() / ".cache");
}
std::filesystem::path appConfigDir() {
    return configHome() / "Corvane";
}
std::filesystem::path logDir() {
    return stateHome() / "Corvane" / "logs";
}
std::filesystem::path shardAudioDir() {
    return cacheHome() / "Corvane" / "shards";
}

}  // namespace corvane::paths
