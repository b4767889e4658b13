#pragma once
// Failures of talking to the model hub, plus the bare HTTP status failure of a file transfer.

#include <exception>
#include <string>

#include "SpeechEngine/TypedError.h"

namespace speech {

enum class HuggingFaceDownloadErrorKind {
    invalidResponse,
    rateLimited,
    modelNotFound,
    downloadFailed,
    htmlInsteadOfJSON
};

class HuggingFaceDownloadError : public TypedError<HuggingFaceDownloadErrorKind> {
  public:
    static HuggingFaceDownloadError invalidResponse() {
        return {Kind::invalidResponse, "Received an invalid response from Hugging Face."};
    }
    static HuggingFaceDownloadError rateLimited(const std::string& message) {
        return {Kind::rateLimited, "Hugging Face rate limit encountered: " + message};
    }
    static HuggingFaceDownloadError modelNotFound(const std::string& path) {
        return {Kind::modelNotFound, "Model file not found: " + path};
    }
    static HuggingFaceDownloadError downloadFailed(const std::string& path) {
        return {Kind::downloadFailed, "Failed to download " + path};
    }
    static HuggingFaceDownloadError htmlInsteadOfJSON(const std::string& path,
                                                      const std::string& bodyStart) {
        return {Kind::htmlInsteadOfJSON, "HuggingFace returned HTML instead of JSON for " + path +
                                             " (rate limit or server issue): " + bodyStart};
    }

  private:
    using TypedError::TypedError;
};

// A transfer answered with a status outside 200-299 (other than rate limiting): domain "HTTP".
class HTTPStatusError : public std::exception {
  public:
    explicit HTTPStatusError(long statusCode)
        : statusCode_(statusCode),
          description_("The operation couldn't be completed. (HTTP error " +
                       std::to_string(statusCode) + ".)") {}

    static constexpr const char* domain = "HTTP";
    long statusCode() const { return statusCode_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    long statusCode_;
    std::string description_;
};

}  // namespace speech
