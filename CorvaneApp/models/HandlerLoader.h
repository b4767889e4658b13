#pragma once
// Brings up the handler for a claim's model on demand and installs it in the HandlerBox: the one
// place that knows how the two model families are built. The worker calls it when a claim needs
// another model than the one loaded.

#include <functional>
#include <memory>
#include <stop_token>

#include "CorvaneApp/models/ChipTier.h"
#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/models/ModelCache.h"
#include "CorvaneApp/models/ParakeetCache.h"
#include "CorvaneApp/models/ParakeetHandler.h"
#include "CorvaneApp/models/WhisperHandler.h"

namespace corvane {

class HandlerLoader {
  public:
    struct Dependencies {
        std::shared_ptr<HandlerBox> box;
        std::shared_ptr<ModelCache> modelCache;  // Whisper's weights
        std::function<ChipTier()> chipTier;
        WhisperHandler::Options whisper;
        std::shared_ptr<const ParakeetCache> parakeet;  // its runtime may be absent
        ParakeetHandler::Options parakeetHandler;
    };

    // Throws std::invalid_argument when the box, the cache, the chip tier or Parakeet's cache is
    // missing.
    explicit HandlerLoader(Dependencies dependencies);

    // Builds a fresh handler for `identifier`, chosen by its backend, and swaps it into the box.
    // Whisper's weights are downloaded if needed; Parakeet's never are (that is the install
    // task's work). Throws ModelError::InvalidInput for what can't be served, or the cache's and
    // handler's own errors; on any failure the box keeps its old handler.
    void operator()(const ModelIdentifier& identifier, std::stop_token stop = {}) const;

  private:
    std::shared_ptr<ModelHandler> build(const ModelIdentifier& identifier,
                                        std::stop_token stop) const;

    Dependencies deps_;
};

}  // namespace corvane
