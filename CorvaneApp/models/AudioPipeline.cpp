#include "CorvaneApp/models/AudioPipeline.h"

#include "CorvaneApp/platform/FfmpegAudioDecoder.h"
#include "CorvaneApp/platform/Log.h"

namespace corvane {

std::vector<float> AudioPipeline::decodeTo16kMonoPCM(const std::filesystem::path& fileURL) {
    using Stage = FfmpegAudioDecoder::Failure::Stage;
    const std::string url = fileURL.string();
    FfmpegAudioDecoder::Result decoded;
    try {
        decoded = FfmpegAudioDecoder(static_cast<int>(targetSampleRate)).decodeFile(fileURL);
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

}  // namespace corvane
