#pragma once
// A structural check of a whisper model file in the legacy ggml layout, before whisper.cpp reads
// it. The library trusts its input: a file cut short inside its last tensor loads with part of it
// missing, and a header with an unknown weight type or a zero head count ends the process.

#include <filesystem>
#include <optional>
#include <string>

namespace corvane {

class WhisperModelFile {
  public:
    // Absent when the header is plausible and every section complete; otherwise why not, such as
    // "file ends inside tensor decoder.ln.bias". Reads only headers, seeking over data.
    static std::optional<std::string> problem(const std::filesystem::path& path);

    WhisperModelFile() = delete;
};

}  // namespace corvane
