// The TDT loop's own cost per encoder frame, with networks that cost nothing, and the merging of
// one hour of chunk token streams. Build in Release to read the figures.

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "SpeechEngine/ChunkProcessor.h"
#include "SpeechEngine/TdtDecoderV3.h"

namespace speech {
namespace {

constexpr int blank = 8192;

// A network whose run is a plain function of its inputs: the cost of a run is the call itself.
class FreeModel final : public NeuralModel {
  public:
    using Run = void (*)(const FeatureMap&, FeatureMap&);
    FreeModel(ModelDescription description, Run run)
        : description_(std::move(description)), run_(run) {}
    const ModelDescription& description() const override { return description_; }
    const ModelConfiguration& configuration() const override { return configuration_; }

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        run_(inputs, outputs);
    }
    ModelDescription description_;
    ModelConfiguration configuration_;
    Run run_;
};

// A token on every third frame, blanks of one or two frames between.
void freeJoint(const FeatureMap& inputs, FeatureMap& outputs) {
    auto frame = static_cast<int>(inputs.find("encoder_step")->storage()[0]);
    auto previous = static_cast<int>(inputs.find("decoder_step")->storage()[0]);
    bool speak = frame % 3 == 0 && previous != frame % 1000;
    outputs.prepare("token_id", {1}, ElementType::int32).storage()[0] =
        static_cast<float>(speak ? frame % 1000 : blank);
    outputs.prepare("token_prob", {1}).storage()[0] = 0.9f;
    outputs.prepare("duration", {1}, ElementType::int32).storage()[0] =
        static_cast<float>(frame % 2 + 1);
}

// A predictor that only echoes its token; its state passes through unchanged.
void freeDecoder(const FeatureMap& inputs, FeatureMap& outputs) {
    outputs.prepare("decoder", {1, 640, 1}).storage()[0] = inputs.find("targets")->storage()[0];
}

// Frames of width 1024 whose first element is the frame index, in either layout.
MultiArray encoderFrames(int frames, bool timeMajor) {
    MultiArray array(timeMajor ? std::vector<std::int64_t>{1, frames, 1024}
                               : std::vector<std::int64_t>{1, 1024, frames});
    for (int t = 0; t < frames; ++t) {
        if (timeMajor) {
            array.at({0, t, 0}) = static_cast<float>(t);
        } else {
            array.at({0, 0, t}) = static_cast<float>(t);
        }
    }
    return array;
}

void BM_TdtLoopPerFrame(benchmark::State& state) {
    int frames = static_cast<int>(state.range(0));
    bool timeMajor = state.range(1) != 0;
    ASRConfig config;
    config.tdtConfig.maxTokensPerChunk = frames;  // let a long run decode every frame
    TdtDecoderV3 decoder(config);
    FreeModel joint({{"encoder_step", "decoder_step"}, {"token_id", "token_prob", "duration"}},
                    freeJoint);
    FreeModel predictor({{"targets", "target_length", "h_in", "c_in"}, {"decoder"}}, freeDecoder);
    auto encoder = encoderFrames(frames, timeMajor);
    std::size_t tokens = 0;
    for (auto _ : state) {
        TdtDecoderState decoderState(2);
        auto hypothesis = decoder.decodeWithTimings(encoder, frames, frames, predictor, joint,
                                                    decoderState, 0, true, 0);
        tokens = hypothesis.ySequence.size();
        benchmark::DoNotOptimize(hypothesis);
    }
    state.SetItemsProcessed(state.iterations() * frames);
    state.counters["ns_per_frame"] =
        benchmark::Counter(static_cast<double>(frames) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.counters["tokens"] = static_cast<double>(tokens);
}
// One encoder window (188 frames) and a long run, in both frame layouts.
BENCHMARK(BM_TdtLoopPerFrame)
    ->Args({188, 0})
    ->Args({188, 1})
    ->Args({20000, 0})
    ->Args({20000, 1})
    ->Unit(benchmark::kMicrosecond);

// The token streams of one hour of audio as the chunked path produces them: three tokens a
// second, each chunk covering its frames, later chunks one frame late as their context shifts.
std::vector<std::vector<ChunkProcessor::Token>> hourOfChunks(const ChunkProcessor& processor) {
    std::vector<std::vector<ChunkProcessor::Token>> chunks;
    for (const auto& plan : processor.plan()) {
        std::vector<ChunkProcessor::Token> tokens;
        int shift = plan.context > 0 ? 1 : 0;
        for (auto frame = plan.start / 1280; frame < (plan.end + 1279) / 1280; ++frame) {
            if (frame % 4 == 0)
                tokens.push_back(
                    {static_cast<int>(frame * 7 % 1000), static_cast<int>(frame) + shift, 0.9f, 1});
        }
        chunks.push_back(std::move(tokens));
    }
    return chunks;
}

void BM_MergeOneHour(benchmark::State& state) {
    std::vector<float> none;
    ArraySampleSource source(none);
    ChunkProcessor processor(source, 3600LL * 16000);
    auto chunks = hourOfChunks(processor);
    std::size_t merged = 0;
    for (auto _ : state) {
        auto all = chunks.front();
        for (std::size_t i = 1; i < chunks.size(); ++i) all = processor.mergeChunks(all, chunks[i]);
        std::stable_sort(all.begin(), all.end(),
                         [](const auto& a, const auto& b) { return a.timestamp < b.timestamp; });
        merged = all.size();
        benchmark::DoNotOptimize(all);
    }
    state.counters["chunks"] = static_cast<double>(chunks.size());
    state.counters["tokens"] = static_cast<double>(merged);
}
BENCHMARK(BM_MergeOneHour)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace speech

BENCHMARK_MAIN();
