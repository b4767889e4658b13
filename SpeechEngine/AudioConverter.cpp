#include "SpeechEngine/AudioConverter.h"

#include <cmath>

#include "CorvaneApp/platform/Log.h"
#include "SpeechEngine/AudioConverterError.h"

namespace speech {
namespace {

void validate(const AudioBuffer& buffer) {
    const auto& format = buffer.format;
    if (format.sampleRate < 1 || format.channels < 1)
        throw AudioConverterError::failedToCreateSourceFormat();
    if (buffer.samples.size() % static_cast<std::size_t>(format.channels) != 0) {
        throw AudioConverterError::conversionFailed(std::to_string(buffer.samples.size()) +
                                                    " samples are not whole frames of " +
                                                    std::to_string(format.channels) + " channels");
    }
}

float sampleAt(const AudioBuffer& buffer, std::size_t frame, int channel) {
    const auto& format = buffer.format;
    std::size_t frames = buffer.samples.size() / static_cast<std::size_t>(format.channels);
    auto c = static_cast<std::size_t>(channel);
    return format.interleaved
               ? buffer.samples[frame * static_cast<std::size_t>(format.channels) + c]
               : buffer.samples[c * frames + frame];
}

}  // namespace

AudioConverter::AudioConverter(int sampleRate, bool debug)
    : targetFormat_{sampleRate, 1, false},
      debug_(debug),
      decoder_(sampleRate),
      logger_(corvane::log::get("AudioConverter")) {}

std::vector<float> AudioConverter::resampleAudioFile(const std::filesystem::path& path) const {
    try {
        auto result = decoder_.decodeFile(path);
        if (debug_) {
            logger_->info("Converted {} from {} Hz, {} channels: {} samples", path.string(),
                          result.sourceSampleRate, result.sourceChannels, result.samples.size());
        }
        return std::move(result.samples);
    } catch (const corvane::FfmpegAudioDecoder::Failure& failure) {
        throw AudioConverterError::conversionFailed(std::string(failure.what()));
    }
}

std::vector<float> AudioConverter::resample(std::span<const float> samples,
                                            const AudioFormat& from) const {
    return resampleBuffer(AudioBuffer{from, std::vector<float>(samples.begin(), samples.end())});
}

std::vector<float> AudioConverter::resampleBuffer(const AudioBuffer& buffer) const {
    validate(buffer);
    const auto& format = buffer.format;
    if (format.sampleRate == targetFormat_.sampleRate && format.channels == 1)
        return extractMonoFloat32(buffer);

    std::vector<float> interleaved;
    std::span<const float> source = buffer.samples;
    if (!format.interleaved && format.channels > 1) {
        std::size_t frames = buffer.samples.size() / static_cast<std::size_t>(format.channels);
        interleaved.reserve(buffer.samples.size());
        for (std::size_t f = 0; f < frames; ++f) {
            for (int c = 0; c < format.channels; ++c) interleaved.push_back(sampleAt(buffer, f, c));
        }
        source = interleaved;
    }
    try {
        auto converted = decoder_.convertInterleaved(source, format.sampleRate, format.channels);
        if (debug_)
            logger_->info("Converted {} Hz, {} channels to {} samples", format.sampleRate,
                          format.channels, converted.size());
        return converted;
    } catch (const corvane::FfmpegAudioDecoder::Failure& failure) {
        logger_->error("No converter for {} Hz, {} channels ({}); interpolating the first channel",
                       format.sampleRate, format.channels, failure.what());
        return linearResample(buffer, targetFormat_.sampleRate);
    }
}

std::vector<float> AudioConverter::extractMonoFloat32(const AudioBuffer& buffer) {
    validate(buffer);
    int channels = buffer.format.channels;
    std::size_t frames = buffer.samples.size() / static_cast<std::size_t>(channels);
    if (channels == 1) return buffer.samples;
    std::vector<float> mono(frames);
    for (std::size_t f = 0; f < frames; ++f) {
        float sum = 0;
        for (int c = 0; c < channels; ++c) sum += sampleAt(buffer, f, c);
        mono[f] = sum / static_cast<float>(channels);
    }
    return mono;
}

std::vector<float> AudioConverter::linearResample(const AudioBuffer& buffer, int targetRate) {
    validate(buffer);
    if (targetRate < 1) throw AudioConverterError::failedToCreateSourceFormat();
    std::size_t frames = buffer.samples.size() / static_cast<std::size_t>(buffer.format.channels);
    if (frames == 0) return {};
    double step = static_cast<double>(buffer.format.sampleRate) / targetRate;
    auto count = static_cast<std::size_t>(static_cast<double>(frames) / step);
    std::vector<float> out(count);
    for (std::size_t i = 0; i < count; ++i) {
        double position = static_cast<double>(i) * step;
        auto index = static_cast<std::size_t>(position);
        double fraction = position - static_cast<double>(index);
        float a = sampleAt(buffer, index, 0);
        float b = index + 1 < frames ? sampleAt(buffer, index + 1, 0) : a;
        out[i] = static_cast<float>(a + (b - a) * fraction);
    }
    return out;
}

}  // namespace speech
