#include "SpeechEngine/ScriptedRuntime.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

#include "CorvaneApp/platform/AtomicFile.h"
#include "SpeechEngine/TdtDecoderState.h"

namespace speech {
namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const MultiArray& input(const FeatureMap& inputs, const char* name) {
    const auto* array = inputs.find(name);
    if (!array) throw std::runtime_error(std::string("scripted network: missing input ") + name);
    return *array;
}

std::int64_t framesFor(std::int64_t samples, int samplesPerFrame) {
    return (std::max<std::int64_t>(samples, 0) + samplesPerFrame - 1) / samplesPerFrame;
}

class ScriptedModel : public NeuralModel {
  public:
    ScriptedModel(ModelDescription description, ModelConfiguration configuration)
        : description_(std::move(description)), configuration_(configuration) {}
    const ModelDescription& description() const override { return description_; }
    const ModelConfiguration& configuration() const override { return configuration_; }

  private:
    ModelDescription description_;
    ModelConfiguration configuration_;
};

// Frame means of the audio, optionally spread straight into encoder frames.
class Preprocessor final : public ScriptedModel {
  public:
    Preprocessor(ModelConfiguration configuration, int samplesPerFrame, int encoderHiddenSize)
        : ScriptedModel(
              {{"audio_signal", "audio_length"},
               encoderHiddenSize > 0 ? std::vector<std::string>{"encoder", "encoder_length"}
                                     : std::vector<std::string>{"mel", "mel_length"}},
              configuration),
          samplesPerFrame_(samplesPerFrame),
          encoderHiddenSize_(encoderHiddenSize) {}

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        const auto& audio = input(inputs, "audio_signal");
        const auto& length = input(inputs, "audio_length");
        std::int64_t samples = audio.count();
        std::int64_t frames = framesFor(samples, samplesPerFrame_);
        std::int64_t valid = std::min(
            frames, framesFor(static_cast<std::int64_t>(length.flat(0)), samplesPerFrame_));
        bool direct = encoderHiddenSize_ > 0;
        auto& mel = direct ? outputs.prepare("encoder", {1, encoderHiddenSize_, frames})
                           : outputs.prepare("mel", {1, 1, frames});
        for (std::int64_t f = 0; f < frames; ++f) {
            std::int64_t begin = f * samplesPerFrame_;
            std::int64_t end = std::min(samples, begin + samplesPerFrame_);
            double sum = 0;
            if (audio.isContiguous()) {
                for (std::int64_t i = begin; i < end; ++i)
                    sum += audio.storage()[static_cast<std::size_t>(i)];
            } else {
                for (std::int64_t i = begin; i < end; ++i) sum += audio.flat(i);
            }
            mel.storage()[static_cast<std::size_t>(f)] = static_cast<float>(sum / samplesPerFrame_);
        }
        outputs.prepare(direct ? "encoder_length" : "mel_length", {1}, ElementType::int32)
            .storage()[0] = static_cast<float>(valid);
    }

    int samplesPerFrame_;
    int encoderHiddenSize_;
};

class Encoder final : public ScriptedModel {
  public:
    Encoder(ModelConfiguration configuration, int hiddenSize, bool timeMajor)
        : ScriptedModel({{"mel", "mel_length"}, {"encoder", "encoder_length"}}, configuration),
          hiddenSize_(hiddenSize),
          timeMajor_(timeMajor) {}

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        const auto& mel = input(inputs, "mel");
        const auto& length = input(inputs, "mel_length");
        std::int64_t frames = mel.count();
        auto& encoder = timeMajor_ ? outputs.prepare("encoder", {1, frames, hiddenSize_})
                                   : outputs.prepare("encoder", {1, hiddenSize_, frames});
        for (std::int64_t f = 0; f < frames; ++f) {
            if (timeMajor_) {
                encoder.at({0, f, 0}) = mel.flat(f);
            } else {
                encoder.at({0, 0, f}) = mel.flat(f);
            }
        }
        outputs.prepare("encoder_length", {1}, ElementType::int32).storage()[0] = length.flat(0);
    }

    int hiddenSize_;
    bool timeMajor_;
};

class Decoder final : public ScriptedModel {
  public:
    explicit Decoder(ModelConfiguration configuration)
        : ScriptedModel(
              {{"targets", "target_length", "h_in", "c_in"}, {"decoder", "h_out", "c_out"}},
              configuration) {}

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        const auto& targets = input(inputs, "targets");
        const auto& h = input(inputs, "h_in");
        const auto& c = input(inputs, "c_in");
        outputs.prepare("decoder", {1, TdtDecoderState::hiddenSize, 1}).storage()[0] =
            targets.flat(0);
        auto& hOut = outputs.prepare("h_out", h.shape());
        std::copy(h.storage().begin(), h.storage().end(), hOut.storage().begin());
        if (hOut.count() > 0) hOut.storage()[0] += 1.0f;
        auto& cOut = outputs.prepare("c_out", c.shape());
        std::copy(c.storage().begin(), c.storage().end(), cOut.storage().begin());
    }
};

class Joint final : public ScriptedModel {
  public:
    Joint(ModelConfiguration configuration, int blankId, int blankDuration, double codeScale,
          std::vector<ScriptedRuntime::JointRule> rules)
        : ScriptedModel({{"encoder_step", "decoder_step"}, {"token_id", "token_prob", "duration"}},
                        configuration),
          blankId_(blankId),
          blankDuration_(blankDuration),
          codeScale_(codeScale),
          rules_(std::move(rules)) {}

  private:
    void run(const FeatureMap& inputs, FeatureMap& outputs) const override {
        int code =
            static_cast<int>(std::lround(input(inputs, "encoder_step").flat(0) * codeScale_));
        int previous = static_cast<int>(std::lround(input(inputs, "decoder_step").flat(0)));
        int token = blankId_;
        int duration = blankDuration_;
        float probability = 1.0f;
        for (const auto& rule : rules_) {
            if (rule.code != code) continue;
            auto at = std::find(rule.tokens.begin(), rule.tokens.end(), previous);
            std::size_t next = at == rule.tokens.end()
                                   ? 0
                                   : static_cast<std::size_t>(at - rule.tokens.begin()) + 1;
            if (next < rule.tokens.size()) {
                token = rule.tokens[next];
                duration = next < rule.durations.size() ? rule.durations[next] : 1;
                probability = next < rule.probabilities.size() ? rule.probabilities[next] : 1.0f;
            }
            break;
        }
        outputs.prepare("token_id", {1}, ElementType::int32).storage()[0] =
            static_cast<float>(token);
        outputs.prepare("token_prob", {1}).storage()[0] = probability;
        outputs.prepare("duration", {1}, ElementType::int32).storage()[0] =
            static_cast<float>(duration);
    }

    int blankId_;
    int blankDuration_;
    double codeScale_;
    std::vector<ScriptedRuntime::JointRule> rules_;
};

template <typename T>
std::vector<T> listOf(const json& rule, const char* key) {
    if (!rule.contains(key)) return {};
    return rule.at(key).get<std::vector<T>>();
}

std::shared_ptr<const NeuralModel> build(const json& script,
                                         const ModelConfiguration& configuration) {
    std::string network = script.at("network").get<std::string>();
    if (network == "preprocessor") {
        int samplesPerFrame = script.value("samplesPerFrame", ScriptedRuntime::samplesPerFrame);
        if (samplesPerFrame < 1) throw std::invalid_argument("samplesPerFrame must be positive");
        return std::make_shared<Preprocessor>(configuration, samplesPerFrame,
                                              script.value("encoderHiddenSize", 0));
    }
    if (network == "encoder") {
        int hidden = script.value("hiddenSize", 1024);
        if (hidden < 1) throw std::invalid_argument("hiddenSize must be positive");
        return std::make_shared<Encoder>(configuration, hidden,
                                         script.value("layout", "hiddenMajor") == "timeMajor");
    }
    if (network == "decoder") return std::make_shared<Decoder>(configuration);
    if (network == "joint") {
        std::vector<ScriptedRuntime::JointRule> rules;
        for (const auto& rule : script.value("rules", json::array())) {
            rules.push_back({rule.at("code").get<int>(), listOf<int>(rule, "tokens"),
                             listOf<int>(rule, "durations"), listOf<float>(rule, "probabilities")});
        }
        return std::make_shared<Joint>(
            configuration, script.at("blankId").get<int>(), script.value("blankDuration", 1),
            script.value("codeScale", ScriptedRuntime::codeScale), std::move(rules));
    }
    throw std::invalid_argument("unknown network \"" + network + "\"");
}

}  // namespace

std::shared_ptr<const NeuralModel> ScriptedRuntime::load(
    const fs::path& modelFolder, const ModelConfiguration& configuration) const {
    auto text = corvane::readFile(modelFolder / "coremldata.bin");
    if (!text) throw ModelLoadError("Cannot read " + (modelFolder / "coremldata.bin").string());
    try {
        return build(json::parse(*text), configuration);
    } catch (const std::exception& error) {
        throw ModelLoadError("Invalid scripted network in " + modelFolder.string() + ": " +
                             error.what());
    }
}

std::vector<float> ScriptedRuntime::frameCodedAudio(const std::vector<int>& codes) {
    std::vector<float> samples;
    samples.reserve(codes.size() * samplesPerFrame);
    for (int code : codes)
        samples.insert(samples.end(), samplesPerFrame, static_cast<float>(code / codeScale));
    return samples;
}

void ScriptedRuntime::writeModelFolder(const fs::path& folder, const std::string& script) {
    fs::create_directories(folder);
    corvane::writeFileAtomically(folder / "coremldata.bin", script);
}

void ScriptedRuntime::installModelSet(const fs::path& folder, AsrModelVersion version,
                                      const std::vector<JointRule>& rules, int blankId,
                                      const Vocabulary& vocabulary, int encoderHiddenSize) {
    auto files = modelFiles(version);
    json preprocessor = {{"network", "preprocessor"}, {"samplesPerFrame", samplesPerFrame}};
    if (!files.encoder) preprocessor["encoderHiddenSize"] = encoderHiddenSize;
    writeModelFolder(folder / files.preprocessor, preprocessor.dump());
    if (files.encoder) {
        writeModelFolder(folder / *files.encoder,
                         json{{"network", "encoder"}, {"hiddenSize", encoderHiddenSize}}.dump());
    }
    writeModelFolder(folder / files.decoder, json{{"network", "decoder"}}.dump());
    json jointRules = json::array();
    for (const auto& rule : rules) {
        jointRules.push_back({{"code", rule.code},
                              {"tokens", rule.tokens},
                              {"durations", rule.durations},
                              {"probabilities", rule.probabilities}});
    }
    writeModelFolder(
        folder / files.joint,
        json{{"network", "joint"}, {"blankId", blankId}, {"rules", jointRules}}.dump());
    json vocab = json::object();
    for (const auto& [id, text] : vocabulary) vocab[std::to_string(id)] = text;
    corvane::writeFileAtomically(folder / files.vocabulary, vocab.dump());
}

}  // namespace speech
