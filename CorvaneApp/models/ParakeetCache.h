#pragma once
// Installs, finds and removes Parakeet's model set on disk. The set is a folder of compiled
// networks that the speech engine fetches itself, so it stays outside ModelCache.

#include <filesystem>
#include <functional>
#include <memory>
#include <stop_token>

#include "CorvaneApp/models/ParakeetRuntime.h"

namespace corvane {

class ParakeetCache {
  public:
    // $XDG_DATA_HOME/VarnixCompute/models/parakeet-tdt-0.6b-v2.
    static std::filesystem::path defaultDirectory();

    // `runtime` may be null: the set can then be found and removed, not installed.
    ParakeetCache(std::filesystem::path directory, std::shared_ptr<const ParakeetRuntime> runtime);

    const std::filesystem::path& directory() const { return directory_; }
    const std::shared_ptr<const ParakeetRuntime>& runtime() const { return runtime_; }
    // Every network and the vocabulary of the v2 set are in the folder; nothing is opened.
    bool isInstalled() const;
    // Installed and runnable here: only then may the computer advertise or load Parakeet.
    bool canServe() const { return runtime_ && isInstalled(); }
    // Fetches what is missing and proves it loads; `progress` hears fractions within 0...1.
    // Throws ParakeetCacheError, or the engine's download errors as they are.
    void install(const std::function<void(double)>& progress, std::stop_token stop = {}) const;
    // Deletes the folder whole; a missing folder is fine, a failed deletion throws
    // std::filesystem::filesystem_error.
    void remove() const;

  private:
    const std::filesystem::path directory_;
    const std::shared_ptr<const ParakeetRuntime> runtime_;
};

}  // namespace corvane
