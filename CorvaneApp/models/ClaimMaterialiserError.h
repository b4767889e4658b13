#pragma once
// Why a claim's audio could not be brought to a local file; each case has a fixed text.

#include <cstdint>
#include <string>
#include <variant>

#include "CorvaneApp/models/CaseError.h"

namespace corvane {

namespace claimmaterialiser {
struct InvalidAudioURL {
    std::string audioURL;
};
struct DownloadFailed {
    std::int64_t statusCode = 0;
};
struct NetworkError {
    std::string underlying;  // the underlying error's text
};
struct FileWriteFailed {
    std::string path;
    std::string underlying;
};
using Case = std::variant<InvalidAudioURL, DownloadFailed, NetworkError, FileWriteFailed>;
}  // namespace claimmaterialiser

class ClaimMaterialiserError : public CaseError<claimmaterialiser::Case> {
  public:
    using InvalidAudioURL = claimmaterialiser::InvalidAudioURL;
    using DownloadFailed = claimmaterialiser::DownloadFailed;
    using NetworkError = claimmaterialiser::NetworkError;
    using FileWriteFailed = claimmaterialiser::FileWriteFailed;
    using Case = claimmaterialiser::Case;

    explicit ClaimMaterialiserError(Case value);
};

}  // namespace corvane
