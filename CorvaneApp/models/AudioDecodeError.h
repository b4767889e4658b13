#pragma once
// Why an audio file could not become 16 kHz mono samples; each case has a fixed text.

#include <exception>
#include <optional>
#include <string>
#include <variant>

namespace corvane {

class AudioDecodeError : public std::exception {
public:
    // `url` is the file's path; the texts name only its last component.
    struct UnsupportedFormat {
        std::string url;
        std::optional<std::string> underlying;  // the underlying error's text
    };
    struct ReadFailure {
        std::string url;
        std::string underlying;
    };
    struct ConversionFailure {
        std::optional<std::string> underlying;
    };
    struct EmptyAudio {
        std::string url;
    };
    using Case = std::variant<UnsupportedFormat, ReadFailure, ConversionFailure, EmptyAudio>;

    explicit AudioDecodeError(Case value);

    const Case& value() const { return value_; }
    const std::string& description() const { return description_; }
    std::optional<std::string> errorDescription() const { return description_; }
    const char* what() const noexcept override { return description_.c_str(); }

private:
    Case value_;
    std::string description_;
};

}  // namespace corvane
