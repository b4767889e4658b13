#pragma once
// Times one stage of a handler and tells the observer its seconds, whether the stage worked or
// threw: the performance record wants the time of a failed decode too. And the shard routine the
// speech handlers share.

#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

template <typename Work>
auto timedStage(ModelHandlerStage stage, const StageObserver& observer, const NowFunction& now, Work&& work) {
    const Date start = now();
    std::optional<decltype(work())> value;
    std::exception_ptr failure;
    try {
        value.emplace(work());
    } catch (...) {
        failure = std::current_exception();
    }
    if (observer) observer(stage, secondsBetween(start, now()));
    if (failure) std::rethrow_exception(failure);
    return std::move(*value);
}

// Turns 16 kHz mono samples into text; throws ModelError.
using SpeechTranscriber = std::function<std::string(const std::vector<float>& pcm)>;
using SpeechDecoder = std::function<std::vector<float>(const std::filesystem::path&)>;

// What every speech handler does with a shard: transcription jobs only, the audio decoded, then
// transcribed, each stage timed, the result stamped with the backend and its wall time.
inline JobResult transcribeSpeechJob(std::string_view handlerName, const char* backend, const ClaimedJob& job,
                                     const StageObserver& observer, const NowFunction& now,
                                     const SpeechDecoder& decode, const SpeechTranscriber& transcribe) {
    const Date start = now();
    if (job.category != ModelCategory::transcription) {
        throw ModelError(ModelError::InvalidInput{std::string(handlerName) +
                                                  " only handles .transcription jobs, got " + rawValue(job.category)});
    }
    const std::vector<float> pcm =
        timedStage(ModelHandlerStage::decode, observer, now, [&] { return decode(job.inputPath); });
    std::string text = timedStage(ModelHandlerStage::inference, observer, now, [&] { return transcribe(pcm); });

    JobResult result;
    result.jobID = job.id;
    result.shardID = job.shardID;
    result.output = ModelOutput{TranscriptResult{std::move(text), std::nullopt, {}}};
    result.backendUsed = backend;
    result.wallTimeSeconds = secondsBetween(start, now());
    return result;
}

}  // namespace corvane
