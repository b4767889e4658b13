#include "CorvaneApp/models/HandlerLoader.h"

#include <stdexcept>

namespace corvane {

HandlerLoader::HandlerLoader(Dependencies dependencies) : deps_(std::move(dependencies)) {
    if (!deps_.box || !deps_.modelCache || !deps_.chipTier || !deps_.parakeet) {
        throw std::invalid_argument(
            "HandlerLoader needs a box, a model cache, a chip tier and Parakeet's cache");
    }
}

void HandlerLoader::operator()(const ModelIdentifier& identifier, std::stop_token stop) const {
    auto handler = build(identifier, stop);
    deps_.box->replace(std::move(handler));  // the old one goes when its last shard lets go
}

std::shared_ptr<ModelHandler> HandlerLoader::build(const ModelIdentifier& identifier,
                                                   std::stop_token stop) const {
    const ChipTier tier = deps_.chipTier();
    if (identifier.backend == "whisper-cpp-swift") {
        auto spec = deps_.modelCache->registry().spec(identifier);
        if (!spec) {
            throw ModelError(ModelError::InvalidInput{
                "handlerLoader: no ModelSpec registered for whisper identifier " +
                identifier.model});
        }
        auto file = deps_.modelCache->ensureCached(*spec, stop);
        return std::make_shared<WhisperHandler>(file.parent_path(), tier, deps_.whisper);
    }
    if (identifier.backend == "speech-engine-native") {
        const ParakeetCache& parakeet = *deps_.parakeet;
        if (!parakeet.isInstalled()) {
            throw ModelError(ModelError::InvalidInput{
                "handlerLoader: Parakeet weights not installed \u2014 cannot swap to " +
                identifier.model});
        }
        if (!parakeet.runtime()) {
            throw ModelError(
                ModelError::InvalidInput{"handlerLoader: no runtime on this computer can run "
                                         "Parakeet \u2014 cannot swap to " +
                                         identifier.model});
        }
        return std::make_shared<ParakeetHandler>(parakeet.directory(), tier, parakeet.runtime(),
                                                 deps_.parakeetHandler);
    }
    throw ModelError(ModelError::InvalidInput{"handlerLoader: unknown backend '" +
                                              identifier.backend + "' for model " +
                                              identifier.model});
}

}  // namespace corvane
