#include "CorvaneApp/models/WhisperModelFile.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <iterator>

#include <ggml.h>

namespace corvane {
namespace {

constexpr std::uint32_t kMagic = 0x67676d6c;  // "ggml"

// Bytes per block and values per block of the tensor types whisper models are stored in, by
// their ggml type number.
struct TensorType {
    ggml_type id;
    std::uint64_t blockBytes;
    std::uint64_t blockValues;
};
constexpr TensorType kTypes[] = {
    {GGML_TYPE_F32, 4, 1},      {GGML_TYPE_F16, 2, 1},      {GGML_TYPE_Q4_0, 18, 32},
    {GGML_TYPE_Q4_1, 20, 32},   {GGML_TYPE_Q5_0, 22, 32},   {GGML_TYPE_Q5_1, 24, 32},
    {GGML_TYPE_Q8_0, 34, 32},   {GGML_TYPE_Q2_K, 84, 256},  {GGML_TYPE_Q3_K, 110, 256},
    {GGML_TYPE_Q4_K, 144, 256}, {GGML_TYPE_Q5_K, 176, 256}, {GGML_TYPE_Q6_K, 210, 256},
};

class Reader {
  public:
    explicit Reader(const std::filesystem::path& path) : in_(path, std::ios::binary) {
        in_.seekg(0, std::ios::end);
        size_ = in_ ? static_cast<std::uint64_t>(in_.tellg()) : 0;
        in_.seekg(0);
    }
    bool opened() const { return static_cast<bool>(in_); }
    std::uint64_t remaining() { return size_ - static_cast<std::uint64_t>(in_.tellg()); }
    bool atEnd() { return remaining() == 0; }

    bool read(void* out, std::uint64_t bytes) {
        if (remaining() < bytes) return false;
        in_.read(static_cast<char*>(out), static_cast<std::streamsize>(bytes));
        return static_cast<bool>(in_);
    }
    template <typename T>
    bool value(T& out) {
        return read(&out, sizeof out);
    }
    bool skip(std::uint64_t bytes) {
        if (remaining() < bytes) return false;
        in_.seekg(static_cast<std::streamoff>(bytes), std::ios::cur);
        return static_cast<bool>(in_);
    }

  private:
    std::ifstream in_;
    std::uint64_t size_ = 0;
};

std::optional<std::string> checkTensors(Reader& in) {
    int count = 0;
    while (!in.atEnd()) {
        std::int32_t dims = 0, nameLength = 0, type = 0;
        if (!in.value(dims) || !in.value(nameLength) || !in.value(type))
            return "file ends inside a tensor header";
        if (dims < 1 || dims > 4) return "tensor with " + std::to_string(dims) + " dimensions";
        if (nameLength < 1 || nameLength > 256)
            return "tensor name of " + std::to_string(nameLength) + " bytes";
        const TensorType* known = nullptr;
        for (const auto& t : kTypes) known = t.id == type ? &t : known;
        if (!known) return "tensor of unknown type " + std::to_string(type);
        std::uint64_t values = 1;
        for (std::int32_t d = 0; d < dims; ++d) {
            std::int32_t extent = 0;
            if (!in.value(extent)) return "file ends inside a tensor header";
            if (extent < 1) return "tensor with an extent of " + std::to_string(extent);
            values *= static_cast<std::uint64_t>(extent);
            if (values > (std::uint64_t{1} << 40)) return "tensor larger than any model";
        }
        std::string name(static_cast<std::size_t>(nameLength), '\0');
        if (!in.read(name.data(), name.size())) return "file ends inside a tensor name";
        if (values % known->blockValues != 0) return "tensor " + name + " does not fill its blocks";
        if (!in.skip(values / known->blockValues * known->blockBytes))
            return "file ends inside tensor " + name;
        ++count;
    }
    if (count == 0) return std::string("no tensors");
    return std::nullopt;
}

// The header's hyper-parameters. whisper.cpp trusts them: a zero head count divides by zero and
// an unknown weight type is an assertion, either of which would end the process.
std::optional<std::string> checkHeader(const std::int32_t (&h)[11]) {
    enum {
        vocab,
        audioCtx,
        audioState,
        audioHead,
        audioLayer,
        textCtx,
        textState,
        textHead,
        textLayer,
        mels,
        ftype
    };
    static constexpr struct {
        const char* name;
        std::int32_t least, most;
    } kRanges[] = {{"n_vocab", 51864, 1 << 20}, {"n_audio_ctx", 1, 4096},
                   {"n_audio_state", 1, 8192},  {"n_audio_head", 1, 256},
                   {"n_audio_layer", 1, 256},   {"n_text_ctx", 1, 4096},
                   {"n_text_state", 1, 8192},   {"n_text_head", 1, 256},
                   {"n_text_layer", 1, 256},    {"n_mels", 1, 512}};
    for (int i = 0; i < ftype; ++i) {
        if (h[i] < kRanges[i].least || h[i] > kRanges[i].most) {
            return std::string(kRanges[i].name) + " of " + std::to_string(h[i]) +
                   " is out of range";
        }
    }
    if (h[audioState] % h[audioHead] != 0 || h[textState] % h[textHead] != 0)
        return std::string("a width does not divide by its heads");
    // Weight types by ggml_ftype, after the quantisation version (thousands) is taken off.
    static constexpr std::int32_t kWeightTypes[] = {0, 1, 2, 3, 7, 8, 9, 10, 11, 12, 13, 14};
    const std::int32_t weights = h[ftype] % 1000;
    if (h[ftype] < 0 || std::find(std::begin(kWeightTypes), std::end(kWeightTypes), weights) ==
                            std::end(kWeightTypes)) {
        return "unknown weight type " + std::to_string(h[ftype]);
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> WhisperModelFile::problem(const std::filesystem::path& path) {
    Reader in(path);
    if (!in.opened()) return std::string("cannot be opened");
    std::uint32_t magic = 0;
    if (!in.value(magic) || magic != kMagic) return std::string("not a ggml model (bad magic)");
    std::int32_t header[11] = {};
    for (auto& field : header) {
        if (!in.value(field)) return std::string("file ends inside the header");
    }
    if (auto problem = checkHeader(header)) return problem;
    std::int32_t mels = 0, bins = 0;
    if (!in.value(mels) || !in.value(bins)) return std::string("file ends before the mel filters");
    // The spectrogram is computed with these filters and fed to a layer sized by n_mels.
    if (mels != header[9] || bins != 201) return std::string("mel filters do not fit the model");
    if (!in.skip(static_cast<std::uint64_t>(mels) * static_cast<std::uint64_t>(bins) *
                 sizeof(float))) {
        return std::string("file ends inside the mel filters");
    }
    std::int32_t words = 0;
    if (!in.value(words) || words < 0) return std::string("file ends before the vocabulary");
    for (std::int32_t i = 0; i < words; ++i) {
        std::uint32_t length = 0;
        if (!in.value(length) || !in.skip(length))
            return std::string("file ends inside the vocabulary");
    }
    return checkTensors(in);
}

}  // namespace corvane
