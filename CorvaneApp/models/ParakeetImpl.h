#pragma once
// The engine behind ParakeetHandler: the speech engine's TDT recogniser over the v2 model set in
// one folder. The networks load at the first shard and stay for every later one; each shard
// decodes with a state of its own, so shards may run at once.

#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <stop_token>
#include <string>

#include <spdlog/logger.h>

#include "CorvaneApp/coordinator/JobRecords.h"
#include "CorvaneApp/models/ParakeetRuntime.h"
#include "SpeechEngine/AsrManager.h"

namespace corvane {

class ParakeetImpl {
  public:
    static constexpr const char* displayName = "speech-engine-parakeet";
    static constexpr bool requiresCPPLink = false;
    static constexpr bool requiresPythonSidecar = false;

    // Checks that the v2 set is in `modelDirectory` and loads nothing yet. Throws
    // ModelError::ModelNotInstalled when it is not there; std::invalid_argument without a runtime.
    ParakeetImpl(std::filesystem::path modelDirectory,
                 std::shared_ptr<const ParakeetRuntime> runtime);

    // The text of 16 kHz mono samples; no language is asked or detected. Throws the engine's
    // errors as they are (ASRError for a clip below its minimum, the load's errors at first use).
    std::string transcribe(std::span<const float> pcm, std::stop_token stop = {});
    // The generic entry: audio input only, at 16 kHz.
    ModelOutput run(const ModelInput& input);

    const std::filesystem::path& modelDirectory() const { return modelDirectory_; }

  private:
    std::shared_ptr<speech::AsrManager> loadedManager(std::stop_token stop);

    const std::filesystem::path modelDirectory_;
    const std::shared_ptr<const ParakeetRuntime> runtime_;
    const std::shared_ptr<spdlog::logger> log_;
    // Held across the first load, so that shards arriving together load the networks once.
    std::mutex loadMutex_;
    std::shared_ptr<speech::AsrManager> managerCache_;  // guarded by loadMutex_
};

}  // namespace corvane
