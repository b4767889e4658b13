#pragma once
// A scripted coordinator behind the wire client's interface, for driving WorkerController.

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/WorkerHTTPClient.h"

namespace corvane::testing {

class FakeWorkerHTTP final : public WorkerHTTPClientProtocol {
  public:
    struct Report {
        std::string jobID;
        std::optional<std::string> shardID;
        bool operator==(const Report&) const = default;
    };
    struct Result : Report {
        SubmitResultBody body;
    };
    struct Failure : Report {
        FailReason reason;
    };
    // One poll's answer: returns the outcome or throws.
    using PollScript = std::function<PollBatchOutcome(std::int64_t maxShards)>;
    using CallScript = std::function<void(const Report&)>;

    // Scripted answers are used in order; once they run out, polls find no work.
    void queuePoll(PollScript script);
    void queueClaims(std::vector<ShardClaim> claims,
                     std::optional<std::int64_t> suggestedMaxShards = std::nullopt,
                     std::optional<CoordinatorStrategySuggestion> strategy = std::nullopt);
    void queuePollError(WorkerHTTPError error);
    // Every heartbeat / result / failure report runs this first (it may throw).
    void onHeartbeat(CallScript script);
    void onSubmitResult(CallScript script);
    void onSubmitFail(CallScript script);

    std::optional<ShardClaim> poll(const WorkerCapabilities& capabilities,
                                   std::stop_token stop) override;
    PollBatchOutcome pollBatch(const WorkerCapabilities& capabilities, std::int64_t maxShards,
                               std::stop_token stop) override;
    void heartbeat(const std::string& jobId, const std::optional<std::string>& shardId,
                   std::stop_token stop) override;
    void submitResult(const std::string& jobId, const std::optional<std::string>& shardId,
                      const SubmitResultBody& body, std::stop_token stop) override;
    void submitFail(const std::string& jobId, const std::optional<std::string>& shardId,
                    const FailReason& reason, std::stop_token stop) override;

    std::vector<std::int64_t> polls() const;
    std::vector<WorkerCapabilities> pollCapabilities() const;
    std::vector<Report> heartbeats() const;
    std::vector<Result> results() const;
    std::vector<Failure> failures() const;

    // Waits (with a generous safety limit) until the recorded calls satisfy `predicate`.
    bool waitUntil(const std::function<bool(const FakeWorkerHTTP&)>& predicate,
                   std::chrono::seconds limit = std::chrono::seconds(20)) const;

  private:
    void notifyChanged();

    mutable std::mutex mutex_;
    std::uint64_t changes_ = 0;  // guarded by mutex_; bumped on every recorded call
    mutable std::condition_variable changed_;
    std::deque<PollScript> pollScripts_;
    CallScript heartbeatScript_, resultScript_, failScript_;
    std::vector<std::int64_t> polls_;
    std::vector<WorkerCapabilities> pollCapabilities_;
    std::vector<Report> heartbeats_;
    std::vector<Result> results_;
    std::vector<Failure> failures_;
};

// A claim with the three required fields, a shard id and, when given, a model.
ShardClaim makeClaim(std::string jobID, std::optional<std::string> shardID = std::nullopt,
                     std::optional<ModelIdentifier> model = std::nullopt);

}  // namespace corvane::testing
