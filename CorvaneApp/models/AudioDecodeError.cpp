#include "CorvaneApp/models/AudioDecodeError.h"

#include <filesystem>

namespace corvane {
namespace {

std::string lastComponent(const std::string& url) {
    return std::filesystem::path(url).filename().string();
}

struct Describe {
    std::string operator()(const AudioDecodeError::UnsupportedFormat& c) const {
        return "AudioDecodeError.unsupportedFormat(" + lastComponent(c.url) +
               "): " + c.underlying.value_or("no underlying error");
    }
    std::string operator()(const AudioDecodeError::ReadFailure& c) const {
        return "AudioDecodeError.readFailure(" + lastComponent(c.url) + "): " + c.underlying;
    }
    std::string operator()(const AudioDecodeError::ConversionFailure& c) const {
        return "AudioDecodeError.conversionFailure: " +
               c.underlying.value_or("no underlying error");
    }
    std::string operator()(const AudioDecodeError::EmptyAudio& c) const {
        return "AudioDecodeError.emptyAudio(" + lastComponent(c.url) + ")";
    }
};

}  // namespace

AudioDecodeError::AudioDecodeError(Case value) : CaseError(value, std::visit(Describe{}, value)) {}

}  // namespace corvane
