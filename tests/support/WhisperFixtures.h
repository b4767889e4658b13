#pragma once
// Shared by the whisper and end-to-end suites and the whisper benchmark: a scratch folder, WAV
// files written sample by sample, the generated test model, and thread inputs a test can set.
// Header-only: only targets that define CORVANE_WHISPER_TEST_MODEL_DIR include it.

#include <stdlib.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/models/WhisperImpl.h"
#include "tests/support/ScratchFolder.h"

namespace corvane::testing {

// The folder the build generated the random-weight model into.
inline std::filesystem::path whisperTestModelDirectory() {
    return CORVANE_WHISPER_TEST_MODEL_DIR;
}
inline std::filesystem::path whisperTestModelFile() {
    return whisperTestModelDirectory() / WhisperImpl::defaultModelFilename;
}

// `seconds` of a sine at `hertz`, 16 kHz mono; amplitude 0 gives silence.
inline std::vector<float> sineSamples(double seconds, double hertz = 440, double amplitude = 0.3) {
    std::vector<float> samples(static_cast<std::size_t>(seconds * 16000));
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = static_cast<float>(
            amplitude * std::sin(2 * std::numbers::pi * hertz * static_cast<double>(i) / 16000));
    }
    return samples;
}

// A 16-bit PCM WAV file at `rate` Hz, mono.
inline std::string wavBytes(std::span<const float> samples, std::uint32_t rate = 16000) {
    std::string out;
    auto u32 = [&](std::uint32_t v) { out.append(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](std::uint16_t v) { out.append(reinterpret_cast<const char*>(&v), 2); };
    const auto dataBytes = static_cast<std::uint32_t>(samples.size() * 2);
    out += "RIFF";
    u32(36 + dataBytes);
    out += "WAVEfmt ";
    u32(16);
    u16(1);  // PCM
    u16(1);  // mono
    u32(rate);
    u32(rate * 2);
    u16(2);
    u16(16);
    out += "data";
    u32(dataBytes);
    for (float s : samples)
        u16(static_cast<std::uint16_t>(
            static_cast<std::int16_t>(std::lround(std::clamp(s, -1.0f, 1.0f) * 32767))));
    return out;
}

// The printed ModelError that `run` throws, or "no error".
template <typename Run>
std::string modelErrorOf(Run&& run) {
    try {
        run();
    } catch (const ModelError& error) {
        return error.what();
    }
    return "no error";
}

// Thread inputs whose answers a test sets between runs.
struct ThreadKnobs {
    WhisperThreadInputs::Settings settings{0, 50, 100};
    std::optional<double> idleSeconds;
    std::optional<std::int64_t> runtimePercent;
    std::int64_t cpuCount = 2;

    WhisperThreadInputs inputs() {
        return {[this] { return settings; }, [this] { return idleSeconds; },
                [this] { return runtimePercent; }, [this] { return cpuCount; }};
    }
    // Engine options on these inputs, whisper_full wrapped by `full` when one is given.
    WhisperImpl::Options options(WhisperImpl::FullFunction full = {}) {
        WhisperImpl::Options engine;
        engine.threadInputs = inputs();
        engine.full = std::move(full);
        return engine;
    }
};

}  // namespace corvane::testing
