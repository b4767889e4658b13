#pragma once
// Why an audio file could not become 16 kHz mono samples; each case has a fixed text.

#include <optional>
#include <string>
#include <variant>

#include "CorvaneApp/models/CaseError.h"

namespace corvane {

namespace audiodecode {
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
}  // namespace audiodecode

class AudioDecodeError : public CaseError<audiodecode::Case> {
  public:
    using UnsupportedFormat = audiodecode::UnsupportedFormat;
    using ReadFailure = audiodecode::ReadFailure;
    using ConversionFailure = audiodecode::ConversionFailure;
    using EmptyAudio = audiodecode::EmptyAudio;
    using Case = audiodecode::Case;

    explicit AudioDecodeError(Case value);
};

}  // namespace corvane
