#pragma once
// FOR TESTS AND DEMOS ONLY: a runtime whose "networks" are small scripts read from a model
// folder, not trained weights. It lets the whole engine run end to end with outputs known in
// advance. The script is the JSON text of the folder's "coremldata.bin":
//
//   {"network": "preprocessor", "samplesPerFrame": 1280}
//       "audio_signal", "audio_length" -> "mel" (1, 1, frames): the mean of each frame's samples;
//       "mel_length": frames that hold real audio
//   {"network": "encoder", "hiddenSize": 1024, "layout": "hiddenMajor" | "timeMajor"}
//       "mel", "mel_length" -> "encoder" (1, hidden, frames) or (1, frames, hidden) whose first
//       hidden element is the frame's mel value; "encoder_length"
//   {"network": "decoder"}
//       -> "decoder" (1, 640, 1) whose first element is the input token; "h_out" counts calls
//   {"network": "joint", "blankId": 1024, "blankDuration": 1, "codeScale": 1000,
//    "rules": [{"code": 7, "tokens": [12, 40], "durations": [0, 2], "probabilities": [0.9, 0.8]}]}
//       A frame's code is round(first encoder element * codeScale). At a frame whose code has a
//       rule, the joint emits the rule's tokens in order: the first one unless the previous token
//       is one of them, else the one after it, then blank. Elsewhere it answers blank with the
//       duration index "blankDuration". Tokens of one rule must differ from each other.
//
// frameCodedAudio() makes audio whose frames carry chosen codes, so a test or demo decides which
// tokens come out where. Every network is a pure function of its inputs and safe to share.

#include <filesystem>
#include <string>
#include <vector>

#include "SpeechEngine/AsrModelVersion.h"
#include "SpeechEngine/NeuralRuntime.h"
#include "SpeechEngine/Vocabulary.h"

namespace speech {

class ScriptedRuntime final : public NeuralRuntime {
  public:
    std::shared_ptr<const NeuralModel> load(const std::filesystem::path& modelFolder,
                                            const ModelConfiguration& configuration) const override;

    static constexpr int samplesPerFrame = 1280;
    static constexpr double codeScale = 1000.0;

    // One rule of a scripted joint.
    struct JointRule {
        int code = 0;
        std::vector<int> tokens;
        std::vector<int> durations;        // duration indices, one per token (default 1)
        std::vector<float> probabilities;  // one per token (default 1.0)
    };

    // Samples whose frame i (samplesPerFrame each) holds the value codes[i] / codeScale.
    static std::vector<float> frameCodedAudio(const std::vector<int>& codes);

    // Writes a complete folder of `version` into `folder` (the version's own folder): scripted
    // preprocessor, encoder (when the version has one), decoder and joint, and the vocabulary.
    static void installModelSet(const std::filesystem::path& folder, AsrModelVersion version,
                                const std::vector<JointRule>& rules, int blankId,
                                const Vocabulary& vocabulary, int encoderHiddenSize = 1024);
    // Writes one scripted network: `script` becomes the folder's coremldata.bin.
    static void writeModelFolder(const std::filesystem::path& folder, const std::string& script);
};

}  // namespace speech
