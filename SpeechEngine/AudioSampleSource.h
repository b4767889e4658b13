#pragma once
// Where the chunked path reads a recording from, one range at a time, so that a source need not
// hold the whole recording in memory.

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>

namespace speech {

class AudioSampleSource {
  public:
    virtual ~AudioSampleSource() = default;
    virtual std::int64_t sampleCount() const = 0;
    // Copies destination.size() samples starting at `offset`. Throws std::out_of_range when the
    // range passes the end.
    virtual void copySamples(std::span<float> destination, std::int64_t offset) const = 0;
};

// Samples already in memory; the caller keeps them alive while the source is used.
class ArraySampleSource final : public AudioSampleSource {
  public:
    explicit ArraySampleSource(std::span<const float> samples) : samples_(samples) {}

    std::int64_t sampleCount() const override { return static_cast<std::int64_t>(samples_.size()); }
    void copySamples(std::span<float> destination, std::int64_t offset) const override {
        if (offset < 0 || offset + static_cast<std::int64_t>(destination.size()) > sampleCount()) {
            throw std::out_of_range("samples " + std::to_string(offset) + "+" +
                                    std::to_string(destination.size()) + " outside a source of " +
                                    std::to_string(sampleCount()));
        }
        auto from = samples_.subspan(static_cast<std::size_t>(offset), destination.size());
        std::copy(from.begin(), from.end(), destination.begin());
    }

  private:
    std::span<const float> samples_;
};

}  // namespace speech
