#include "CorvaneApp/platform/FfmpegAudioDecoder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>

#include "CorvaneApp/platform/Log.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace corvane {
namespace {

using Failure = FfmpegAudioDecoder::Failure;
using Result = FfmpegAudioDecoder::Result;
using Stage = Failure::Stage;

std::string errorText(int code) {
    char buffer[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, buffer, sizeof buffer);
    return buffer;
}

[[noreturn]] void fail(Stage stage, int code) {
    throw FfmpegAudioDecoder::Failure(stage, errorText(code));
}

// A header may declare a chunk of gigabytes in a file of a few hundred bytes, and some demuxers
// allocate (and zero) what is declared before they read it: a WAV's LIST INFO tags did. No single
// allocation that audio needs comes near this bound: packets take kilobytes, a cover picture a few
// megabytes, the seek index of ten hours of 48 kHz AAC about 40 MB.
constexpr std::size_t kLargestLibraryAllocation = 128u << 20;

// Once per process: FFmpeg's own chatter goes to our log at debug level instead of stderr, and
// no allocation of its may pass the bound above (it then fails as out of memory).
void configureLibraryOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_max_alloc(kLargestLibraryAllocation);
        av_log_set_level(AV_LOG_WARNING);
        av_log_set_callback([](void* object, int level, const char* format, va_list args) {
            if (level > av_log_get_level()) return;
            char line[1024];
            int prefix = 1;
            av_log_format_line2(object, level, format, args, line, sizeof line, &prefix);
            std::string text(line);
            while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
            if (!text.empty()) log::get("FFmpeg")->debug("{}", text);
        });
    });
}

// Where the bytes of a file come from: positional reads of a known length. A file and a buffer
// in memory are the two kinds; everything after them is the same decoding.
class Source {
  public:
    virtual ~Source() = default;
    virtual std::int64_t size() const = 0;
    // Up to `length` bytes at `offset`, fewer only at the end; a negative FFmpeg error code when
    // the bytes cannot be read.
    virtual int readAt(std::int64_t offset, std::uint8_t* into, int length) const = 0;
};

class FileSource final : public Source {
  public:
    explicit FileSource(const std::filesystem::path& path)
        : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (descriptor_ < 0) fail(Stage::open, AVERROR(errno));
        struct stat info {};
        if (::fstat(descriptor_, &info) != 0) {
            const int error = errno;
            ::close(descriptor_);  // no destructor runs for a constructor that throws
            fail(Stage::open, AVERROR(error));
        }
        size_ = info.st_size;
    }
    FileSource(const FileSource&) = delete;
    FileSource& operator=(const FileSource&) = delete;
    ~FileSource() override {
        if (descriptor_ >= 0) ::close(descriptor_);
    }

    std::int64_t size() const override { return size_; }
    int readAt(std::int64_t offset, std::uint8_t* into, int length) const override {
        while (true) {
            ssize_t got = ::pread(descriptor_, into, static_cast<size_t>(length), offset);
            if (got >= 0) return static_cast<int>(got);
            if (errno != EINTR) return AVERROR(errno);
        }
    }

  private:
    int descriptor_;
    std::int64_t size_ = 0;
};

class MemorySource final : public Source {
  public:
    explicit MemorySource(std::span<const std::byte> bytes) : bytes_(bytes) {}
    std::int64_t size() const override { return static_cast<std::int64_t>(bytes_.size()); }
    int readAt(std::int64_t offset, std::uint8_t* into, int length) const override {
        if (offset < 0 || offset >= size()) return 0;
        auto count = std::min<std::int64_t>(length, size() - offset);
        std::memcpy(into, bytes_.data() + offset, static_cast<size_t>(count));
        return static_cast<int>(count);
    }

  private:
    std::span<const std::byte> bytes_;
};

// FFmpeg's view of a Source: a read position and the callbacks of a custom I/O context.
class SourceReader {
  public:
    explicit SourceReader(const Source& source) : source_(source) {}

    static int read(void* opaque, std::uint8_t* into, int length) {
        auto* self = static_cast<SourceReader*>(opaque);
        int got = self->source_.readAt(self->position_, into, length);
        if (got < 0) return got;
        if (got == 0) return AVERROR_EOF;
        self->position_ += got;
        return got;
    }

    static std::int64_t seek(void* opaque, std::int64_t offset, int whence) {
        auto* self = static_cast<SourceReader*>(opaque);
        const std::int64_t size = self->source_.size();
        if (whence & AVSEEK_SIZE) return size;
        std::int64_t target = 0;
        switch (whence & ~AVSEEK_FORCE) {
            case SEEK_SET:
                target = offset;
                break;
            case SEEK_CUR:
                target = self->position_ + offset;
                break;
            case SEEK_END:
                target = size + offset;
                break;
            default:
                return AVERROR(EINVAL);
        }
        if (target < 0) return AVERROR(EINVAL);
        self->position_ = target;
        return target;
    }

  private:
    const Source& source_;
    std::int64_t position_ = 0;
};

struct FormatInput {
    AVIOContext* io = nullptr;
    AVFormatContext* format = nullptr;
    FormatInput() = default;
    FormatInput(const FormatInput&) = delete;
    FormatInput& operator=(const FormatInput&) = delete;
    ~FormatInput() {
        avformat_close_input(&format);  // leaves our own I/O context to us
        if (io) av_freep(&io->buffer);
        avio_context_free(&io);
    }
};

struct CodecContextDeleter {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
};
struct PacketDeleter {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FrameDeleter {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
struct ResamplerDeleter {
    void operator()(SwrContext* context) const { swr_free(&context); }
};
using CodecContextPtr = std::unique_ptr<AVCodecContext, CodecContextDeleter>;
using PacketPtr = std::unique_ptr<AVPacket, PacketDeleter>;
using FramePtr = std::unique_ptr<AVFrame, FrameDeleter>;
using ResamplerPtr = std::unique_ptr<SwrContext, ResamplerDeleter>;

// Some containers leave the layout unspecified; the resampler needs one to mix down.
AVChannelLayout usableLayout(const AVChannelLayout& layout) {
    AVChannelLayout result{};
    if (layout.order == AV_CHANNEL_ORDER_UNSPEC || layout.nb_channels <= 0) {
        av_channel_layout_default(&result, std::max(layout.nb_channels, 1));
    } else if (av_channel_layout_copy(&result, &layout) < 0) {
        av_channel_layout_default(&result, layout.nb_channels);
    }
    return result;
}

// Mixes down and resamples to mono float at the target rate, appending to `out`. Rebuilds itself
// when the source format changes mid-stream (chained Ogg, MP3 with rate switches).
class MonoResampler {
  public:
    MonoResampler(int targetRate, std::vector<float>& out) : targetRate_(targetRate), out_(out) {}
    MonoResampler(const MonoResampler&) = delete;
    MonoResampler& operator=(const MonoResampler&) = delete;
    ~MonoResampler() { av_channel_layout_uninit(&inLayout_); }

    void convert(const AVChannelLayout& layout, AVSampleFormat format, int rate,
                 const uint8_t* const* data, int frames) {
        AVChannelLayout wanted = usableLayout(layout);
        if (!context_ || format != inFormat_ || rate != inRate_ ||
            av_channel_layout_compare(&wanted, &inLayout_) != 0) {
            flush();
            configure(wanted, format, rate);
        }
        av_channel_layout_uninit(&wanted);
        run(data, frames);
    }

    // Hands out what the filter still holds.
    void flush() {
        if (!context_) return;
        while (run(nullptr, 0) > 0) {
        }
    }

  private:
    void configure(const AVChannelLayout& layout, AVSampleFormat format, int rate) {
        // Rates outside what audio uses are refused: resampling from gigahertz builds filters of
        // gigabytes, and from a few hertz turns a small file into gigabytes of samples.
        constexpr int kLowestRate = 1000;
        constexpr int kHighestRate = 768000;
        if (rate < kLowestRate || rate > kHighestRate)
            throw FfmpegAudioDecoder::Failure(
                Stage::conversion, "source sample rate " + std::to_string(rate) +
                                       " Hz is outside " + std::to_string(kLowestRate) + " to " +
                                       std::to_string(kHighestRate) + " Hz");
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext* raw = nullptr;
        // This FFmpeg takes the layouts by non-const pointer but only reads them.
        int code =
            swr_alloc_set_opts2(&raw, &mono, AV_SAMPLE_FMT_FLT, targetRate_,
                                const_cast<AVChannelLayout*>(&layout), format, rate, 0, nullptr);
        ResamplerPtr context(raw);
        if (code < 0) fail(Stage::conversion, code);
        // Mono is the plain average of all channels: no gain, no channel favoured.
        int channels = std::max(layout.nb_channels, 1);
        std::vector<double> average(static_cast<size_t>(channels), 1.0 / channels);
        if ((code = swr_set_matrix(context.get(), average.data(), channels)) < 0)
            fail(Stage::conversion, code);
        if ((code = swr_init(context.get())) < 0) fail(Stage::conversion, code);
        context_ = std::move(context);
        av_channel_layout_uninit(&inLayout_);
        av_channel_layout_copy(&inLayout_, &layout);
        inFormat_ = format;
        inRate_ = rate;
    }

    int run(const uint8_t* const* data, int frames) {
        int capacity = swr_get_out_samples(context_.get(), frames);
        if (capacity <= 0) return 0;
        scratch_.resize(static_cast<size_t>(capacity));
        auto* target = reinterpret_cast<uint8_t*>(scratch_.data());
        int produced = swr_convert(context_.get(), &target, capacity,
                                   const_cast<const uint8_t**>(data), frames);
        if (produced < 0) fail(Stage::conversion, produced);
        out_.insert(out_.end(), scratch_.begin(), scratch_.begin() + produced);
        return produced;
    }

    int targetRate_;
    std::vector<float>& out_;
    std::vector<float> scratch_;  // one frame's output; keeps `out_` from growing past its reserve
    ResamplerPtr context_;
    AVChannelLayout inLayout_{};
    AVSampleFormat inFormat_ = AV_SAMPLE_FMT_NONE;
    int inRate_ = 0;
};

// What the container promises, unless that figure is only a guess from the bit rate.
std::optional<std::int64_t> declaredFrames(const AVFormatContext* format, const AVStream* stream,
                                           int rate) {
    if (rate <= 0 || format->duration_estimation_method == AVFMT_DURATION_FROM_BITRATE)
        return std::nullopt;
    if (stream->duration == AV_NOPTS_VALUE || stream->duration < 0) return std::nullopt;
    return av_rescale_q(stream->duration, stream->time_base, AVRational{1, rate});
}

// FFmpeg trims a WAV's stated data size to what the file holds, which hides a file cut short; the
// header's own figure tells. Absent for a size left open by a streaming writer.
std::optional<std::int64_t> wavHeaderFrames(const Source& source, int blockAlign) {
    if (blockAlign <= 0) return std::nullopt;
    std::uint8_t riff[12];
    if (source.readAt(0, riff, sizeof riff) != sizeof riff || std::memcmp(riff, "RIFF", 4) != 0 ||
        std::memcmp(riff + 8, "WAVE", 4) != 0) {
        return std::nullopt;
    }
    std::int64_t offset = sizeof riff;
    for (int chunk = 0; chunk < 64; ++chunk) {
        std::uint8_t header[8];
        if (source.readAt(offset, header, sizeof header) != sizeof header) return std::nullopt;
        std::uint32_t size = header[4] | header[5] << 8 | header[6] << 16 |
                             static_cast<std::uint32_t>(header[7]) << 24;
        if (std::memcmp(header, "data", 4) == 0) {
            if (size == 0xFFFFFFFF) return std::nullopt;
            return static_cast<std::int64_t>(size) / blockAlign;
        }
        offset += sizeof header + size + (size & 1);
    }
    return std::nullopt;
}

// Lossy codecs trim encoder delay and padding, so the decoded length may fall a little short of the
// container's figure; a file cut short misses far more than that.
bool endsEarly(std::int64_t decoded, std::int64_t declared) {
    std::int64_t allowance = std::max<std::int64_t>(declared / 200, 8192);
    return decoded + allowance < declared;
}

// Compressed speech rarely yields more than a few dozen samples at 16 kHz per byte of file (Opus
// at 6 kbit/s about 21); beyond this the output grows as it is decoded instead of up front.
constexpr std::int64_t kMostSamplesPerByte = 64;

Result decodeSource(const Source& source, int targetSampleRate) {
    constexpr int kReadBufferSize = 64 * 1024;
    SourceReader reader(source);  // outlives the I/O context that calls it
    FormatInput input;
    auto* buffer = static_cast<std::uint8_t*>(av_malloc(kReadBufferSize));
    if (!buffer) fail(Stage::open, AVERROR(ENOMEM));
    input.io = avio_alloc_context(buffer, kReadBufferSize, 0, &reader, &SourceReader::read, nullptr,
                                  &SourceReader::seek);
    if (!input.io) {
        av_free(buffer);
        fail(Stage::open, AVERROR(ENOMEM));
    }
    input.format = avformat_alloc_context();
    if (!input.format) fail(Stage::open, AVERROR(ENOMEM));
    input.format->pb = input.io;
    // A media file may name others (a concat list, a playlist). No protocol is allowed, so none of
    // them is ever opened: a downloaded file can't make us read local files or reach other hosts.
    // Demuxers that open files of their own inherit the list.
    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "none", 0);
    // An empty name: the format is probed from the bytes, never guessed from an extension.
    int code = avformat_open_input(&input.format, "", nullptr, &options);
    av_dict_free(&options);
    if (code < 0) fail(Stage::open, code);
    if ((code = avformat_find_stream_info(input.format, nullptr)) < 0) fail(Stage::open, code);

    const AVCodec* codec = nullptr;
    int streamIndex = av_find_best_stream(input.format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (streamIndex == AVERROR_STREAM_NOT_FOUND)
        throw Failure(Stage::noAudioStream, "no audio stream");
    if (streamIndex < 0) fail(Stage::noAudioStream, streamIndex);
    AVStream* stream = input.format->streams[streamIndex];
    for (unsigned i = 0; i < input.format->nb_streams; ++i) {
        if (static_cast<int>(i) != streamIndex) input.format->streams[i]->discard = AVDISCARD_ALL;
    }

    CodecContextPtr decoder(avcodec_alloc_context3(codec));
    if (!decoder) fail(Stage::open, AVERROR(ENOMEM));
    if ((code = avcodec_parameters_to_context(decoder.get(), stream->codecpar)) < 0)
        fail(Stage::open, code);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = 0;  // codecs that decode frames in parallel (FLAC) use every core
    if ((code = avcodec_open2(decoder.get(), codec, nullptr)) < 0) fail(Stage::open, code);

    Result result;
    result.sourceSampleRate = stream->codecpar->sample_rate;
    result.sourceChannels = stream->codecpar->ch_layout.nb_channels;
    result.declaredFrames = declaredFrames(input.format, stream, result.sourceSampleRate);
    if (std::string_view(input.format->iformat->name) == "wav") {
        if (auto stated = wavHeaderFrames(source, stream->codecpar->block_align))
            result.declaredFrames = stated;
    }
    if (result.declaredFrames && result.sourceSampleRate > 0) {
        // One allocation for the whole output, so that peak memory is the samples and no more;
        // but no more than the file's bytes could plausibly hold, whatever its header claims.
        const std::int64_t expected =
            std::min(av_rescale(*result.declaredFrames, targetSampleRate, result.sourceSampleRate),
                     source.size() * kMostSamplesPerByte);
        if (expected > 0)
            result.samples.reserve(static_cast<size_t>(expected + expected / 100 + 16384));
    }

    MonoResampler resampler(targetSampleRate, result.samples);
    PacketPtr packet(av_packet_alloc());
    FramePtr frame(av_frame_alloc());
    if (!packet || !frame) fail(Stage::read, AVERROR(ENOMEM));
    int badPackets = 0;
    int lastDecodeError = 0;

    auto drainFrames = [&] {
        while (true) {
            int received = avcodec_receive_frame(decoder.get(), frame.get());
            if (received == AVERROR(EAGAIN) || received == AVERROR_EOF) return;
            if (received < 0) {
                ++badPackets;
                lastDecodeError = received;
                return;
            }
            result.decodedFrames += frame->nb_samples;
            resampler.convert(frame->ch_layout, static_cast<AVSampleFormat>(frame->format),
                              frame->sample_rate, frame->extended_data, frame->nb_samples);
            av_frame_unref(frame.get());
        }
    };

    while (true) {
        code = av_read_frame(input.format, packet.get());
        if (code == AVERROR_EOF) break;
        if (code < 0) fail(Stage::read, code);
        if (packet->stream_index == streamIndex) {
            int sent = avcodec_send_packet(decoder.get(), packet.get());
            if (sent < 0 && sent != AVERROR(EAGAIN)) {
                // A damaged packet costs its own samples only, as with the command-line tool.
                ++badPackets;
                lastDecodeError = sent;
            }
            drainFrames();
        }
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(decoder.get(), nullptr);
    drainFrames();
    resampler.flush();

    if (result.decodedFrames == 0 && badPackets > 0) fail(Stage::read, lastDecodeError);
    if (result.declaredFrames && endsEarly(result.decodedFrames, *result.declaredFrames)) {
        throw Failure(Stage::read, errorText(AVERROR_EOF) + " after " +
                                       std::to_string(result.decodedFrames) + " of " +
                                       std::to_string(*result.declaredFrames) + " frames");
    }
    if (result.declaredFrames && result.decodedFrames > *result.declaredFrames) {
        // Encoders pad the last packet (AAC in MP4 keeps it); the container's length is the
        // audio's.
        auto keep = av_rescale_rnd(*result.declaredFrames, targetSampleRate,
                                   result.sourceSampleRate, AV_ROUND_NEAR_INF);
        if (keep >= 0 && static_cast<size_t>(keep) < result.samples.size())
            result.samples.resize(static_cast<size_t>(keep));
    }
    return result;
}

}  // namespace

FfmpegAudioDecoder::FfmpegAudioDecoder(int targetSampleRate) : targetSampleRate_(targetSampleRate) {
    if (targetSampleRate_ <= 0) throw std::invalid_argument("target sample rate must be positive");
    configureLibraryOnce();
}

FfmpegAudioDecoder::Result FfmpegAudioDecoder::decodeFile(const std::filesystem::path& path) const {
    return decodeSource(FileSource(path), targetSampleRate_);
}

FfmpegAudioDecoder::Result FfmpegAudioDecoder::decodeBytes(std::span<const std::byte> bytes) const {
    return decodeSource(MemorySource(bytes), targetSampleRate_);
}

std::vector<float> FfmpegAudioDecoder::convertInterleaved(std::span<const float> samples,
                                                          int sampleRate, int channels) const {
    if (sampleRate <= 0 || channels <= 0) {
        throw Failure(Stage::conversion, "cannot convert " + std::to_string(channels) +
                                             " channels at " + std::to_string(sampleRate) + " Hz");
    }
    std::vector<float> out;
    auto frames = static_cast<int>(samples.size() / static_cast<size_t>(channels));
    if (frames == 0) return out;
    out.reserve(static_cast<size_t>(av_rescale(frames, targetSampleRate_, sampleRate) + 1024));
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    MonoResampler resampler(targetSampleRate_, out);
    const auto* data = reinterpret_cast<const uint8_t*>(samples.data());
    resampler.convert(layout, AV_SAMPLE_FMT_FLT, sampleRate, &data, frames);
    resampler.flush();
    av_channel_layout_uninit(&layout);
    return out;
}

}  // namespace corvane
