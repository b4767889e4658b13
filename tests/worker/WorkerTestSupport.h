#pragma once
// Fixture for driving a real WorkerController with a scripted coordinator, handler and time.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <set>
#include <stop_token>
#include <thread>

#include "CorvaneApp/models/HandlerBox.h"
#include "CorvaneApp/worker/WorkerController.h"
#include "tests/support/FakeClock.h"
#include "tests/support/FakeWorkerHTTP.h"
#include "tests/support/ManualSleeper.h"

namespace corvane::testing {

using Event = WorkerControllerEvent;

inline const ModelIdentifier kModelA{"whisper-cpp-swift", "whisper-large-v3-turbo-q4", "1"};
inline const ModelIdentifier kModelB{"speech-engine-native", "parakeet-tdt-0.6b-v2", "1"};
inline const ModelIdentifier kModelC{"other", "model-c", "1"};

// A handler whose work the test scripts; by default it transcribes "hello world".
class ScriptedHandler final : public ModelHandler {
  public:
    using Run = std::function<JobResult(const ClaimedJob&, const StageObserver&, std::stop_token)>;
    explicit ScriptedHandler(ModelIdentifier id, Run run = {})
        : id_(std::move(id)), run_(std::move(run)) {}

    ModelIdentifier modelIdentifier() const override { return id_; }
    std::string activeImplName() const override { return "scripted"; }
    std::optional<std::string> installedVersion() const override { return "1"; }
    JobResult handle(const ClaimedJob& job, const StageObserver& observer,
                     std::stop_token stop) override {
        ++calls;
        if (run_) return run_(job, observer, stop);
        return transcript(job, "hello world");
    }

    static JobResult transcript(const ClaimedJob& job, std::string text,
                                std::optional<std::string> language = std::nullopt) {
        TranscriptResult t{std::move(text), std::move(language), {{0, 1, "x"}, {1, 2, "y"}}};
        return {job.id, job.shardID, ModelOutput{t}, "scripted-backend", 0.5};
    }

    std::atomic<int> calls{0};

  private:
    ModelIdentifier id_;
    Run run_;
};

// A latch a scripted handler can wait on, released by the test.
class Gate {
  public:
    void open() {
        {
            std::lock_guard lock(mutex_);
            open_ = true;
        }
        cv_.notify_all();
    }
    void wait() {
        std::unique_lock lock(mutex_);
        cv_.wait(lock, [&] { return open_; });
    }
    // Also returns when `stop` is requested, as a handler honouring its cancellation does.
    void wait(std::stop_token stop) {
        std::unique_lock lock(mutex_);
        cv_.wait(lock, stop, [&] { return open_; });
    }
    void markReached() {
        {
            std::lock_guard lock(mutex_);
            reached_ = true;
        }
        cv_.notify_all();
    }
    bool waitReached() {
        std::unique_lock lock(mutex_);
        return cv_.wait_for(lock, std::chrono::seconds(20), [&] { return reached_; });
    }

  private:
    std::mutex mutex_;
    std::condition_variable_any cv_;
    bool open_ = false;
    bool reached_ = false;
};

// Spins (yielding, never sleeping) until `predicate` holds or a generous safety limit passes.
inline bool spinUntil(const std::function<bool()>& predicate) {
    auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

class WorkerFixture : public ::testing::Test {
  public:
    static constexpr double kPoll = 30, kRecheck = 5, kHeartbeat = 1000;

    void TearDown() override { finish(); }

    // Stops the worker and waits until no task of it still runs, so nothing outlives the test.
    void finish() {
        for (auto& g : gates) g.open();
        sleeper->open();
        if (!controller) return;
        controller->stop();
        EXPECT_TRUE(spinUntil([&] { return controller.use_count() == 1; }));
        controller.reset();
    }

    // A latch owned by the fixture, opened at the latest when the test ends.
    Gate& newGate() { return gates.emplace_back(); }

    WorkerController::Dependencies dependencies() {
        WorkerController::Dependencies d;
        d.http = http;
        d.handlerLookup = [this](const ModelIdentifier&) { return box.current(); };
        d.materialiser = [this](const ShardClaim& claim, std::stop_token) {
            if (materialiseError) throw std::runtime_error(*materialiseError);
            return ClaimedJob{claim.jobID,
                              claim.shardID,
                              ModelCategory::transcription,
                              claim.modelOrDefault(),
                              "/tmp/" + claim.key() + ".wav",
                              clock.now(),
                              std::nullopt};
        };
        d.isEligible = [this] { return eligible(); };
        d.strategyHolder = std::make_shared<StrategySuggestionHolder>();
        d.config = config;
        d.sleepProvider = sleeper;
        d.now = clock.function();
        return d;
    }

    void start(std::function<void(WorkerController::Dependencies&)> adjust = {},
               std::function<void(WorkerController&)> beforeStart = {}) {
        auto d = dependencies();
        if (adjust) adjust(d);
        controller = WorkerController::create(std::move(d));
        if (beforeStart) beforeStart(*controller);
        controller->start();
    }

    // Reads events until one satisfies `predicate`; all events read are kept in `seen`.
    bool awaitEvent(const std::function<bool(const Event&)>& predicate) {
        while (auto event = controller->events().nextFor(std::chrono::seconds(20))) {
            seen.push_back(*event);
            if (predicate(*event)) return true;
        }
        return false;
    }
    template <typename T>
    bool awaitEvent() {
        return awaitEvent([](const Event& e) { return e.as<T>() != nullptr; });
    }
    template <typename T>
    int countSeen() const {
        int n = 0;
        for (const auto& e : seen) n += e.as<T>() != nullptr;
        return n;
    }
    void drainEvents() {
        while (auto event = controller->events().tryNext()) seen.push_back(*event);
    }

    FakeClock clock;
    std::shared_ptr<ManualSleeper> sleeper = std::make_shared<ManualSleeper>(&clock);
    std::shared_ptr<FakeWorkerHTTP> http = std::make_shared<FakeWorkerHTTP>();
    HandlerBox box;
    std::function<bool()> eligible = [] { return true; };
    std::optional<std::string> materialiseError;
    WorkerControllerConfig config{kPoll, kHeartbeat, kRecheck, 1, std::nullopt};
    std::deque<Gate> gates;
    std::shared_ptr<WorkerController> controller;
    std::vector<Event> seen;
};

}  // namespace corvane::testing
