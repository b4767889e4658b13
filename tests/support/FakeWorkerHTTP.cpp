#include "tests/support/FakeWorkerHTTP.h"

namespace corvane::testing {

void FakeWorkerHTTP::queuePoll(PollScript script) {
    std::lock_guard lock(mutex_);
    pollScripts_.push_back(std::move(script));
}

void FakeWorkerHTTP::queueClaims(std::vector<ShardClaim> claims,
                                 std::optional<std::int64_t> suggested,
                                 std::optional<CoordinatorStrategySuggestion> strategy) {
    queuePoll([claims = std::move(claims), suggested, strategy](std::int64_t) {
        return PollBatchOutcome{claims, suggested, strategy};
    });
}

void FakeWorkerHTTP::queuePollError(WorkerHTTPError error) {
    queuePoll([error](std::int64_t) -> PollBatchOutcome { throw error; });
}

void FakeWorkerHTTP::onHeartbeat(CallScript script) {
    std::lock_guard lock(mutex_);
    heartbeatScript_ = std::move(script);
}
void FakeWorkerHTTP::onSubmitResult(CallScript script) {
    std::lock_guard lock(mutex_);
    resultScript_ = std::move(script);
}
void FakeWorkerHTTP::onSubmitFail(CallScript script) {
    std::lock_guard lock(mutex_);
    failScript_ = std::move(script);
}

std::optional<ShardClaim> FakeWorkerHTTP::poll(const WorkerCapabilities& capabilities,
                                               std::stop_token stop) {
    auto outcome = pollBatch(capabilities, 1, stop);
    if (outcome.items.empty()) return std::nullopt;
    return outcome.items.front();
}

PollBatchOutcome FakeWorkerHTTP::pollBatch(const WorkerCapabilities& capabilities,
                                           std::int64_t maxShards, std::stop_token) {
    PollScript script;
    {
        std::lock_guard lock(mutex_);
        polls_.push_back(maxShards);
        pollCapabilities_.push_back(capabilities);
        if (!pollScripts_.empty()) {
            script = std::move(pollScripts_.front());
            pollScripts_.pop_front();
        }
    }
    notifyChanged();
    return script ? script(maxShards) : PollBatchOutcome{};
}

void FakeWorkerHTTP::heartbeat(const std::string& jobId, const std::optional<std::string>& shardId,
                               std::stop_token) {
    Report report{jobId, shardId};
    CallScript script;
    {
        std::lock_guard lock(mutex_);
        heartbeats_.push_back(report);
        script = heartbeatScript_;
    }
    notifyChanged();
    if (script) script(report);
}

void FakeWorkerHTTP::submitResult(const std::string& jobId,
                                  const std::optional<std::string>& shardId,
                                  const SubmitResultBody& body, std::stop_token) {
    Result result{{jobId, shardId}, body};
    CallScript script;
    {
        std::lock_guard lock(mutex_);
        results_.push_back(result);
        script = resultScript_;
    }
    notifyChanged();
    if (script) script(result);
}

void FakeWorkerHTTP::submitFail(const std::string& jobId, const std::optional<std::string>& shardId,
                                const FailReason& reason, std::stop_token) {
    Failure failure{{jobId, shardId}, reason};
    CallScript script;
    {
        std::lock_guard lock(mutex_);
        failures_.push_back(failure);
        script = failScript_;
    }
    notifyChanged();
    if (script) script(failure);
}

std::vector<std::int64_t> FakeWorkerHTTP::polls() const {
    std::lock_guard lock(mutex_);
    return polls_;
}
std::vector<WorkerCapabilities> FakeWorkerHTTP::pollCapabilities() const {
    std::lock_guard lock(mutex_);
    return pollCapabilities_;
}
std::vector<FakeWorkerHTTP::Report> FakeWorkerHTTP::heartbeats() const {
    std::lock_guard lock(mutex_);
    return heartbeats_;
}
std::vector<FakeWorkerHTTP::Result> FakeWorkerHTTP::results() const {
    std::lock_guard lock(mutex_);
    return results_;
}
std::vector<FakeWorkerHTTP::Failure> FakeWorkerHTTP::failures() const {
    std::lock_guard lock(mutex_);
    return failures_;
}

void FakeWorkerHTTP::notifyChanged() {
    {
        std::lock_guard lock(mutex_);
        ++changes_;
    }
    changed_.notify_all();
}

bool FakeWorkerHTTP::waitUntil(const std::function<bool(const FakeWorkerHTTP&)>& predicate,
                               std::chrono::seconds limit) const {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        std::uint64_t seen;
        {
            std::lock_guard lock(mutex_);
            seen = changes_;
        }
        if (predicate(*this)) return true;
        std::unique_lock lock(mutex_);
        if (!changed_.wait_until(lock, deadline, [&] { return changes_ != seen; })) return false;
    }
}

ShardClaim makeClaim(std::string jobID, std::optional<std::string> shardID,
                     std::optional<ModelIdentifier> model) {
    ShardClaim claim;
    claim.jobID = std::move(jobID);
    claim.jobType = "transcription";
    claim.audioURL = "http://127.0.0.1/audio/" + claim.jobID + ".wav";
    claim.shardID = std::move(shardID);
    claim.modelIdentifier = std::move(model);
    return claim;
}

}  // namespace corvane::testing
