#pragma once
// The sample session's stand-in for model downloads: a model "downloads" in steps on the main
// sequence's timers, from nothing to its catalogue size, and is then installed. Removing a model
// frees its catalogue size. Nothing touches the network or the disk.

#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_set>

#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/models/ModelDownloadProgress.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class DemoModelDownload {
  public:
    static constexpr int steps = 24;
    static constexpr double stepSeconds = 0.5;

    // `onChange` is told after each step, with the progress and the installed models.
    DemoModelDownload(Executor& mainSequence,
                      std::function<void(const std::optional<ModelDownloadProgress>&,
                                         const std::unordered_set<ModelIdentifier>&)>
                          onChange);

    // Starts (or restarts) `identifier`'s download; one model at a time, the newest wins.
    void start(const ModelIdentifier& identifier);
    // Installed at once, as if downloaded before.
    void markInstalled(const ModelIdentifier& identifier);
    // Bytes freed; a download of that model in progress is dropped.
    std::uint64_t remove(const ModelIdentifier& identifier);

    const std::unordered_set<ModelIdentifier>& installed() const { return installed_; }

  private:
    void step();
    void tell() { onChange_(progress_, installed_); }

    Executor& main_;
    std::function<void(const std::optional<ModelDownloadProgress>&,
                       const std::unordered_set<ModelIdentifier>&)>
        onChange_;
    std::optional<ModelIdentifier> downloading_;
    int step_ = 0;
    std::optional<ModelDownloadProgress> progress_;
    std::unordered_set<ModelIdentifier> installed_;
    TimerHandle timer_;
};

}  // namespace corvane
