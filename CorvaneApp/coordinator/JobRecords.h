#pragma once
// What a handler takes and gives: a materialised claim, the model's input and output, the result.
// None of these travel on the wire.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "CorvaneApp/coordinator/JsonCoding.h"
#include "CorvaneApp/coordinator/ModelIdentifier.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

enum class ModelCategory { transcription, imageGeneration, llm, embedding };
std::string rawValue(ModelCategory category);

struct ClaimedJob {
    std::string id;
    std::optional<std::string> shardID;
    ModelCategory category = ModelCategory::transcription;
    ModelIdentifier modelID;
    std::string inputPath;  // the local file of the input
    Date claimedAt;
    std::optional<Date> deadline;
};

// Records of later phases: built as plain records, created by no code path yet.
struct ImageGenParams {
    std::int64_t width = 0;
    std::int64_t height = 0;
    std::int64_t steps = 0;
    std::optional<std::uint64_t> seed;
    std::optional<double> guidance;
    bool operator==(const ImageGenParams&) const = default;
};
enum class ImageFormat { png, jpeg, heic };
struct LLMMessage {
    enum class Role { system, user, assistant, tool };
    Role role = Role::user;
    std::string content;
    bool operator==(const LLMMessage&) const = default;
};
struct LLMParams {
    std::int64_t maxTokens = 0;
    double temperature = 0;
    std::optional<double> topP;
    std::vector<std::string> stop;
    bool operator==(const LLMParams&) const = default;
};
struct LLMResult {
    std::string text;
    std::int64_t promptTokens = 0;
    std::int64_t completionTokens = 0;
    std::string finishReason;
    bool operator==(const LLMResult&) const = default;
};

struct ModelInput {
    struct Audio {
        std::vector<float> pcmBuffer;
        std::int64_t sampleRate = 16000;
    };
    struct ImagePrompt {
        std::string text;
        ImageGenParams params;
    };
    struct LLMPrompt {
        std::vector<LLMMessage> messages;
        LLMParams params;
    };
    struct EmbeddingBatch {
        std::vector<std::string> texts;
    };
    std::variant<Audio, ImagePrompt, LLMPrompt, EmbeddingBatch> value;
};

struct TranscriptResult {
    struct Segment {
        double startSeconds = 0;
        double endSeconds = 0;
        std::string text;
        bool operator==(const Segment&) const = default;
    };
    std::string text;
    std::optional<std::string> language;
    std::vector<Segment> segments;
    bool operator==(const TranscriptResult&) const = default;
    Json encode() const;
};

struct ModelOutput {
    struct Image {
        std::vector<std::uint8_t> data;
        ImageFormat format = ImageFormat::png;
        bool operator==(const Image&) const = default;
    };
    using Embeddings = std::vector<std::vector<float>>;
    std::variant<TranscriptResult, Image, LLMResult, Embeddings> value;

    const TranscriptResult* transcript() const { return std::get_if<TranscriptResult>(&value); }
};

struct JobResult {
    std::string jobID;
    std::optional<std::string> shardID;
    ModelOutput output;
    std::string backendUsed;
    double wallTimeSeconds = 0;
};

}  // namespace corvane
