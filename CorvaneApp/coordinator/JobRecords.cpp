#include "CorvaneApp/coordinator/JobRecords.h"

namespace corvane {

std::string rawValue(ModelCategory category) {
    switch (category) {
        case ModelCategory::transcription:
            return "transcription";
        case ModelCategory::imageGeneration:
            return "imageGeneration";
        case ModelCategory::llm:
            return "llm";
        case ModelCategory::embedding:
            return "embedding";
    }
    return "transcription";
}

Json TranscriptResult::encode() const {
    Json out{{"text", text}};
    json::putIfPresent(out, "language", language);
    Json list = Json::array();
    for (const auto& s : segments)
        list.push_back(
            {{"startSeconds", s.startSeconds}, {"endSeconds", s.endSeconds}, {"text", s.text}});
    out["segments"] = std::move(list);
    return out;
}

}  // namespace corvane
