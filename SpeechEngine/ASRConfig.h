#pragma once
// Settings of one recogniser: sample rate, decoding, encoder width and chunk parallelism.

#include <algorithm>

#include "SpeechEngine/TdtConfig.h"

namespace speech {

struct ASRConfig {
    int sampleRate = 16000;
    TdtConfig tdtConfig;
    int encoderHiddenSize = 1024;
    int parallelChunkConcurrency = 4;  // raised to 1 when lower
    bool streamingEnabled = true;
    int streamingThreshold = 480000;

    ASRConfig() = default;
    ASRConfig(int sampleRate, TdtConfig tdtConfig, int encoderHiddenSize,
              int parallelChunkConcurrency, bool streamingEnabled = true,
              int streamingThreshold = 480000)
        : sampleRate(sampleRate),
          tdtConfig(std::move(tdtConfig)),
          encoderHiddenSize(encoderHiddenSize),
          parallelChunkConcurrency(std::max(1, parallelChunkConcurrency)),
          streamingEnabled(streamingEnabled),
          streamingThreshold(streamingThreshold) {}

    static ASRConfig defaultConfig() { return {}; }
};

}  // namespace speech
