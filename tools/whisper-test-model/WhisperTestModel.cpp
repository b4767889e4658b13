#include "tools/whisper-test-model/WhisperTestModel.h"

#include <unistd.h>

#include <bit>
#include <cmath>
#include <fstream>
#include <iterator>
#include <random>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <vector>

#include <ggml.h>

namespace corvane::tools {
namespace {

constexpr std::uint32_t kMagic = 0x67676d6c;  // "ggml"
constexpr std::int32_t kFftBins = 201;        // WHISPER_N_FFT / 2 + 1
constexpr int kSampleRate = 16000;

// The header's ftype: ggml's file type of the big matrices, plus the quantisation format's version
// times GGML_QNT_VERSION_FACTOR for quantised files, as whisper.cpp's quantiser writes it.
std::int32_t headerFtype(WhisperWeightType weights) {
    if (weights == WhisperWeightType::f16) return GGML_FTYPE_MOSTLY_F16;
    return GGML_QNT_VERSION * GGML_QNT_VERSION_FACTOR + GGML_FTYPE_MOSTLY_Q5_0;
}

ggml_type matrixType(WhisperWeightType weights) {
    return weights == WhisperWeightType::f16 ? GGML_TYPE_F16 : GGML_TYPE_Q5_0;
}

class Writer {
  public:
    explicit Writer(std::ostream& out) : out_(out) {}

    void u32(std::uint32_t value) { raw(&value, sizeof value); }
    void i32(std::int32_t value) { raw(&value, sizeof value); }
    void f32(float value) { raw(&value, sizeof value); }
    void text(const std::string& value) { raw(value.data(), value.size()); }

    // One tensor with ggml's dimension order (ne0 first, the fastest-moving index), its values
    // converted to `type` by ggml itself.
    void tensor(const std::string& name, const std::vector<std::int32_t>& ne, ggml_type type,
                const std::vector<float>& values) {
        i32(static_cast<std::int32_t>(ne.size()));
        i32(static_cast<std::int32_t>(name.size()));
        i32(type);
        std::size_t count = 1;
        for (std::int32_t n : ne) {
            i32(n);
            count *= static_cast<std::size_t>(n);
        }
        if (values.size() != count)
            throw std::logic_error("whisper test model: wrong value count for " + name);
        text(name);
        const auto rowLength = static_cast<std::int64_t>(ne[0]);
        const auto rows = static_cast<std::int64_t>(count) / rowLength;
        switch (type) {
            case GGML_TYPE_F32:
                raw(values.data(), count * sizeof(float));
                break;
            case GGML_TYPE_F16: {
                std::vector<ggml_fp16_t> halves(count);
                ggml_fp32_to_fp16_row(values.data(), halves.data(),
                                      static_cast<std::int64_t>(count));
                raw(halves.data(), count * sizeof(ggml_fp16_t));
                break;
            }
            default: {
                std::vector<char> blocks(ggml_row_size(type, rowLength) *
                                         static_cast<std::size_t>(rows));
                const std::size_t written = ggml_quantize_chunk(type, values.data(), blocks.data(),
                                                                0, rows, rowLength, nullptr);
                raw(blocks.data(), written);
            }
        }
    }

  private:
    // The format is little-endian, as are the machines we build on.
    void raw(const void* data, std::size_t size) {
        static_assert(std::endian::native == std::endian::little);
        out_.write(static_cast<const char*>(data), static_cast<std::streamsize>(size));
    }

    std::ostream& out_;
};

// The weights of one model: uniform random numbers from one seeded generator.
class Weights {
  public:
    explicit Weights(std::uint32_t seed) : random_(seed) {}

    std::vector<float> uniform(std::size_t count, float scale) {
        std::uniform_real_distribution<float> weight(-scale, scale);
        std::vector<float> values(count);
        for (float& v : values) v = weight(random_);
        return values;
    }
    static std::vector<float> filled(std::size_t count, float value) {
        return std::vector<float>(count, value);
    }

    // A random unit vector of `width` components.
    std::vector<float> direction(std::int32_t width) {
        std::vector<float> v = uniform(static_cast<std::size_t>(width), 1.0f);
        double norm = 0;
        for (float x : v) norm += static_cast<double>(x) * x;
        for (float& x : v) x = static_cast<float>(x / std::sqrt(norm));
        return v;
    }

  private:
    std::mt19937 random_;
};

// Triangular filters evenly spaced on the mel scale over 0..8 kHz, so the encoder sees a real
// spectrogram of the audio.
void writeMelFilters(Writer& out, std::int32_t nMels) {
    auto toMel = [](double hz) { return 2595.0 * std::log10(1.0 + hz / 700.0); };
    auto fromMel = [](double mel) { return 700.0 * (std::pow(10.0, mel / 2595.0) - 1.0); };
    const double top = toMel(kSampleRate / 2.0);
    out.i32(nMels);
    out.i32(kFftBins);
    for (std::int32_t m = 0; m < nMels; ++m) {
        const double lower = fromMel(top * m / (nMels + 1));
        const double centre = fromMel(top * (m + 1) / (nMels + 1));
        const double upper = fromMel(top * (m + 2) / (nMels + 1));
        for (std::int32_t bin = 0; bin < kFftBins; ++bin) {
            const double hz = bin * (kSampleRate / 2.0) / (kFftBins - 1);
            double weight = 0;
            if (hz > lower && hz <= centre) weight = (hz - lower) / (centre - lower);
            if (hz > centre && hz < upper) weight = (upper - hz) / (upper - centre);
            out.f32(static_cast<float>(weight));
        }
    }
}

// Pronounceable words from syllables, one per text token, so that transcripts read as words.
// Token 0 is a lone space: the decoder looks that token up to suppress blank starts.
std::string syntheticWord(std::int32_t index) {
    if (index == 0) return " ";
    static constexpr const char* kSyllables[] = {"ka", "lo", "mi", "ne", "ru", "sa", "ti", "vo",
                                                 "pe", "da", "go", "hu", "ji", "ba", "fo", "we"};
    std::string word = " ";
    std::int32_t rest = index;
    do {
        word += kSyllables[rest % 16];
        rest /= 16;
    } while (rest > 0);
    return word;
}

std::size_t area(std::int32_t rows, std::int32_t columns) {
    return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns);
}

void writeNorm(Writer& out, const std::string& prefix, std::int32_t width) {
    out.tensor(prefix + ".weight", {width}, GGML_TYPE_F32, Weights::filled(area(width, 1), 1.0f));
    out.tensor(prefix + ".bias", {width}, GGML_TYPE_F32, Weights::filled(area(width, 1), 0.0f));
}

void writeAttention(Writer& out, Weights& w, const std::string& prefix, std::int32_t width,
                    ggml_type matrices) {
    const float scale = 1.0f / std::sqrt(static_cast<float>(width));
    const auto square = area(width, width);
    writeNorm(out, prefix + "_ln", width);
    out.tensor(prefix + ".query.weight", {width, width}, matrices, w.uniform(square, scale));
    out.tensor(prefix + ".query.bias", {width}, GGML_TYPE_F32, w.uniform(area(width, 1), 0.02f));
    out.tensor(prefix + ".key.weight", {width, width}, matrices, w.uniform(square, scale));
    out.tensor(prefix + ".value.weight", {width, width}, matrices, w.uniform(square, scale));
    out.tensor(prefix + ".value.bias", {width}, GGML_TYPE_F32, w.uniform(area(width, 1), 0.02f));
    out.tensor(prefix + ".out.weight", {width, width}, matrices, w.uniform(square, scale));
    out.tensor(prefix + ".out.bias", {width}, GGML_TYPE_F32, w.uniform(area(width, 1), 0.02f));
}

void writeMlp(Writer& out, Weights& w, const std::string& prefix, std::int32_t width,
              ggml_type matrices) {
    const float scale = 1.0f / std::sqrt(static_cast<float>(width));
    writeNorm(out, prefix + ".mlp_ln", width);
    out.tensor(prefix + ".mlp.0.weight", {width, 4 * width}, matrices,
               w.uniform(area(width, 4 * width), scale));
    out.tensor(prefix + ".mlp.0.bias", {4 * width}, GGML_TYPE_F32,
               w.uniform(area(4 * width, 1), 0.02f));
    out.tensor(prefix + ".mlp.2.weight", {4 * width, width}, matrices,
               w.uniform(area(4 * width, width), scale / 2));
    out.tensor(prefix + ".mlp.2.bias", {width}, GGML_TYPE_F32, w.uniform(area(width, 1), 0.02f));
}

// The decoder's positional embedding and token embedding (which also projects to the logits).
// Untrained weights let a decoder repeat one token to the window's token limit, and whisper.cpp
// answers a failed window by sampling it again at rising temperatures: slow. So the positions
// dominate the residual stream and follow a cycle: six positions that each give one confident
// word, then one that points at the timestamp tokens (the last one, 30 s, most of all), then one
// that points at end-of-text. Wherever a window's prompt leaves the decoder, it says a few words,
// closes the segment at the end of the window and stops.
constexpr std::int32_t kCycle = 8;
constexpr std::int32_t kTimestampSlot = 6;
constexpr std::int32_t kEndSlot = 7;

void writeDecoderEmbeddings(Writer& out, Weights& w, const WhisperTestModelShape& shape) {
    const std::int32_t width = shape.nTextState;
    const bool multilingual = shape.nVocab >= 51865;
    const std::int32_t endOfText = multilingual ? 50257 : 50256;
    // The vocabulary ends with the 1501 timestamps, 0 to 30 s in steps of 20 ms.
    const std::int32_t lastTimestamp = shape.nVocab - 1;
    const std::int32_t firstTimestamp = lastTimestamp - 1500;
    const float tokenScale = 2.5f;
    const float positionScale =
        12.0f * tokenScale;  // per component: about ten times a token's norm
    const float norm = positionScale * std::sqrt(static_cast<float>(width) / 3.0f);

    // Two orthonormal directions: end-of-text and timestamps.
    const std::vector<float> end = w.direction(width);
    std::vector<float> stamp = w.direction(width);
    auto dot = [width](const float* x, const std::vector<float>& y) {
        double sum = 0;
        for (std::int32_t i = 0; i < width; ++i) sum += static_cast<double>(x[i]) * y[i];
        return sum;
    };
    auto addAlong = [width](float* x, const std::vector<float>& direction, double amount) {
        for (std::int32_t i = 0; i < width; ++i) x[i] += static_cast<float>(amount * direction[i]);
    };
    addAlong(stamp.data(), end, -dot(stamp.data(), end));
    const double stampNorm = std::sqrt(dot(stamp.data(), stamp));
    for (float& x : stamp) x = static_cast<float>(x / stampNorm);

    std::vector<float> positions = w.uniform(area(width, shape.nTextCtx), positionScale);
    for (std::int32_t k = 0; k < shape.nTextCtx; ++k) {
        float* row = positions.data() + area(k, width);
        addAlong(row, end, -dot(row, end));
        addAlong(row, stamp, -dot(row, stamp));
        if (k % kCycle == kTimestampSlot) addAlong(row, stamp, 2.0 * norm);
        if (k % kCycle == kEndSlot) addAlong(row, end, 2.0 * norm);
    }
    out.tensor("decoder.positional_embedding", {width, shape.nTextCtx}, GGML_TYPE_F32, positions);

    std::vector<float> tokens = w.uniform(area(width, shape.nVocab), tokenScale);
    const float strong = 4.0f * tokenScale * std::sqrt(static_cast<float>(width));
    auto setRow = [&](std::int32_t token, const std::vector<float>& direction, float length) {
        for (std::int32_t i = 0; i < width; ++i)
            tokens[area(token, width) + i] = length * direction[i];
    };
    setRow(endOfText, end, strong);
    setRow(lastTimestamp, stamp, strong);
    // A window may only open with a timestamp of the first second; these take the slot then.
    for (std::int32_t token = firstTimestamp; token <= firstTimestamp + 50; ++token)
        setRow(token, stamp, strong / 2);
    out.tensor("decoder.token_embedding.weight", {width, shape.nVocab}, matrixType(shape.weights),
               tokens);
}

void validate(const WhisperTestModelShape& s) {
    for (std::int32_t v : {s.nAudioCtx, s.nAudioState, s.nAudioHead, s.nAudioLayer, s.nTextCtx,
                           s.nTextState, s.nTextHead, s.nTextLayer, s.nMels}) {
        if (v <= 0) throw std::invalid_argument("whisper test model: every size must be positive");
    }
    if (s.nAudioState % s.nAudioHead != 0 || s.nTextState % s.nTextHead != 0) {
        throw std::invalid_argument(
            "whisper test model: a width must be divisible by its head count");
    }
    // The English-only layout needs 50256 text tokens, 9 specials and 1501 timestamps.
    if (s.nVocab < 51864)
        throw std::invalid_argument(
            "whisper test model: the vocabulary needs at least 51864 tokens");
    // Quantised rows are whole blocks of 32 values.
    const auto block = static_cast<std::int32_t>(ggml_blck_size(matrixType(s.weights)));
    if (s.nAudioState % block != 0 || s.nTextState % block != 0) {
        throw std::invalid_argument("whisper test model: a quantised width must be a multiple of " +
                                    std::to_string(block));
    }
}

}  // namespace

WhisperTestModelShape WhisperTestModelShape::largeV3Turbo() {
    // whisper.cpp's loader reads eleven header integers in this order (whisper_model_load); these
    // are large-v3 turbo's, the dimensions of OpenAI's checkpoint that whisper.cpp's converter
    // writes there.
    WhisperTestModelShape shape;
    shape.nVocab = 51866;      // v3's vocabulary: 100 languages, one more than v2's 51865
    shape.nAudioCtx = 1500;    // 30 s of 10 ms mel frames, halved by the second convolution
    shape.nAudioState = 1280;  // the large models' width
    shape.nAudioHead = 20;     // 64 per head
    shape.nAudioLayer = 32;    // the loader calls 32 layers with 51866 tokens "large v3"
    shape.nTextCtx = 448;      // tokens per window
    shape.nTextState = 1280;   // the loader requires the decoder as wide as the encoder
    shape.nTextHead = 20;
    shape.nTextLayer = 4;  // turbo: large-v3 with its 32 decoder layers pruned to 4
    shape.nMels = 128;     // v3's spectrogram (v2 and before: 80)
    shape.weights = WhisperWeightType::q5_0;  // ftype 2008: q5_0, quantisation version 2
    return shape;
}

void writeWhisperTestModel(std::ostream& stream, const WhisperTestModelShape& shape) {
    validate(shape);
    Writer out(stream);
    out.u32(kMagic);
    for (std::int32_t v : {shape.nVocab, shape.nAudioCtx, shape.nAudioState, shape.nAudioHead,
                           shape.nAudioLayer, shape.nTextCtx, shape.nTextState, shape.nTextHead,
                           shape.nTextLayer, shape.nMels, headerFtype(shape.weights)}) {
        out.i32(v);
    }
    writeMelFilters(out, shape.nMels);

    // Only the text tokens are written; the loader adds the specials and timestamps itself.
    const std::int32_t textTokens = shape.nVocab >= 51865 ? 50257 : 50256;
    out.i32(textTokens);
    for (std::int32_t i = 0; i < textTokens; ++i) {
        const std::string word = syntheticWord(i);
        out.u32(static_cast<std::uint32_t>(word.size()));
        out.text(word);
    }

    Weights w(shape.seed);
    const ggml_type matrices = matrixType(shape.weights);
    const std::int32_t a = shape.nAudioState;
    out.tensor("encoder.positional_embedding", {a, shape.nAudioCtx}, GGML_TYPE_F32,
               w.uniform(area(a, shape.nAudioCtx), 0.1f));
    out.tensor("encoder.conv1.weight", {3, shape.nMels, a}, GGML_TYPE_F16,
               w.uniform(area(3 * shape.nMels, a),
                         1.0f / std::sqrt(3.0f * static_cast<float>(shape.nMels))));
    out.tensor("encoder.conv1.bias", {1, a}, GGML_TYPE_F32, w.uniform(area(a, 1), 0.02f));
    out.tensor("encoder.conv2.weight", {3, a, a}, GGML_TYPE_F16,
               w.uniform(area(3 * a, a), 1.0f / std::sqrt(3.0f * static_cast<float>(a))));
    out.tensor("encoder.conv2.bias", {1, a}, GGML_TYPE_F32, w.uniform(area(a, 1), 0.02f));
    for (std::int32_t layer = 0; layer < shape.nAudioLayer; ++layer) {
        const std::string block = "encoder.blocks." + std::to_string(layer);
        writeMlp(out, w, block, a, matrices);
        writeAttention(out, w, block + ".attn", a, matrices);
    }
    writeNorm(out, "encoder.ln_post", a);

    const std::int32_t t = shape.nTextState;
    writeDecoderEmbeddings(out, w, shape);
    for (std::int32_t layer = 0; layer < shape.nTextLayer; ++layer) {
        const std::string block = "decoder.blocks." + std::to_string(layer);
        writeMlp(out, w, block, t, matrices);
        writeAttention(out, w, block + ".attn", t, matrices);
        writeAttention(out, w, block + ".cross_attn", t, matrices);
    }
    writeNorm(out, "decoder.ln", t);
}

std::string makeWhisperTestModel(const WhisperTestModelShape& shape) {
    std::ostringstream out;
    writeWhisperTestModel(out, shape);
    return std::move(out).str();
}

void writeWhisperTestModel(const std::filesystem::path& path, const WhisperTestModelShape& shape) {
    if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
    // Hundreds of megabytes at the real size: streamed to a file, never held whole.
    std::filesystem::path partial = path;
    partial += ".writing-" + std::to_string(::getpid());
    try {
        std::ofstream out;
        out.exceptions(std::ios::failbit | std::ios::badbit);
        out.open(partial, std::ios::binary | std::ios::trunc);
        writeWhisperTestModel(out, shape);
        out.close();
        std::filesystem::rename(partial, path);
    } catch (...) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        throw;
    }
}

bool ensureWhisperTestModel(const std::filesystem::path& path, const WhisperTestModelShape& shape) {
    // Bump kRevision when the bytes written for a shape change.
    constexpr int kRevision = 2;
    std::ostringstream note;
    note << "revision " << kRevision << "; header";
    for (std::int32_t v : {shape.nVocab, shape.nAudioCtx, shape.nAudioState, shape.nAudioHead,
                           shape.nAudioLayer, shape.nTextCtx, shape.nTextState, shape.nTextHead,
                           shape.nTextLayer, shape.nMels, headerFtype(shape.weights)}) {
        note << ' ' << v;
    }
    note << "; seed " << shape.seed << '\n';
    std::filesystem::path notePath = path;
    notePath += ".shape";
    std::ifstream existing(notePath);
    const std::string previous((std::istreambuf_iterator<char>(existing)), {});
    std::error_code error;
    if (previous == note.str() && std::filesystem::exists(path, error)) return false;
    writeWhisperTestModel(path, shape);
    std::ofstream(notePath, std::ios::trunc) << note.str();
    return true;
}

}  // namespace corvane::tools
