#include "CorvaneApp/models/ClaimMaterialiserError.h"

namespace corvane {
namespace {

struct Describe {
    std::string operator()(const ClaimMaterialiserError::InvalidAudioURL& c) const {
        return "invalid audio_url: " + c.audioURL;
    }
    std::string operator()(const ClaimMaterialiserError::DownloadFailed& c) const {
        return "shard audio download returned HTTP " + std::to_string(c.statusCode);
    }
    std::string operator()(const ClaimMaterialiserError::NetworkError& c) const {
        return "shard audio network error: " + c.underlying;
    }
    std::string operator()(const ClaimMaterialiserError::FileWriteFailed& c) const {
        return "shard audio write failed at " + c.path + ": " + c.underlying;
    }
};

}  // namespace

ClaimMaterialiserError::ClaimMaterialiserError(Case value)
    : CaseError(value, std::visit(Describe{}, value)) {}

}  // namespace corvane
