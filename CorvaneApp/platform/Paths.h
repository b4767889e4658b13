#pragma once
// Where Corvane keeps its files on Linux, following the XDG base directories.

#include <filesystem>

namespace corvane::paths {

std::filesystem::path home();           // $HOME, else the password database
std::filesystem::path varnixDir();      // ~/.varnix-compute (shared with the command-line daemon)
std::filesystem::path configHome();     // $XDG_CONFIG_HOME or ~/.config
std::filesystem::path dataHome();       // $XDG_DATA_HOME or ~/.local/share
std::filesystem::path stateHome();      // $XDG_STATE_HOME or ~/.local/state
std::filesystem::path cacheHome();      // $XDG_CACHE_HOME or ~/.cache
std::filesystem::path appConfigDir();   // configHome()/Corvane
std::filesystem::path logDir();         // stateHome()/Corvane/logs
std::filesystem::path shardAudioDir();  // cacheHome()/Corvane/shards: downloaded shard audio

}  // namespace corvane::paths
