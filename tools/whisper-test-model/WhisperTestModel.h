#pragma once
// A whisper model with random weights, in the legacy ggml file layout whisper.cpp loads: the real
// models cannot be downloaded where tests run, and a tiny one makes inference take milliseconds.
// Its transcripts are nonsense words made of the synthetic vocabulary.

#include <cstdint>
#include <filesystem>
#include <string>

namespace corvane::tools {

// The hyper-parameters written in the header. The defaults give one encoder and one decoder layer
// of width 64 with the multilingual vocabulary size, about 8 MB in f16.
struct WhisperTestModelShape {
    std::int32_t nVocab = 51865;  // 51865 and more make the loader treat the model as multilingual
    std::int32_t nAudioCtx = 1500;
    std::int32_t nAudioState = 64;
    std::int32_t nAudioHead = 2;
    std::int32_t nAudioLayer = 1;
    std::int32_t nTextCtx = 448;
    std::int32_t nTextState = 64;
    std::int32_t nTextHead = 2;
    std::int32_t nTextLayer = 1;
    std::int32_t nMels = 80;
    std::uint32_t seed = 1;  // the same seed writes the same bytes
};

// The whole file as bytes. Throws std::invalid_argument for a shape the loader cannot take
// (a non-positive size, a width not divisible by its head count, no decoder layer, or a vocabulary
// smaller than the special tokens need).
std::string makeWhisperTestModel(const WhisperTestModelShape& shape);

// Writes the model to `path` atomically (parent folders are created). Throws on I/O failure.
void writeWhisperTestModel(const std::filesystem::path& path, const WhisperTestModelShape& shape);

}  // namespace corvane::tools
