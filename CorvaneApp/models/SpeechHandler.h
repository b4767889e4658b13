#pragma once
// What the speech handlers (Whisper, Parakeet) share: transcription jobs only, the claim's audio
// decoded to 16 kHz mono and then transcribed, each stage timed, the result stamped with the
// backend and its wall time. A handler adds its engine and how it is brought up.

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class SpeechHandler : public ModelHandler {
  public:
    // A file to 16 kHz mono samples; AudioPipeline's decoder unless a test puts another in.
    using Decoder = std::function<std::vector<float>(const std::filesystem::path&)>;
    struct Options {
        Decoder decode;  // empty: AudioPipeline::decodeTo16kMonoPCM
        NowFunction now = systemNow;
    };

    std::string activeImplName() const override { return activeImplName_; }
    std::optional<std::string> installedVersion() const override { return "1"; }

  protected:
    // `handlerName` opens the wrong-category text; `implName` is the backend every result names.
    SpeechHandler(std::string handlerName, std::string implName, Options options);

    // Samples to text with the handler's engine; throws ModelError or the engine's own errors.
    using Transcriber = std::function<std::string(const std::vector<float>& pcm)>;
    // Throws ModelError::InvalidInput for a job that is not a transcription; passes the decoder's
    // and the transcriber's errors through. The observer hears both stages, also a failed one.
    JobResult transcribeJob(const ClaimedJob& job, const StageObserver& observer,
                            const Transcriber& transcribe) const;

  private:
    const std::string handlerName_;
    const std::string activeImplName_;
    const Decoder decode_;
    const NowFunction now_;
};

}  // namespace corvane
