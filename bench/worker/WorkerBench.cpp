// One poll round trip of the wire client next to a bare libcurl GET of the same URL, and the
// cost (time and heap allocations) of one idle run-loop turn.

#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tools/dev-coordinator/DevCoordinator.h"

namespace {

std::atomic<long> allocations{0};

}  // namespace

// Counts every heap allocation of the process, to show what one idle turn allocates. GCC takes
// the replacement pair for a mismatch when it inlines them into callers; they do match.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
void* operator new(std::size_t size) {
    allocations.fetch_add(1, std::memory_order_relaxed);
    if (void* p = std::malloc(size ? size : 1)) return p;
    throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#pragma GCC diagnostic pop

namespace corvane {
namespace {

dev::DevCoordinator& coordinator() {
    static dev::DevCoordinator instance{
        dev::DevCoordinator::Options{}};  // no shards: every poll is a 204
    return instance;
}

WorkerCapabilities benchCapabilities() {
    WorkerCapabilities c;
    c.capabilities = {{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", true, std::nullopt}};
    c.chipTier = "t1";
    c.ramGB = 16;
    return c;
}

void BM_WorkerHTTPClientPoll(benchmark::State& state) {
    WorkerHTTPClient client(coordinator().baseURL(), "dev-token", "bench-worker", "bench");
    const auto capabilities = benchCapabilities();
    for (auto _ : state) benchmark::DoNotOptimize(client.pollBatch(capabilities, 1, {}));
}
BENCHMARK(BM_WorkerHTTPClientPoll)->UseRealTime();

size_t discard(char*, size_t size, size_t count, void*) {
    return size * count;
}

void BM_BareCurlGet(benchmark::State& state) {
    std::string url = coordinator().baseURL() + "/api/v1/workers/poll?max_shards=1";
    CURL* curl = curl_easy_init();
    // The same request on the wire as the client's, so the coordinator's share of the time is
    // equal.
    const std::string capabilities =
        "X-Worker-Capabilities: " + benchCapabilities().encode().dump();
    curl_slist* headers = curl_slist_append(nullptr, "Authorization: Bearer dev-token");
    headers = curl_slist_append(headers, "X-Worker-ID: bench-worker");
    headers = curl_slist_append(headers, "Accept: application/json");
    headers = curl_slist_append(headers, "X-Worker-Version: bench");
    headers = curl_slist_append(headers, capabilities.c_str());
    curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &discard);
    for (auto _ : state) {
        if (curl_easy_perform(curl) != CURLE_OK) state.SkipWithError("GET failed");
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(curl);
}
BENCHMARK(BM_BareCurlGet)->UseRealTime();

// A coordinator that never has work and records nothing.
struct IdleHTTP final : WorkerHTTPClientProtocol {
    std::optional<ShardClaim> poll(const WorkerCapabilities&, std::stop_token) override {
        return std::nullopt;
    }
    PollBatchOutcome pollBatch(const WorkerCapabilities&, std::int64_t, std::stop_token) override {
        return {};
    }
    void heartbeat(const std::string&, const std::optional<std::string>&,
                   std::stop_token) override {}
    void submitResult(const std::string&, const std::optional<std::string>&,
                      const SubmitResultBody&, std::stop_token) override {}
    void submitFail(const std::string&, const std::optional<std::string>&, const FailReason&,
                    std::stop_token) override {}
};

// Every sleep ends a turn: it returns at once and counts, until the target is reached.
struct CountingSleeper final : SleepProvider {
    std::atomic<long> turns{0};
    long target = 0;
    std::mutex mutex;
    std::condition_variable done;
    bool sleep(double, std::stop_token stop) override {
        if (++turns == target) {
            std::lock_guard lock(mutex);
            done.notify_all();
        }
        return !stop.stop_requested();
    }
};

void BM_IdleRunLoopTurn(benchmark::State& state) {
    const long turnsPerIteration = 10000;
    long totalAllocations = 0, totalTurns = 0;
    for (auto _ : state) {
        auto sleeper = std::make_shared<CountingSleeper>();
        sleeper->target = turnsPerIteration;
        WorkerController::Dependencies deps;
        deps.http = std::make_shared<IdleHTTP>();
        deps.handlerLookup = [](const ModelIdentifier&) { return nullptr; };
        deps.materialiser = [](const ShardClaim&, std::stop_token) -> ClaimedJob {
            throw std::runtime_error("unused");
        };
        deps.isEligible = [] { return true; };
        deps.sleepProvider = sleeper;
        auto controller = WorkerController::create(std::move(deps));
        long before = allocations.load();
        controller->start();
        {
            std::unique_lock lock(sleeper->mutex);
            sleeper->done.wait(lock, [&] { return sleeper->turns >= turnsPerIteration; });
        }
        long measured = allocations.load() - before;
        state.PauseTiming();
        controller->stop();
        // Each idle turn queues one event for the bridge; drain them as the bridge would.
        while (controller->events().tryNext()) {
        }
        totalAllocations += measured;
        totalTurns += sleeper->turns.load();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(totalTurns);
    state.counters["allocations_per_turn"] =
        static_cast<double>(totalAllocations) / static_cast<double>(totalTurns);
}
BENCHMARK(BM_IdleRunLoopTurn)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace corvane

BENCHMARK_MAIN();
