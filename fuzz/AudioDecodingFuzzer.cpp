// Feeds a shard's audio file, as anyone may have made it, to the decoding a shard goes through
// (AudioPipeline over FFmpeg), from memory instead of from disk.
//
// Holds: the file decodes or fails with AudioDecodeError, nothing else, and without memory
// errors, leaks or undefined behaviour in our code around FFmpeg; what decodes is not empty.

#include <cstddef>
#include <cstdint>
#include <span>

#include "CorvaneApp/models/AudioPipeline.h"
#include "fuzz/FuzzCheck.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    corvane::fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace corvane;
    const std::span bytes(reinterpret_cast<const std::byte*>(data), size);
    auto samples = fuzz::attempt<AudioDecodeError>("decoding throws only AudioDecodeError", [&] {
        return AudioPipeline::decodeBytesTo16kMonoPCM(bytes, "shard.audio");
    });
    if (samples) fuzz::require(!samples->empty(), "decoded audio is never empty");
    return 0;
}
