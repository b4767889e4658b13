#pragma once
// The engine behind WhisperHandler: one whisper.cpp context over one model file, loaded at
// construction and used for every shard; its working state (tens of megabytes of buffers) is made
// at the first shard, so an idle worker doesn't carry it, with the thread count chosen afresh for
// each run from the owner's CPU limits, the idle time and the runtime-state file. A paused worker
// may release the weights; the next run loads them again from the same file.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include <spdlog/logger.h>
#include <whisper.h>

#include "CorvaneApp/coordinator/JobRecords.h"
#include "CorvaneApp/models/ModelHandler.h"

namespace corvane {

// What the thread count is made of. Every function is called from the inference's thread; the
// start-up code wires them to the settings store (hopping to the main executor), the idle-time
// sources, the runtime-state file and the processor count.
struct WhisperThreadInputs {
    struct Settings {
        double idleMinutes = 0;
        double inUseCpuCeiling = 0;  // percent
        double awayCpuCeiling = 0;   // percent
    };
    std::function<Settings()> settings;
    // Seconds since the last input; absent when no source answers, which counts as not idle.
    std::function<std::optional<double>()> secondsSinceLastInput;
    // thermal.effectiveResourcePercent of the runtime-state file, rounded; absent when unknown.
    std::function<std::optional<std::int64_t>()> runtimeEffectivePercent;
    std::function<std::int64_t()> activeProcessorCount;
};

// One thread choice and what it was made of, as logged.
struct WhisperThreadSelection {
    std::int64_t threads = 1;
    std::int64_t effectivePercent = 0;
    std::int64_t userPercent = 0;
    std::int64_t cpuCount = 1;
    std::string resourceMode;  // "in_use" or "away"
};

class WhisperImpl {
  public:
    static constexpr const char* displayName = "whisper-cpp-swift";
    static constexpr bool requiresCPPLink = true;
    static constexpr bool requiresPythonSidecar = false;
    static constexpr const char* defaultModelFilename = "ggml-large-v3-turbo-q5_0.bin";

    // The call that runs the model. whisper_full_with_state in production; tests and benchmarks
    // may wrap it to watch or fail a run.
    using FullFunction = std::function<int(whisper_context*, whisper_state*, whisper_full_params,
                                           const float*, int)>;

    struct Options {
        WhisperThreadInputs threadInputs;
        FullFunction full;  // empty: whisper_full_with_state
        // Asked, on the run's thread, before released weights are loaded again: a text refuses
        // the reload and says why (memory admission's reason). Empty: always admitted.
        std::function<std::optional<std::string>()> admitReload;
        // Told, on the run's thread, when released weights could not be loaded again (the file
        // is gone or no longer a model), so that the owner can fetch it anew. May be empty.
        std::function<void()> reloadFailed;
    };

    // Loads the model with the library's default context parameters. Throws ModelError:
    // ModelNotInstalled when no file is there, BackendCrashed(contextInitFailed) when whisper.cpp
    // refuses it (truncated, corrupt, not a model). std::invalid_argument for missing inputs.
    WhisperImpl(std::filesystem::path modelFileURL, Options options);
    // The model file defaultModelFilename in `modelDirectory`.
    static std::unique_ptr<WhisperImpl> fromDirectory(const std::filesystem::path& modelDirectory,
                                                      Options options);
    ~WhisperImpl();
    WhisperImpl(const WhisperImpl&) = delete;
    WhisperImpl& operator=(const WhisperImpl&) = delete;

    // English transcription of 16 kHz mono samples, segments joined and trimmed. The samples go
    // to whisper.cpp without a copy. Runs of one context take turns: whisper.cpp's context is not
    // safe for concurrent use. A requested `stop` ends the run early, also inside an encoder
    // window. Released weights are loaded again first. Throws ModelError (InvalidInput for no
    // samples, BackendCrashed when whisper.cpp fails, the run was stopped or the reload was
    // refused, and the constructor's errors of a failed reload).
    std::string transcribe(std::span<const float> pcm, std::stop_token stop = {});

    // Frees the weights and the working state, unless a run holds them (busy); never waits.
    WeightsRelease releaseWeights();
    bool weightsLoaded();
    // The generic entry: audio input only, at 16 kHz.
    ModelOutput run(const ModelInput& input);

    // percent / 100 x count, rounded half away from zero, within 1...count; a negative percent
    // counts as 0 and a count below 1 as 1.
    static std::int64_t threadCount(std::int64_t cpuPercent, std::int64_t cpuCount);
    // Reads the inputs and logs the choice.
    WhisperThreadSelection currentThreadCount() const;
    // The computer is in use while the seconds since the last input are under the idle threshold;
    // a threshold of 0 (or less) is never in use, no reading always is.
    static bool isInUse(double idleMinutes, std::optional<double> secondsSinceLastInput);

    const std::filesystem::path& modelFileURL() const { return modelFileURL_; }

  private:
    struct ContextDeleter {
        void operator()(whisper_context* context) const { whisper_free(context); }
    };
    struct StateDeleter {
        void operator()(whisper_state* state) const { whisper_free_state(state); }
    };
    using Context = std::unique_ptr<whisper_context, ContextDeleter>;

    // The file's checks and whisper.cpp's load; throws as the constructor does.
    Context loadContext() const;
    // Under contextMutex_: memory admission, then loadContext().
    void reloadWeights();

    const std::filesystem::path modelFileURL_;
    const Options options_;
    const std::shared_ptr<spdlog::logger> log_;
    // Held for one run (a reload, whisper_full and the reading of its segments) and to release.
    std::mutex contextMutex_;
    Context ctx_;  // guarded by contextMutex_; empty once released
    // Made at the first run, under contextMutex_; declared after ctx_ so it goes first.
    std::unique_ptr<whisper_state, StateDeleter> state_;
};

}  // namespace corvane
