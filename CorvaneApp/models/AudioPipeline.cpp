#include "CorvaneApp/models/AudioPipeline.h"

#include "CorvaneApp/platform/FfmpegAudioDecoder.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

// The decoder's stages become the cases of AudioDecodeError, whatever the bytes came from.
template <typename Decode>
std::vector<float> decodeAs(const std::filesystem::path& fileURL, Decode decode) {
    using Stage = FfmpegAudioDecoder::Failure::Stage;
    const std::string url = fileURL.string();
    FfmpegAudioDecoder::Result decoded;
    try {
        decoded = decode(FfmpegAudioDecoder(static_cast<int>(AudioPipeline::targetSampleRate)));
    } catch (const FfmpegAudioDecoder::Failure& failure) {
        switch (failure.stage()) {
            case Stage::open:
            case Stage::noAudioStream:
                throw AudioDecodeError(AudioDecodeError::UnsupportedFormat{url, failure.what()});
            case Stage::read:
                throw AudioDecodeError(AudioDecodeError::ReadFailure{url, failure.what()});
            case Stage::conversion:
                throw AudioDecodeError(AudioDecodeError::ConversionFailure{failure.what()});
        }
        throw;
    }
    if (decoded.lengthFrames() == 0 || decoded.samples.empty())
        throw AudioDecodeError(AudioDecodeError::EmptyAudio{url});
    log::get("AudioPipeline")
        ->debug("Decoded {}: {} frames @ {:f} Hz x {} ch -> {} frames @ 16 kHz mono",
                fileURL.filename().string(), decoded.lengthFrames(),
                static_cast<double>(decoded.sourceSampleRate), decoded.sourceChannels,
                decoded.samples.size());
    return std::move(decoded.samples);
}

}  // namespace

std::vector<float> AudioPipeline::decodeTo16kMonoPCM(const std::filesystem::path& fileURL) {
    return decodeAs(fileURL,
                    [&](const FfmpegAudioDecoder& decoder) { return decoder.decodeFile(fileURL); });
}

std::vector<float> AudioPipeline::decodeBytesTo16kMonoPCM(std::span<const std::byte> bytes,
                                                          const std::filesystem::path& fileURL) {
    return decodeAs(fileURL,
                    [&](const FfmpegAudioDecoder& decoder) { return decoder.decodeBytes(bytes); });
}

}  // namespace corvane
