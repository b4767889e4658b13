#include "SpeechEngine/TdtDecoderV3.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/EncoderFrameView.h"
#include "SpeechEngine/TdtDurationMapping.h"
#include "SpeechEngine/TdtModelInference.h"

namespace speech {
namespace {

float clampedScore(float probability) {
    return std::isfinite(probability) ? std::clamp(probability, 0.0f, 1.0f) : 0.0f;
}

// The first frame to look at: where the previous window's last jump landed, moved past this
// window's context frames.
int startIndex(const TdtDecoderState& state, int contextFrameAdjustment) {
    if (!state.timeJump) return contextFrameAdjustment;
    if (*state.timeJump == 0 && contextFrameAdjustment == 0) return 25;
    return std::max(0, *state.timeJump + contextFrameAdjustment);
}

}  // namespace

TdtDecoderV3::TdtDecoderV3(ASRConfig config, const TokenLanguageFilter* languageFilter)
    : config_(std::move(config)), languageFilter_(languageFilter) {
    const auto& bins = config_.tdtConfig.durationBins;
    if (std::any_of(bins.begin(), bins.end(), [](int bin) { return bin < 0; })) {
        throw std::invalid_argument("duration bins must not be negative");
    }
}

TdtHypothesis TdtDecoderV3::decodeWithTimings(
    const MultiArray& encoderOutput, int encoderSequenceLength, int actualAudioFrames,
    const NeuralModel& decoderModel, const NeuralModel& jointModel, TdtDecoderState& decoderState,
    int contextFrameAdjustment, bool isLastChunk, int globalFrameOffset,
    const std::optional<std::string>& language, std::stop_token stop) const {
    const TdtConfig& tdt = config_.tdtConfig;
    TdtHypothesis hypothesis;
    if (encoderSequenceLength < 2) {
        hypothesis.decState = decoderState;
        return hypothesis;
    }
    EncoderFrameView frames(encoderOutput, encoderSequenceLength, config_.encoderHiddenSize);

    int timeIndex = startIndex(decoderState, contextFrameAdjustment);
    // The frame view's count guards against an encoder length that overstates its own array.
    int effectiveLength = std::min({actualAudioFrames, encoderSequenceLength, frames.frameCount()});
    int lastTimestep = effectiveLength - 1;
    if (timeIndex >= effectiveLength) return hypothesis;

    TdtModelInference inference(decoderModel, jointModel, config_.encoderHiddenSize);
    std::optional<MultiArray> predictor = decoderState.predictorOutput;
    hypothesis.ySequence.reserve(
        static_cast<std::size_t>(std::max(0, tdt.maxTokensPerChunk + tdt.maxSymbolsPerStep)));
    hypothesis.timestamps.reserve(hypothesis.ySequence.capacity());
    hypothesis.tokenDurations.reserve(hypothesis.ySequence.capacity());
    hypothesis.tokenConfidences.reserve(hypothesis.ySequence.capacity());

    auto emit = [&](int label, float score, int timestamp, int duration) {
        hypothesis.ySequence.push_back(label);
        hypothesis.score += score;
        hypothesis.timestamps.push_back(timestamp);
        hypothesis.tokenConfidences.push_back(score);
        hypothesis.tokenDurations.push_back(duration);
        hypothesis.lastToken = label;
    };
    auto ensurePredictor = [&] {
        if (predictor) return;
        int token = hypothesis.lastToken.value_or(decoderState.lastToken.value_or(tdt.blankId));
        predictor = inference.runDecoder(token, decoderState);
    };
    // Label and score of a joint decision, after the language hook when it applies.
    auto choose = [&](const JointDecision& decision, int& label, float& score) {
        label = decision.token;
        score = clampedScore(decision.probability);
        if (language && languageFilter_ && label != tdt.blankId && !decision.topKIds.empty()) {
            if (auto filtered = languageFilter_->filter(label, score, decision.topKIds,
                                                        decision.topKLogits, *language)) {
                label = filtered->token;
                score = clampedScore(filtered->score);
            }
        }
    };
    auto jumpFor = [&](int label, int duration) {
        return label == tdt.blankId && duration < 2 ? 1 : duration;
    };

    int tokensInCall = 0;
    int emissionsAtFrame = 0;
    int lastEmissionFrame = -1;
    while (timeIndex < effectiveLength) {
        checkCancellation(stop);
        ensurePredictor();
        inference.prepareDecoderStep(*predictor);
        inference.prepareEncoderStep(frames, std::min(timeIndex, lastTimestep));
        int label = 0;
        float score = 0.0f;
        auto decision = inference.runJointPrepared();
        choose(decision, label, score);
        int duration = TdtDurationMapping::mapDurationBin(decision.durationIndex, tdt.durationBins);
        // A second token at the frame of the last emission must move on.
        if (label != tdt.blankId && duration == 0) {
            duration = timeIndex == lastEmissionFrame && emissionsAtFrame > 0 ? 1 : 0;
        }
        int jump = jumpFor(label, duration);
        int labelIndex = timeIndex;
        timeIndex += jump;
        int safeIndex = std::min(timeIndex, lastTimestep);
        bool active = timeIndex < effectiveLength;

        // Skip blanks with the same prediction: only the joint runs.
        while (active && label == tdt.blankId) {
            checkCancellation(stop);
            labelIndex = timeIndex;
            inference.prepareEncoderStep(frames, safeIndex);
            decision = inference.runJointPrepared();
            choose(decision, label, score);
            duration = TdtDurationMapping::mapDurationBin(decision.durationIndex, tdt.durationBins);
            jump = jumpFor(label, duration);
            timeIndex += jump;
            safeIndex = std::min(timeIndex, lastTimestep);
            active = timeIndex < effectiveLength;
        }
        // A token whose jump leaves the window is left to the tail of the last chunk.
        if (!active || label == tdt.blankId) continue;

        if (++tokensInCall > tdt.maxTokensPerChunk) break;
        emit(label, score, labelIndex + globalFrameOffset, jump);
        predictor = inference.runDecoder(label, decoderState);

        if (labelIndex == lastEmissionFrame) {
            ++emissionsAtFrame;
            if (emissionsAtFrame < tdt.maxSymbolsPerStep) continue;
        } else if (tdt.maxSymbolsPerStep > 1) {
            emissionsAtFrame = 1;
            lastEmissionFrame = labelIndex;
            continue;
        }
        timeIndex = std::min(timeIndex + 1, lastTimestep);
        emissionsAtFrame = 0;
        lastEmissionFrame = -1;
    }

    // The last window's end: ask the last frames again for tokens the main loop had to drop.
    if (isLastChunk && tdt.maxSymbolsPerStep >= 1) {
        int tailIndex = timeIndex;
        int consecutiveBlanks = 0;
        int tailFrameFloor = std::max(effectiveLength - 2, 0);
        int lastFrame = frames.frameCount() - 1;
        for (int steps = 0;
             steps < tdt.maxSymbolsPerStep && consecutiveBlanks < tdt.consecutiveBlankLimit;
             ++steps) {
            checkCancellation(stop);
            ensurePredictor();
            inference.prepareDecoderStep(*predictor);
            int candidates[3] = {tailIndex, lastTimestep, tailFrameFloor};
            inference.prepareEncoderStep(frames, std::min(lastFrame, candidates[steps % 3]));
            auto decision = inference.runJointPrepared();
            int label = decision.token;
            float score = clampedScore(decision.probability);
            int duration =
                TdtDurationMapping::mapDurationBin(decision.durationIndex, tdt.durationBins);
            if (label == tdt.blankId) {
                ++consecutiveBlanks;
            } else {
                emit(label, score, std::min(lastTimestep, tailIndex) + globalFrameOffset, duration);
                predictor = inference.runDecoder(label, decoderState);
                consecutiveBlanks = 0;
            }
            tailIndex = std::min(effectiveLength, tailIndex + std::max(duration, 1));
        }
        predictor.reset();  // a recording's end leaves no context
    }

    decoderState.predictorOutput = std::move(predictor);
    if (hypothesis.lastToken) decoderState.lastToken = hypothesis.lastToken;
    if (decoderState.lastToken && endsSentence(*decoderState.lastToken))
        decoderState.predictorOutput.reset();
    decoderState.timeJump =
        isLastChunk ? std::nullopt : std::optional<int>(timeIndex - effectiveLength);
    hypothesis.decState = decoderState;
    return hypothesis;
}

}  // namespace speech
