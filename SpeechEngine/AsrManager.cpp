#include "SpeechEngine/AsrManager.h"

#include <cmath>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Text.h"
#include "SpeechEngine/ASRError.h"
#include "SpeechEngine/AudioConverterError.h"
#include "SpeechEngine/AudioSampleSource.h"
#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/ChunkProcessor.h"
#include "SpeechEngine/TdtDecoderV2.h"
#include "SpeechEngine/TranscriptAssembly.h"

namespace speech {

struct AsrManager::Loaded {
    AsrModels models;
    std::shared_ptr<const TokenLanguageFilter> languageFilter;
};

namespace {

constexpr int progressThreshold = 240000;

const MultiArray& requireOutput(const FeatureMap& outputs, const char* name, const char* message) {
    const auto* array = outputs.find(name);
    if (!array || array->count() < 1) throw ASRError::processingFailed(message);
    return *array;
}

}  // namespace

AsrManager::AsrManager(ASRConfig config, corvane::NowFunction now)
    : config_(std::move(config)),
      now_(std::move(now)),
      logger_(corvane::log::get("AsrManager")),
      audioConverter_(config_.sampleRate) {}

AsrManager::AsrManager(ASRConfig config, AsrModels models, corvane::NowFunction now)
    : AsrManager(std::move(config), std::move(now)) {
    loaded_ = std::make_shared<const Loaded>(Loaded{std::move(models), nullptr});
}

void AsrManager::loadModels(AsrModels models) {
    logger_->info("Loading AsrManager with provided models");
    {
        std::lock_guard lock(mutex_);
        loaded_ = std::make_shared<const Loaded>(Loaded{std::move(models), languageFilter_});
    }
    logger_->info("AsrManager loaded successfully with provided models");
}

std::shared_ptr<const AsrManager::Loaded> AsrManager::snapshot() const {
    std::lock_guard lock(mutex_);
    return loaded_;
}

bool AsrManager::isAvailable() const {
    auto loaded = snapshot();
    if (!loaded) return false;
    const auto& m = loaded->models;
    bool needsEncoder = modelFiles(m.version).encoder.has_value();
    return m.preprocessor && m.decoder && m.joint && (!needsEncoder || m.encoder);
}

int AsrManager::decoderLayerCount() const {
    auto loaded = snapshot();
    return loaded && loaded->models.version == AsrModelVersion::tdtCtc110m ? 1 : 2;
}

std::optional<AsrModels> AsrManager::asrModels() const {
    auto loaded = snapshot();
    if (!loaded) return std::nullopt;
    return loaded->models;
}

void AsrManager::setLanguageFilter(std::shared_ptr<const TokenLanguageFilter> filter) {
    std::lock_guard lock(mutex_);
    languageFilter_ = std::move(filter);
    if (loaded_) loaded_ = std::make_shared<const Loaded>(Loaded{loaded_->models, languageFilter_});
}

void AsrManager::reset() {
    progress_.reset();
}

void AsrManager::cleanup() {
    std::lock_guard lock(mutex_);
    loaded_.reset();
}

ASRResult AsrManager::transcribe(std::span<const float> samples, TdtDecoderState& decoderState,
                                 const std::optional<std::string>& language, std::stop_token stop) {
    bool tracked = samples.size() > static_cast<std::size_t>(progressThreshold);
    if (tracked) progress_.startSession();
    try {
        auto result = transcribeWithState(samples, decoderState, language, stop);
        if (tracked) progress_.finishSession(false);
        return result;
    } catch (...) {
        if (tracked) progress_.finishSession(true);
        throw;
    }
}

ASRResult AsrManager::transcribe(const std::filesystem::path& audioFile,
                                 TdtDecoderState& decoderState,
                                 const std::optional<std::string>& language, std::stop_token stop) {
    std::vector<float> samples;
    try {
        samples = audioConverter_.resampleAudioFile(audioFile);
    } catch (const AudioConverterError& error) {
        throw ASRError::fileAccessFailed(audioFile.string(), error.what());
    }
    return transcribe(std::span<const float>(samples), decoderState, language, stop);
}

ASRResult AsrManager::transcribe(const AudioBuffer& buffer, TdtDecoderState& decoderState,
                                 const std::optional<std::string>& language, std::stop_token stop) {
    auto samples = audioConverter_.resampleBuffer(buffer);
    return transcribe(std::span<const float>(samples), decoderState, language, stop);
}

ASRResult AsrManager::transcribeWithState(std::span<const float> samples,
                                          TdtDecoderState& decoderState,
                                          const std::optional<std::string>& language,
                                          std::stop_token stop) {
    if (!isAvailable()) throw ASRError::notInitialized();
    auto minimum = static_cast<std::size_t>(config_.sampleRate * 0.3);
    if (samples.size() < minimum) throw ASRError::invalidAudioData();
    auto started = now_();

    if (samples.size() > static_cast<std::size_t>(windowSamples)) {
        ArraySampleSource source(samples);
        ChunkProcessor processor(source, static_cast<std::int64_t>(samples.size()), 2.0,
                                 frameSamples);
        return processor.process(
            *this, started, [this](double fraction) { progress_.report(fraction); }, language,
            stop);
    }

    auto count = static_cast<int>(samples.size());
    int aligned = count;
    int nextMultiple = (count + frameSamples - 1) / frameSamples * frameSamples;
    if (nextMultiple <= windowSamples) aligned = nextMultiple;
    std::vector<float> padded(static_cast<std::size_t>(windowSamples), 0.0f);
    std::copy(samples.begin(), samples.end(), padded.begin());

    auto inference = executeMLInferenceWithTimings(padded, aligned, std::nullopt, decoderState, 0,
                                                   true, 0, language, stop);
    const auto& hypothesis = inference.hypothesis;

    ASRResult result;
    result.text = convertTokensToText(hypothesis.ySequence);
    result.tokenTimings =
        createTokenTimings(hypothesis.ySequence, hypothesis.timestamps, hypothesis.tokenConfidences,
                           hypothesis.tokenDurations);
    result.duration = static_cast<double>(count) / config_.sampleRate;
    result.processingTime = corvane::secondsBetween(started, now_());
    result.confidence = TranscriptAssembly::calculateConfidence(
        hypothesis.ySequence.size(), corvane::trimAsciiWhitespace(result.text).empty(),
        hypothesis.tokenConfidences);
    return result;
}

AsrManager::InferenceResult AsrManager::executeMLInferenceWithTimings(
    std::span<const float> paddedSamples, std::optional<int> originalLength,
    std::optional<int> actualAudioFrames, TdtDecoderState& decoderState, int contextFrameAdjustment,
    bool isLastChunk, int globalFrameOffset, const std::optional<std::string>& language,
    std::stop_token stop) {
    auto loaded = snapshot();
    if (!loaded) throw ASRError::notInitialized();
    const AsrModels& models = loaded->models;
    if (!models.preprocessor || !models.decoder || !models.joint) throw ASRError::notInitialized();

    FeatureMap preprocessorInputs;
    auto sampleCount = static_cast<std::int64_t>(paddedSamples.size());
    preprocessorInputs.set(
        "audio_signal", MultiArray::of({1, sampleCount}, std::vector<float>(paddedSamples.begin(),
                                                                            paddedSamples.end())));
    preprocessorInputs.set(
        "audio_length",
        MultiArray::scalarInt(originalLength.value_or(static_cast<int>(sampleCount))));

    checkCancellation(stop);
    FeatureMap preprocessorOutputs;
    models.preprocessor->predict(preprocessorInputs, preprocessorOutputs);

    FeatureMap encoderOutputs;
    const FeatureMap* last = &preprocessorOutputs;
    if (models.usesSplitFrontend()) {
        FeatureMap encoderInputs;
        const auto& wanted = models.encoder->description().inputNames;
        if (wanted.empty()) {
            logger_->info("Encoder names no inputs; fallback inputs: {}",
                          preprocessorOutputs.namesText());
            for (const auto& name : preprocessorOutputs.names())
                encoderInputs.set(name, *preprocessorOutputs.find(name));
        }
        for (const auto& name : wanted) {
            const auto* array = preprocessorOutputs.find(name);
            if (!array) {
                throw ASRError::processingFailed(
                    "Missing required encoder input: " + name +
                    ". Available inputs: " + preprocessorOutputs.namesText());
            }
            encoderInputs.set(name, *array);
        }
        checkCancellation(stop);
        models.encoder->predict(encoderInputs, encoderOutputs);
        last = &encoderOutputs;
    }

    const auto& encoder = requireOutput(*last, "encoder", "Invalid encoder output");
    const auto& encoderLength =
        requireOutput(*last, "encoder_length", "Invalid encoder output length");
    float frames = encoderLength.flat(0);
    if (!std::isfinite(frames) || frames < 0 || frames > static_cast<float>(encoder.count())) {
        throw ASRError::processingFailed("Invalid encoder output length");
    }
    auto encoderSequenceLength = static_cast<int>(frames);

    std::optional<std::string> hint = language;
    if (models.version == AsrModelVersion::ctcZhCn) {
        throw ASRError::processingFailed(
            "CTC-only model .ctcZhCn does not support TDT decoding. Use CtcZhCnManager instead.");
    }
    if (hint && models.version == AsrModelVersion::tdtJa) {
        logger_->info(
            "Ignoring `language` hint for tdtJa: TokenLanguageFilter currently supports "
            "Latin/Cyrillic only; "
            "Japanese output is always kept.");
        hint.reset();
    } else if (hint && models.version != AsrModelVersion::v3) {
        logger_->info(
            "Ignoring `language` hint: script filtering requires the v3 joint decoder; loaded "
            "model is {}",
            name(models.version));
        hint.reset();
    }

    int frameLimit = actualAudioFrames.value_or(encoderSequenceLength);
    auto decode = [&](const TdtDecoderV3& decoder) {
        return decoder.decodeWithTimings(
            encoder, encoderSequenceLength, frameLimit, *models.decoder, *models.joint,
            decoderState, contextFrameAdjustment, isLastChunk, globalFrameOffset, hint, stop);
    };
    InferenceResult result;
    const auto* filter = loaded->languageFilter.get();
    result.hypothesis = models.version == AsrModelVersion::v2
                            ? decode(TdtDecoderV2(config_, filter))
                            : decode(TdtDecoderV3(config_, filter));
    result.encoderSequenceLength = encoderSequenceLength;
    return result;
}

std::string AsrManager::convertTokensToText(std::span<const int> tokens) const {
    auto loaded = snapshot();
    static const Vocabulary empty;
    return TranscriptAssembly::convertTokensToText(
        tokens, loaded && loaded->models.vocabulary ? *loaded->models.vocabulary : empty);
}

std::vector<TokenTiming> AsrManager::createTokenTimings(std::span<const int> tokenIds,
                                                        std::span<const int> timestamps,
                                                        std::span<const float> confidences,
                                                        std::span<const int> durations) const {
    auto loaded = snapshot();
    static const Vocabulary empty;
    return TranscriptAssembly::createTokenTimings(
        tokenIds, timestamps, confidences, durations,
        loaded && loaded->models.vocabulary ? *loaded->models.vocabulary : empty);
}

}  // namespace speech
