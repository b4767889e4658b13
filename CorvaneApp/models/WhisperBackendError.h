#pragma once
// What went wrong inside whisper.cpp itself. Handlers wrap it as ModelError::BackendCrashed, whose
// payload is this error's description.

#include <exception>
#include <string>
#include <variant>

namespace corvane {

class WhisperBackendError : public std::exception {
  public:
    struct InferenceFailed {
        int status = 0;  // whisper_full's non-zero return
    };
    struct ContextInitFailed {};
    using Case = std::variant<InferenceFailed, ContextInitFailed>;

    explicit WhisperBackendError(Case value);

    const Case& value() const { return value_; }
    // "inferenceFailed(status: -6)" or "contextInitFailed".
    const std::string& description() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

  private:
    Case value_;
    std::string description_;
};

}  // namespace corvane
