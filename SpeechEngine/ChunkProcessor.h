#pragma once
// Transcribes a recording longer than one encoder window: cuts it into overlapping chunks, runs
// them on a small pool of managers, and merges the token streams so that the overlaps don't say
// their words twice. Built for one transcription and used once.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "CorvaneApp/platform/Clock.h"
#include "SpeechEngine/ASRResult.h"
#include "SpeechEngine/AudioSampleSource.h"

namespace spdlog {
class logger;
}

namespace speech {

class AsrManager;

class ChunkProcessor {
  public:
    // One recognised token, with its frame in the whole recording and its jump in frames.
    struct Token {
        int token = 0;
        int timestamp = 0;
        float confidence = 0;
        int duration = 0;

        bool operator==(const Token&) const = default;
    };

    // A token of an overlap, with its position in its chunk's list and its span in seconds.
    struct IndexedToken {
        std::size_t index = 0;
        Token token;
        double start = 0;
        double end = 0;
    };

    // Where one chunk lies: samples [start, end) plus `context` samples read before start.
    struct ChunkPlan {
        std::int64_t start = 0;
        std::int64_t end = 0;
        std::int64_t context = 0;
        bool isLastChunk = false;

        bool operator==(const ChunkPlan&) const = default;
    };

    struct Geometry {
        std::int64_t chunkSamples = 0;    // 238080 with the defaults
        std::int64_t overlapSamples = 0;  // 32000
        std::int64_t strideSamples = 0;   // 206080
    };

    // The pool of managers a transcription runs on: the caller's first, then extra ones that
    // share its loaded networks and live as long as the pool.
    struct WorkerPool {
        std::vector<std::unique_ptr<AsrManager>> owned;
        std::vector<AsrManager*> workers;
    };

    // `source` must outlive the processor.
    ChunkProcessor(const AudioSampleSource& source, std::int64_t totalSamples,
                   double overlapSeconds = 2.0, int melContextSamples = 1280);

    Geometry geometry() const;
    // The chunks of the recording, in order.
    std::vector<ChunkPlan> plan() const;

    // Transcribes every chunk and merges the results. `progress` is told the share of the
    // recording scheduled so far. A failing chunk fails the whole call.
    ASRResult process(AsrManager& manager, corvane::Date startTime,
                      const std::function<void(double)>& progress = {},
                      const std::optional<std::string>& language = std::nullopt,
                      std::stop_token stop = {}) const;

    WorkerPool makeWorkerPool(AsrManager& manager, int count) const;

    // Joins two token lists whose ends may overlap in time, keeping one copy of the overlap.
    std::vector<Token> mergeChunks(const std::vector<Token>& left,
                                   const std::vector<Token>& right) const;

  private:
    std::vector<Token> runChunk(AsrManager& worker, std::vector<float> samples,
                                const ChunkPlan& chunk, const std::optional<std::string>& language,
                                std::stop_token stop) const;

    const AudioSampleSource& source_;
    std::int64_t totalSamples_;
    double overlapSeconds_;
    int melContextSamples_;
    std::shared_ptr<spdlog::logger> logger_;
};

}  // namespace speech
