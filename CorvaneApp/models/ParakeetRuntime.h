#pragma once
// A runtime that can run Parakeet's networks, with the engine's downloader over it. Having one is
// what lets this computer serve Parakeet at all: without it the model is neither loaded nor
// advertised, whatever lies on disk.

#include <memory>

#include "CorvaneApp/platform/Http.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "SpeechEngine/DownloadUtils.h"
#include "SpeechEngine/Environment.h"
#include "SpeechEngine/NeuralRuntime.h"

namespace corvane {

class ParakeetRuntime {
  public:
    ParakeetRuntime(std::shared_ptr<const http::Session> session,
                    std::shared_ptr<const speech::NeuralRuntime> runtime,
                    speech::EnvironmentLookup environment, std::shared_ptr<SleepProvider> sleeper)
        : session_(std::move(session)),
          runtime_(std::move(runtime)),
          sleeper_(std::move(sleeper)),
          downloads_(std::make_unique<speech::DownloadUtils>(*session_, *runtime_,
                                                             std::move(environment), *sleeper_)) {}
    ParakeetRuntime(const ParakeetRuntime&) = delete;
    ParakeetRuntime& operator=(const ParakeetRuntime&) = delete;

    speech::DownloadUtils& downloads() const { return *downloads_; }

  private:
    // The downloader keeps references to these three.
    const std::shared_ptr<const http::Session> session_;
    const std::shared_ptr<const speech::NeuralRuntime> runtime_;
    const std::shared_ptr<SleepProvider> sleeper_;
    const std::unique_ptr<speech::DownloadUtils> downloads_;
};

}  // namespace corvane
