#include "CorvaneApp/models/WhisperBackendError.h"

namespace corvane {

WhisperBackendError::WhisperBackendError(Case value) : value_(value) {
    if (const auto* failed = std::get_if<InferenceFailed>(&value_)) {
        description_ = "inferenceFailed(status: " + std::to_string(failed->status) + ")";
    } else {
        description_ = "contextInitFailed";
    }
}

}  // namespace corvane
