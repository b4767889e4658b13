#include "SpeechEngine/ChunkProcessor.h"

#include <algorithm>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>

#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/Task.h"
#include "CorvaneApp/platform/Text.h"
#include "SpeechEngine/ASRError.h"
#include "SpeechEngine/AsrManager.h"
#include "SpeechEngine/Cancellation.h"
#include "SpeechEngine/SequenceMatcher.h"
#include "SpeechEngine/TranscriptAssembly.h"

namespace speech {
namespace {

constexpr std::int64_t window = AsrManager::windowSamples;
constexpr std::int64_t frame = AsrManager::frameSamples;
constexpr std::int64_t safetyMargin = 160;
constexpr double sampleRate = 16000.0;
constexpr double frameSeconds = TranscriptAssembly::frameSeconds;

std::int64_t floorToFrame(std::int64_t samples) {
    return samples / frame * frame;
}

ChunkProcessor::IndexedToken indexed(std::size_t index, const ChunkProcessor::Token& token) {
    double start = token.timestamp * frameSeconds;
    return {index, token, start, start + frameSeconds};
}

TdtDecoderState freshDecoderState(int layers) {
    try {
        TdtDecoderState state(layers);
        state.reset();
        return state;
    } catch (const std::exception& error) {
        corvane::log::get("ChunkProcessor")
            ->critical("Failed to allocate decoder state: {}", error.what());
        std::abort();
    }
}

}  // namespace

ChunkProcessor::ChunkProcessor(const AudioSampleSource& source, std::int64_t totalSamples,
                               double overlapSeconds, int melContextSamples)
    : source_(source),
      totalSamples_(totalSamples),
      overlapSeconds_(overlapSeconds),
      melContextSamples_(melContextSamples),
      logger_(corvane::log::get("ChunkProcessor")) {}

ChunkProcessor::Geometry ChunkProcessor::geometry() const {
    Geometry g;
    std::int64_t available = std::max(window - melContextSamples_ - safetyMargin, frame);
    g.chunkSamples = floorToFrame(available);
    std::int64_t chunkFrames = g.chunkSamples / frame;
    auto requested = static_cast<std::int64_t>(overlapSeconds_ * sampleRate);
    g.overlapSamples = floorToFrame(std::min(chunkFrames * (frame / 2), requested));
    g.strideSamples = floorToFrame(std::max(g.chunkSamples - g.overlapSamples, frame));
    return g;
}

std::vector<ChunkProcessor::ChunkPlan> ChunkProcessor::plan() const {
    auto g = geometry();
    std::vector<ChunkPlan> chunks;
    for (std::int64_t start = 0; totalSamples_ >= 1 && start < totalSamples_;
         start += g.strideSamples) {
        std::int64_t end = std::min(start + g.chunkSamples, totalSamples_);
        if (start >= end) break;
        std::int64_t context =
            chunks.empty() ? 0 : std::min<std::int64_t>(melContextSamples_, start);
        chunks.push_back({start, end, context, start + g.chunkSamples >= totalSamples_});
    }
    return chunks;
}

ChunkProcessor::WorkerPool ChunkProcessor::makeWorkerPool(AsrManager& manager, int count) const {
    WorkerPool pool;
    pool.workers.push_back(&manager);
    count = std::max(1, count);
    if (auto models = manager.asrModels(); models && count > 1) {
        for (int i = 1; i < count; ++i) {
            pool.owned.push_back(std::make_unique<AsrManager>(
                manager.config(), *models, [&manager] { return manager.now(); }));
            pool.workers.push_back(pool.owned.back().get());
        }
        logger_->info("ChunkProcessor using worker pool of size {}", pool.workers.size());
    }
    return pool;
}

std::vector<ChunkProcessor::Token> ChunkProcessor::runChunk(
    AsrManager& worker, std::vector<float> samples, const ChunkPlan& chunk,
    const std::optional<std::string>& language, std::stop_token stop) const {
    // Chunks share no decoder state: that is what lets them run side by side.
    TdtDecoderState state = freshDecoderState(worker.decoderLayerCount());
    auto count = static_cast<std::int64_t>(samples.size());
    if (count < window) samples.resize(static_cast<std::size_t>(window), 0.0f);
    auto actualFrames = static_cast<int>(
        std::ceil(static_cast<double>(count - chunk.context) / static_cast<double>(frame)));
    auto result = worker.executeMLInferenceWithTimings(
        samples, static_cast<int>(count), actualFrames, state,
        static_cast<int>(chunk.context / frame), chunk.isLastChunk,
        static_cast<int>(chunk.start / frame), language, stop);
    const auto& hypothesis = result.hypothesis;
    if (hypothesis.isEmpty() || hypothesis.timestamps.empty()) return {};
    std::size_t n = hypothesis.ySequence.size();
    if (hypothesis.timestamps.size() != n || hypothesis.tokenConfidences.size() != n) {
        throw ASRError::processingFailed("Token, timestamp, and confidence arrays are misaligned");
    }
    bool haveDurations = hypothesis.tokenDurations.size() == n;
    std::vector<Token> tokens;
    tokens.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        tokens.push_back({hypothesis.ySequence[i], hypothesis.timestamps[i],
                          hypothesis.tokenConfidences[i],
                          haveDurations ? hypothesis.tokenDurations[i] : 0});
    }
    return tokens;
}

ASRResult ChunkProcessor::process(AsrManager& manager, corvane::Date startTime,
                                  const std::function<void(double)>& progress,
                                  const std::optional<std::string>& language,
                                  std::stop_token stop) const {
    auto chunks = plan();
    auto pool = makeWorkerPool(manager, manager.config().parallelChunkConcurrency);
    std::deque<AsrManager*> freeWorkers(pool.workers.begin(), pool.workers.end());
    std::vector<std::vector<Token>> slots(chunks.size());

    struct Finished {
        std::size_t index;
        std::vector<Token> tokens;
        AsrManager* worker;
        std::exception_ptr error;
    };
    std::mutex mutex;
    std::condition_variable finishedChanged;
    std::deque<Finished> finished;  // guarded by mutex
    std::exception_ptr firstError;
    std::size_t running = 0;

    // The group's own stop: the caller's request, or the first failing chunk.
    std::stop_source groupStop;
    std::stop_callback relay(stop, [&groupStop] { groupStop.request_stop(); });
    std::vector<corvane::TaskHandle> tasks;
    struct StopGroupOnExit {
        std::stop_source& source;
        ~StopGroupOnExit() { source.request_stop(); }
    } stopOnExit{
        groupStop};  // destroyed before `tasks`, so an early exit stops and then joins them

    auto collectOne = [&] {
        Finished done;
        {
            std::unique_lock lock(mutex);
            finishedChanged.wait(lock, [&] { return !finished.empty(); });
            done = std::move(finished.front());
            finished.pop_front();
        }
        --running;
        freeWorkers.push_back(done.worker);
        if (done.error) {
            if (!firstError) firstError = done.error;
            groupStop.request_stop();
        } else {
            slots[done.index] = std::move(done.tokens);
        }
    };

    for (std::size_t index = 0; index < chunks.size() && !firstError; ++index) {
        checkCancellation(stop);
        const ChunkPlan& chunk = chunks[index];
        std::vector<float> samples(
            static_cast<std::size_t>(chunk.end - chunk.start + chunk.context));
        source_.copySamples(samples, chunk.start - chunk.context);

        if (freeWorkers.empty() && running > 0) collectOne();
        if (firstError) break;
        AsrManager* worker = freeWorkers.front();
        freeWorkers.pop_front();
        ++running;
        auto token = groupStop.get_token();
        tasks.push_back(corvane::Task::start(
            [this, &mutex, &finished, &finishedChanged, worker, index, chunk, language, token,
             samples = std::move(samples)](std::stop_token) mutable {
                Finished done{index, {}, worker, nullptr};
                try {
                    done.tokens = runChunk(*worker, std::move(samples), chunk, language, token);
                } catch (...) {
                    done.error = std::current_exception();
                }
                {
                    std::lock_guard lock(mutex);
                    finished.push_back(std::move(done));
                }
                finishedChanged.notify_all();
            }));

        if (progress && !chunk.isLastChunk) {
            progress(std::clamp(static_cast<double>(chunk.end) / static_cast<double>(totalSamples_),
                                0.0, 1.0));
        }
    }
    while (running > 0) collectOne();
    if (firstError) std::rethrow_exception(firstError);
    checkCancellation(stop);

    std::vector<Token> merged = slots.empty() ? std::vector<Token>{} : slots.front();
    for (std::size_t i = 1; i < slots.size(); ++i) merged = mergeChunks(merged, slots[i]);
    if (merged.size() >= 2) {
        std::stable_sort(merged.begin(), merged.end(),
                         [](const Token& a, const Token& b) { return a.timestamp < b.timestamp; });
    }

    std::vector<int> ids, timestamps, durations;
    std::vector<float> confidences;
    for (const auto& t : merged) {
        ids.push_back(t.token);
        timestamps.push_back(t.timestamp);
        confidences.push_back(t.confidence);
        durations.push_back(t.duration);
    }
    ASRResult result;
    result.text = manager.convertTokensToText(ids);
    result.tokenTimings = manager.createTokenTimings(ids, timestamps, confidences, durations);
    result.confidence = TranscriptAssembly::calculateConfidence(
        ids.size(), corvane::trimAsciiWhitespace(result.text).empty(), confidences);
    result.duration = static_cast<double>(totalSamples_) / sampleRate;
    result.processingTime = corvane::secondsBetween(startTime, manager.now());
    return result;
}

std::vector<ChunkProcessor::Token> ChunkProcessor::mergeChunks(
    const std::vector<Token>& left, const std::vector<Token>& right) const {
    if (left.empty()) return right;
    if (right.empty()) return left;

    double leftEnd = left.back().timestamp * frameSeconds + frameSeconds;
    double rightStart = right.front().timestamp * frameSeconds;
    if (leftEnd <= rightStart) {
        std::vector<Token> joined(left);
        joined.insert(joined.end(), right.begin(), right.end());
        return joined;
    }

    std::vector<IndexedToken> overlapLeft;
    std::vector<IndexedToken> overlapRight;
    for (std::size_t i = 0; i < left.size(); ++i) {
        auto t = indexed(i, left[i]);
        if (t.end > rightStart - overlapSeconds_) overlapLeft.push_back(t);
    }
    for (std::size_t j = 0; j < right.size(); ++j) {
        auto t = indexed(j, right[j]);
        if (t.start < leftEnd + overlapSeconds_) overlapRight.push_back(t);
    }

    auto cutAtMidpoint = [&] {
        double mid = (leftEnd + rightStart) / 2;
        std::vector<Token> cut;
        for (const auto& t : left) {
            if (t.timestamp * frameSeconds < mid) cut.push_back(t);
        }
        for (const auto& t : right) {
            if (t.timestamp * frameSeconds >= mid) cut.push_back(t);
        }
        return cut;
    };
    if (overlapLeft.size() < 2 || overlapRight.size() < 2) return cutAtMidpoint();

    double tolerance = overlapSeconds_ * 0.5;
    auto agree = [&](std::size_t i, std::size_t j) {
        return overlapLeft[i].token.token == overlapRight[j].token.token &&
               std::abs(overlapLeft[i].start - overlapRight[j].start) < tolerance;
    };

    // Keeps the left chunk's copy of every matched token, the longer side of each gap between
    // matches (the left one at equal length), and the right chunk after the last match.
    auto mergeWithPairs = [&](const std::vector<std::pair<std::size_t, std::size_t>>& pairs) {
        std::vector<Token> result(left.begin(),
                                  left.begin() + static_cast<std::ptrdiff_t>(pairs.front().first));
        for (std::size_t p = 0; p < pairs.size(); ++p) {
            result.push_back(left[pairs[p].first]);
            if (p + 1 < pairs.size()) {
                auto [a1, b1] = pairs[p];
                auto [a2, b2] = pairs[p + 1];
                std::size_t leftGap = a2 > a1 + 1 ? a2 - a1 - 1 : 0;
                std::size_t rightGap = b2 > b1 + 1 ? b2 - b1 - 1 : 0;
                if (rightGap > leftGap) {
                    result.insert(result.end(), right.begin() + static_cast<std::ptrdiff_t>(b1 + 1),
                                  right.begin() + static_cast<std::ptrdiff_t>(b2));
                } else {
                    result.insert(result.end(), left.begin() + static_cast<std::ptrdiff_t>(a1 + 1),
                                  left.begin() + static_cast<std::ptrdiff_t>(a1 + 1 + leftGap));
                }
            }
        }
        result.insert(result.end(),
                      right.begin() + static_cast<std::ptrdiff_t>(pairs.back().second + 1),
                      right.end());
        return result;
    };
    auto toTokenIndices = [&](const std::vector<std::pair<std::size_t, std::size_t>>& positions) {
        std::vector<std::pair<std::size_t, std::size_t>> pairs;
        for (auto [i, j] : positions)
            pairs.emplace_back(overlapLeft[i].index, overlapRight[j].index);
        return pairs;
    };

    std::size_t minimum = std::max<std::size_t>(overlapLeft.size(), 3) / 2;
    std::size_t bestLength = 0, bestLeft = 0, bestRight = 0;
    for (std::size_t i = 0; i < overlapLeft.size(); ++i) {
        for (std::size_t j = 0; j < overlapRight.size(); ++j) {
            std::size_t k = 0;
            while (i + k < overlapLeft.size() && j + k < overlapRight.size() && agree(i + k, j + k))
                ++k;
            if (k > bestLength) {
                bestLength = k;
                bestLeft = i;
                bestRight = j;
            }
        }
    }
    if (bestLength >= minimum && bestLength > 0) {
        std::vector<std::pair<std::size_t, std::size_t>> positions;
        for (std::size_t k = 0; k < bestLength; ++k)
            positions.emplace_back(bestLeft + k, bestRight + k);
        return mergeWithPairs(toTokenIndices(positions));
    }

    auto common = SequenceMatcher::findLongestCommonSubsequence(overlapLeft.size(),
                                                                overlapRight.size(), agree);
    if (common.empty()) return cutAtMidpoint();
    return mergeWithPairs(toTokenIndices(common));
}

}  // namespace speech
