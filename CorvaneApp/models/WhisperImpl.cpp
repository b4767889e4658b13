#include "CorvaneApp/models/WhisperImpl.h"

#include <malloc.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cmath>
#include <random>
#include <stdexcept>
#include <system_error>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/models/WhisperBackendError.h"
#include "CorvaneApp/models/WhisperCpuBackend.h"
#include "CorvaneApp/models/WhisperLogRouting.h"
#include "CorvaneApp/models/WhisperModelFile.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// Settings are clamped by the store; this only keeps a stray NaN or infinity from the conversion.
std::int64_t roundedPercent(double value) {
    if (!std::isfinite(value)) return 0;
    return static_cast<std::int64_t>(std::round(std::clamp(value, -1e15, 1e15)));
}

// The first 8 characters of a new UUID's text: ties the two lines of one choice together.
std::string makeNonce() {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::random_device source;
    std::uniform_int_distribution<int> digit(0, 15);
    std::string nonce(8, '0');
    for (char& c : nonce) c = kHex[digit(source)];
    return nonce;
}

[[noreturn]] void throwBackendCrashed(const WhisperBackendError& error) {
    throw ModelError(ModelError::BackendCrashed{error.description()});
}

}  // namespace

WhisperImpl::WhisperImpl(std::filesystem::path modelFileURL, Options options)
    : modelFileURL_(std::move(modelFileURL)),
      options_(std::move(options)),
      log_(log::get("WhisperHandler")) {
    const auto& in = options_.threadInputs;
    if (!in.settings || !in.secondsSinceLastInput || !in.runtimeEffectivePercent ||
        !in.activeProcessorCount) {
        throw std::invalid_argument("WhisperImpl needs every thread input");
    }
    ctx_ = loadContext();
}

WhisperImpl::Context WhisperImpl::loadContext() const {
    std::error_code error;
    if (!std::filesystem::exists(modelFileURL_, error)) {
        log_->error("Model file missing at {}", modelFileURL_.string());
        throw ModelError(ModelError::ModelNotInstalled{});
    }
    if (auto problem = WhisperModelFile::problem(modelFileURL_)) {
        log_->error("Model file at {} is not a whole whisper model: {}", modelFileURL_.string(),
                    *problem);
        throwBackendCrashed(WhisperBackendError(WhisperBackendError::ContextInitFailed{}));
    }
    routeWhisperLogs();
    loadWhisperCpuBackend();
    // Acceleration and every other context choice stay at the library's defaults.
    const whisper_context_params params = whisper_context_default_params();
    whisper_context* context = nullptr;
    try {
        context = whisper_init_from_file_with_params_no_state(modelFileURL_.c_str(), params);
    } catch (const std::exception& thrown) {
        // The loader is C++ underneath: a file with absurd sizes can make it throw.
        log_->error("whisper.cpp threw while loading {}: {}", modelFileURL_.string(),
                    thrown.what());
    }
    if (!context) {
        log_->error("whisper_init_from_file_with_params returned NULL for {}",
                    modelFileURL_.string());
        throwBackendCrashed(WhisperBackendError(WhisperBackendError::ContextInitFailed{}));
    }
    return Context(context);
}

void WhisperImpl::reloadWeights() {
    if (options_.admitReload) {
        if (auto refusal = options_.admitReload()) {
            log_->error("Whisper weights not reloaded for {}: {}", modelFileURL_.string(),
                        *refusal);
            throw ModelError(ModelError::BackendCrashed{"weights not reloaded: " + *refusal});
        }
    }
    log_->info("reloading the Whisper weights from {}", modelFileURL_.string());
    const auto started = std::chrono::steady_clock::now();
    try {
        ctx_ = loadContext();
    } catch (const ModelError&) {
        if (options_.reloadFailed) options_.reloadFailed();
        throw;
    }
    log_->info("Whisper weights reloaded in {:.2f} s",
               std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count());
}

WeightsRelease WhisperImpl::releaseWeights() {
    std::unique_lock lock(contextMutex_, std::try_to_lock);
    if (!lock.owns_lock()) return WeightsRelease::busy;
    if (!ctx_) return WeightsRelease::nothingHeld;
    state_.reset();
    ctx_.reset();
    // The weights were one large block and go back at once; this returns what smaller pieces of
    // the vocabulary and the state left in the heap.
    ::malloc_trim(0);
    log_->info(
        "Whisper weights released while the worker is paused; the next shard loads them "
        "again from {}",
        modelFileURL_.string());
    return WeightsRelease::released;
}

bool WhisperImpl::weightsLoaded() {
    std::lock_guard lock(contextMutex_);
    return static_cast<bool>(ctx_);
}

std::unique_ptr<WhisperImpl> WhisperImpl::fromDirectory(const std::filesystem::path& modelDirectory,
                                                        Options options) {
    return std::make_unique<WhisperImpl>(modelDirectory / defaultModelFilename, std::move(options));
}

WhisperImpl::~WhisperImpl() = default;

std::int64_t WhisperImpl::threadCount(std::int64_t cpuPercent, std::int64_t cpuCount) {
    const std::int64_t percent = std::max<std::int64_t>(cpuPercent, 0);
    const std::int64_t count = std::max<std::int64_t>(cpuCount, 1);
    const double wanted =
        std::round(static_cast<double>(percent) / 100.0 * static_cast<double>(count));
    return static_cast<std::int64_t>(std::clamp(wanted, 1.0, static_cast<double>(count)));
}

bool WhisperImpl::isInUse(double idleMinutes, std::optional<double> secondsSinceLastInput) {
    const double minutes = std::isfinite(idleMinutes) ? std::max(idleMinutes, 0.0) : 0.0;
    const double threshold = minutes * 60.0;
    return threshold > 0 && secondsSinceLastInput.value_or(0.0) < threshold;
}

WhisperThreadSelection WhisperImpl::currentThreadCount() const {
    const auto& in = options_.threadInputs;
    const WhisperThreadInputs::Settings settings = in.settings();
    const bool inUse = isInUse(settings.idleMinutes, in.secondsSinceLastInput());

    WhisperThreadSelection selection;
    selection.resourceMode = inUse ? "in_use" : "away";
    selection.userPercent =
        roundedPercent(inUse ? settings.inUseCpuCeiling : settings.awayCpuCeiling);
    selection.effectivePercent = in.runtimeEffectivePercent().value_or(selection.userPercent);
    selection.cpuCount = in.activeProcessorCount();
    selection.threads = threadCount(selection.effectivePercent, selection.cpuCount);

    const std::string nonce = makeNonce();
    log_->info("whisper_thread_select nonce={} threads={} effective_percent={} user_percent={}",
               nonce, selection.threads, selection.effectivePercent, selection.userPercent);
    log_->info("whisper_thread_select nonce={} cpu_count={} resource_mode={}", nonce,
               selection.cpuCount, selection.resourceMode);
    return selection;
}

std::string WhisperImpl::transcribe(std::span<const float> pcm, std::stop_token stop) {
    if (pcm.empty()) throw ModelError(ModelError::InvalidInput{"empty PCM input"});
    const WhisperThreadSelection selection = currentThreadCount();
    // whisper.cpp counts both in C ints; 2^31 samples would be 37 hours of audio.
    if (selection.threads > INT_MAX || pcm.size() > static_cast<std::size_t>(INT_MAX)) {
        throw ModelError(ModelError::InvalidInput{"PCM input of " + std::to_string(pcm.size()) +
                                                  " samples is too long for whisper.cpp"});
    }

    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = static_cast<int>(selection.threads);
    params.translate = false;
    params.no_timestamps = false;
    params.print_special = false;
    params.print_progress = false;
    params.print_realtime = false;
    params.print_timestamps = false;
    params.language = "en";  // a literal: outlives every call; no detection, no other language
    // A worker that stops does not wait for the rest of a long shard.
    params.abort_callback = [](void* token) {
        return static_cast<std::stop_token*>(token)->stop_requested();
    };
    params.abort_callback_user_data = &stop;

    std::lock_guard lock(contextMutex_);
    // A stop that came while another run held the context: this one does not start.
    if (stop.stop_requested()) throw ModelError(ModelError::BackendCrashed{"inference cancelled"});
    if (!ctx_) reloadWeights();
    if (!state_) {
        state_.reset(whisper_init_state(ctx_.get()));
        if (!state_) {
            log_->error("whisper_init_state returned NULL for {}", modelFileURL_.string());
            throwBackendCrashed(WhisperBackendError(WhisperBackendError::ContextInitFailed{}));
        }
    }
    int status = 0;
    try {
        const int count = static_cast<int>(pcm.size());
        status = options_.full
                     ? options_.full(ctx_.get(), state_.get(), params, pcm.data(), count)
                     : whisper_full_with_state(ctx_.get(), state_.get(), params, pcm.data(), count);
    } catch (const std::exception& thrown) {
        // whisper.cpp is C++ underneath its C interface and can throw through it.
        log_->error("whisper_full threw: {}", thrown.what());
        throw ModelError(ModelError::BackendCrashed{thrown.what()});
    }
    if (stop.stop_requested()) throw ModelError(ModelError::BackendCrashed{"inference cancelled"});
    if (status != 0) {
        log_->error("whisper_full failed with status {}", status);
        throwBackendCrashed(WhisperBackendError(WhisperBackendError::InferenceFailed{status}));
    }
    std::string text;
    const int segments = whisper_full_n_segments_from_state(state_.get());
    for (int i = 0; i < segments; ++i) {
        if (const char* segment = whisper_full_get_segment_text_from_state(state_.get(), i))
            text += segment;
    }
    return std::string(trimAsciiWhitespace(text));
}

ModelOutput WhisperImpl::run(const ModelInput& input) {
    return ModelOutput{
        TranscriptResult{transcribe(audioSamplesAt16kHz(input, "WhisperImpl")), std::nullopt, {}}};
}

}  // namespace corvane
