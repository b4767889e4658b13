#pragma once
// A whisper model with random weights, in the legacy ggml file layout whisper.cpp loads: the real
// models cannot be downloaded where tests run. A tiny one makes inference take milliseconds; one
// of the real model's size shows what inference and memory cost on a computer. Its transcripts
// are nonsense words made of the synthetic vocabulary.

#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>

namespace corvane::tools {

// How the big matrices (attention, MLP, token embedding) are stored. The convolutions stay f16
// and the vectors f32 either way, as whisper.cpp's own quantiser leaves them.
enum class WhisperWeightType { f16, q5_0 };

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
    WhisperWeightType weights = WhisperWeightType::f16;
    std::uint32_t seed = 1;  // the same seed writes the same bytes

    // The model owners run, Whisper large-v3 turbo at q5_0: 32 encoder layers of width 1280, about
    // 570 MB.
    static WhisperTestModelShape largeV3Turbo();
};

// Writes the whole file to `out`. Throws std::invalid_argument for a shape the loader cannot
// take (a non-positive size, a width not divisible by its head count, a quantised width that is
// not a whole number of blocks, or a vocabulary smaller than the special tokens need).
void writeWhisperTestModel(std::ostream& out, const WhisperTestModelShape& shape);

// The whole file as bytes (for small shapes).
std::string makeWhisperTestModel(const WhisperTestModelShape& shape);

// Writes the model to `path` through a temporary file in the same folder, so that a reader never
// sees a part of it (parent folders are created). Throws on I/O failure, leaving no file behind.
void writeWhisperTestModel(const std::filesystem::path& path, const WhisperTestModelShape& shape);

// For benchmarks that generate the model when they run: writes it unless `path` already holds
// this shape from this generator (a note beside it, "<path>.shape", says which). Returns whether
// it wrote.
bool ensureWhisperTestModel(const std::filesystem::path& path, const WhisperTestModelShape& shape);

}  // namespace corvane::tools
