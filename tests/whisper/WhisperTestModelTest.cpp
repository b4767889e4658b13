// The generator writes a file whisper.cpp 1.9.1 takes as a model, and the model transcribes.

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include <whisper.h>

#include "CorvaneApp/models/WhisperModelFile.h"
#include "tests/support/WhisperFixtures.h"
#include "tools/whisper-test-model/WhisperTestModel.h"

namespace corvane::testing {
namespace {

struct ContextFree {
    void operator()(whisper_context* c) const { whisper_free(c); }
};
using Context = std::unique_ptr<whisper_context, ContextFree>;

Context load(const std::filesystem::path& path) {
    whisper_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
    return Context(whisper_init_from_file_with_params(path.c_str(), whisper_context_default_params()));
}

TEST(WhisperTestModel, BuildTreeModelLoadsPassesTheFileCheckAndTranscribesIntoWords) {
    ASSERT_TRUE(std::filesystem::exists(whisperTestModelFile()));
    EXPECT_EQ(WhisperModelFile::problem(whisperTestModelFile()), std::nullopt);
    Context ctx = load(whisperTestModelFile());
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(whisper_model_n_text_layer(ctx.get()), 1);
    EXPECT_EQ(whisper_model_n_audio_state(ctx.get()), 64);
    EXPECT_TRUE(whisper_is_multilingual(ctx.get()));

    // Two windows of a tone: each closes its segment and stops after a few words.
    const std::vector<float> pcm = sineSamples(40);
    whisper_full_params params = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
    params.n_threads = 2;
    params.language = "en";
    ASSERT_EQ(whisper_full(ctx.get(), params, pcm.data(), static_cast<int>(pcm.size())), 0);
    ASSERT_EQ(whisper_full_n_segments(ctx.get()), 2);
    for (int i = 0; i < 2; ++i) {
        const std::string text = whisper_full_get_segment_text(ctx.get(), i);
        EXPECT_GE(std::count(text.begin(), text.end(), ' '), 2) << text;
    }
    EXPECT_EQ(whisper_full_get_segment_t1(ctx.get(), 0), 3000);  // the first window ends at 30 s
}

TEST(WhisperModelFileCheck, NamesWhatIsWrongWithDamagedFiles) {
    ScratchFolder folder;
    const std::string model = tools::makeWhisperTestModel({});
    std::string badDims = model;
    // The first tensor header follows the vocabulary; find it by its name and corrupt n_dims.
    const auto name = badDims.find("encoder.positional_embedding");
    ASSERT_NE(name, std::string::npos);
    const std::int32_t dims = 9;
    std::memcpy(badDims.data() + name - 20, &dims, 4);  // n_dims, name length, type, ne0, ne1, name

    auto withHeaderField = [&](int index, std::int32_t value) {
        std::string bytes = model;
        std::memcpy(bytes.data() + 4 + 4 * index, &value, 4);
        return bytes;
    };
    const struct {
        const char* what;
        std::string bytes;
        const char* problem;
    } rows[] = {
        {"empty", "", "not a ggml model (bad magic)"},
        {"random bytes", std::string(4096, '\x5a'), "not a ggml model (bad magic)"},
        {"header only", model.substr(0, 30), "file ends inside the header"},
        {"cut in the vocabulary", model.substr(0, 100'000), "file ends inside the vocabulary"},
        {"cut in the last tensor", model.substr(0, model.size() - 100), "file ends inside tensor decoder.ln.bias"},
        {"nine dimensions", badDims, "tensor with 9 dimensions"},
        // Values whisper.cpp would divide by or assert on, ending the process.
        {"no heads", withHeaderField(3, 0), "n_audio_head of 0 is out of range"},
        {"uneven heads", withHeaderField(7, 3), "a width does not divide by its heads"},
        {"unknown weights", withHeaderField(10, 99), "unknown weight type 99"},
        {"more mels", withHeaderField(9, 128), "mel filters do not fit the model"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(WhisperModelFile::problem(folder.write(row.what, row.bytes)), row.problem) << row.what;
    }
    EXPECT_EQ(WhisperModelFile::problem(folder / "absent"), "cannot be opened");
    // whisper.cpp itself takes a file cut inside its last tensor: the check is what stops it.
    EXPECT_NE(load(folder / "cut in the last tensor"), nullptr);
}

}  // namespace
}  // namespace corvane::testing
