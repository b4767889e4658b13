#include "CorvaneApp/models/SpeechHandler.h"

#include <exception>
#include <optional>
#include <utility>

#include "CorvaneApp/models/AudioPipeline.h"

namespace corvane {
namespace {

// Tells the observer a stage's seconds whether it worked or threw: the performance record wants
// the time of a failed decode too.
template <typename Work>
auto timedStage(ModelHandlerStage stage, const StageObserver& observer, const NowFunction& now,
                Work&& work) {
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

}  // namespace

SpeechHandler::SpeechHandler(std::string handlerName, std::string implName, Options options)
    : handlerName_(std::move(handlerName)),
      activeImplName_(std::move(implName)),
      decode_(options.decode ? std::move(options.decode)
                             : Decoder(AudioPipeline::decodeTo16kMonoPCM)),
      now_(std::move(options.now)) {}

JobResult SpeechHandler::transcribeJob(const ClaimedJob& job, const StageObserver& observer,
                                       const Transcriber& transcribe) const {
    const Date start = now_();
    if (job.category != ModelCategory::transcription) {
        throw ModelError(ModelError::InvalidInput{
            handlerName_ + " only handles .transcription jobs, got " + rawValue(job.category)});
    }
    const std::vector<float> pcm = timedStage(ModelHandlerStage::decode, observer, now_,
                                              [&] { return decode_(job.inputPath); });
    std::string text =
        timedStage(ModelHandlerStage::inference, observer, now_, [&] { return transcribe(pcm); });

    JobResult result;
    result.jobID = job.id;
    result.shardID = job.shardID;
    result.output = ModelOutput{TranscriptResult{std::move(text), std::nullopt, {}}};
    result.backendUsed = activeImplName_;
    result.wallTimeSeconds = secondsBetween(start, now_());
    return result;
}

}  // namespace corvane
