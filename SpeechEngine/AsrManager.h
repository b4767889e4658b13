#pragma once
// The recogniser's entry: holds the loaded networks, runs preprocessor, encoder and decoder on
// one window, or hands long recordings to the chunked path, and turns tokens into an ASRResult.
// Calls may come from several threads; the lock guards only the held models and is never held
// while a network runs.

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <stop_token>
#include <string>

#include "CorvaneApp/platform/Clock.h"
#include "SpeechEngine/ASRConfig.h"
#include "SpeechEngine/ASRResult.h"
#include "SpeechEngine/AsrModels.h"
#include "SpeechEngine/AudioConverter.h"
#include "SpeechEngine/ProgressEmitter.h"
#include "SpeechEngine/TdtDecoderState.h"
#include "SpeechEngine/TdtHypothesis.h"
#include "SpeechEngine/TokenLanguageFilter.h"

namespace spdlog {
class logger;
}

namespace speech {

class AsrManager {
  public:
    static constexpr int windowSamples = 240000;  // what one encoder run takes: 15 s
    static constexpr int frameSamples = 1280;     // one encoder frame: 0.08 s

    struct InferenceResult {
        TdtHypothesis hypothesis;
        int encoderSequenceLength = 0;
    };

    explicit AsrManager(ASRConfig config = ASRConfig::defaultConfig(),
                        corvane::NowFunction now = corvane::systemNow);
    // Ready at once with `models`.
    AsrManager(ASRConfig config, AsrModels models, corvane::NowFunction now = corvane::systemNow);
    AsrManager(const AsrManager&) = delete;
    AsrManager& operator=(const AsrManager&) = delete;

    void loadModels(AsrModels models);
    bool isAvailable() const;
    // 1 for the tdtCtc110m set, else 2.
    int decoderLayerCount() const;
    const ASRConfig& config() const { return config_; }
    std::optional<AsrModels> asrModels() const;
    corvane::Date now() const { return now_(); }
    // Installs the script filter used when a language is asked of a v3 model; null removes it.
    void setLanguageFilter(std::shared_ptr<const TokenLanguageFilter> filter);

    // Transcribes 16 kHz mono samples. Up to one window it decodes with `decoderState`, updated
    // in place; longer input goes through the chunked path with a state per chunk. Throws
    // ASRError, CancellationError, or a network's own error.
    ASRResult transcribe(std::span<const float> samples, TdtDecoderState& decoderState,
                         const std::optional<std::string>& language = std::nullopt,
                         std::stop_token stop = {});

    // The same for an audio file of any format FFmpeg reads, or a buffer of any rate and
    // channel count, converted first. A file that can't be read or decoded throws
    // ASRError::fileAccessFailed; a buffer that can't be converted, the converter's error.
    ASRResult transcribe(const std::filesystem::path& audioFile, TdtDecoderState& decoderState,
                         const std::optional<std::string>& language = std::nullopt,
                         std::stop_token stop = {});
    ASRResult transcribe(const AudioBuffer& buffer, TdtDecoderState& decoderState,
                         const std::optional<std::string>& language = std::nullopt,
                         std::stop_token stop = {});

    // Runs the networks on one padded window and decodes it.
    InferenceResult executeMLInferenceWithTimings(
        std::span<const float> paddedSamples, std::optional<int> originalLength,
        std::optional<int> actualAudioFrames, TdtDecoderState& decoderState,
        int contextFrameAdjustment, bool isLastChunk, int globalFrameOffset,
        const std::optional<std::string>& language, std::stop_token stop = {});

    std::string convertTokensToText(std::span<const int> tokens) const;
    std::vector<TokenTiming> createTokenTimings(std::span<const int> tokenIds,
                                                std::span<const int> timestamps,
                                                std::span<const float> confidences,
                                                std::span<const int> durations) const;

    // Progress of transcriptions longer than one window.
    std::shared_ptr<ProgressEmitter::Stream> transcriptionProgressStream() {
        return progress_.stream();
    }
    // Ends any progress session.
    void reset();
    // Releases the networks; the manager needs loadModels() again.
    void cleanup();

  private:
    struct Loaded;
    std::shared_ptr<const Loaded> snapshot() const;
    ASRResult transcribeWithState(std::span<const float> samples, TdtDecoderState& decoderState,
                                  const std::optional<std::string>& language, std::stop_token stop);

    const ASRConfig config_;
    const corvane::NowFunction now_;
    std::shared_ptr<spdlog::logger> logger_;
    ProgressEmitter progress_;
    const AudioConverter audioConverter_;

    mutable std::mutex mutex_;
    std::shared_ptr<const Loaded> loaded_;                       // guarded by mutex_
    std::shared_ptr<const TokenLanguageFilter> languageFilter_;  // guarded by mutex_
};

}  // namespace speech
