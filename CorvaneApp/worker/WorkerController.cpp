#include "CorvaneApp/worker/WorkerController.h"

#include <algorithm>
#include <sstream>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

using Event = WorkerControllerEvent;
using Stage = WorkerControllerEvent::Stage;

const char* const kDiscardReason = "terminal state already submitted";

FailReason shutdownReason() {
    return {"worker_shutdown", "worker stopped while job was in flight", true};
}

std::int64_t countWords(const std::string& text) {
    std::istringstream words(text);
    std::int64_t count = 0;
    for (std::string word; words >> word;) ++count;
    return count;
}

}  // namespace

const WorkerControllerSnapshot WorkerControllerSnapshot::empty{};

const char* rawValue(WorkerControllerEvent::Stage stage) {
    switch (stage) {
        case Stage::download:
            return "download";
        case Stage::decode:
            return "decode";
        case Stage::inference:
            return "inference";
        case Stage::submit:
            return "submit";
        case Stage::modelSwap:
            return "modelSwap";
    }
    return "download";
}

std::string describeStatic(const std::exception& error) {
    if (const auto* http = dynamic_cast<const WorkerHTTPError*>(&error)) {
        if (auto text = http->errorDescription()) return *text;
    }
    std::string text = error.what();
    return text.empty() ? "The operation couldn't be completed." : text;
}

bool isRetryableHandlerError(const std::exception& error) {
    if (const auto* model = dynamic_cast<const ModelError*>(&error)) return model->isRetryable();
    return true;
}

std::shared_ptr<WorkerController> WorkerController::create(Dependencies dependencies) {
    return std::make_shared<WorkerController>(std::move(dependencies));
}

WorkerController::WorkerController(Dependencies dependencies) : deps_(std::move(dependencies)) {}

WorkerController::~WorkerController() {
    // Tasks hold the worker weakly: once here they can no longer enter it, so cancelling and
    // joining them (outside any lock) only waits for their unwinding.
    std::vector<TaskHandle> tasks;
    {
        std::lock_guard lock(mutex_);
        if (runLoopTask_) tasks.push_back(std::move(runLoopTask_));
        for (auto& [key, shard] : inFlight_) {
            tasks.push_back(std::move(shard.heartbeatTask));
            tasks.push_back(std::move(shard.handlerTask));
        }
    }
    for (auto& task : tasks) {
        if (task) task->cancel();
    }
}

void WorkerController::start() {
    std::lock_guard lock(mutex_);
    if (runLoopTask_) return;
    if (deps_.buildIdentity) {
        log::get("WorkerController")
            ->info("WorkerController.start build_identity={}", *deps_.buildIdentity);
    } else {
        log::get("WorkerController")->info("WorkerController.start");
    }
    isRunning_ = true;
    events_.push(Event::Started{});
    runLoopTask_ = Task::start([weak = weak_from_this(), sleeper = deps_.sleepProvider](
                                   std::stop_token stop) { runLoop(weak, sleeper, stop); });
}

void WorkerController::stop() {
    std::vector<std::pair<std::string, std::optional<std::string>>> toReport;  // job and shard
    std::vector<TaskHandle> cancelled;
    TaskHandle loop;
    {
        std::lock_guard lock(mutex_);
        isRunning_ = false;
        if (runLoopTask_) runLoopTask_->cancel();
        // Claims of another model wait for the worker to go idle; a stopping worker never starts
        // them, even when its last handler returns before the reports below are sent.
        pendingClaims_.clear();
        pendingClaimOrder_.clear();
        for (auto& [key, shard] : inFlight_) {
            if (shard.heartbeatTask) shard.heartbeatTask->cancel();
            if (shard.handlerTask) shard.handlerTask->cancel();
            // A handler already sending its own terminal report covers the shard.
            if (shard.terminalReportStarted) continue;
            shard.terminalReportStarted = true;
            terminallySubmittedJobIDs_.insert(shard.jobID);
            toReport.emplace_back(shard.jobID, shard.shardID);
        }
    }
    for (const auto& [jobID, shardID] : toReport) {
        try {
            deps_.http->submitFail(jobID, shardID, shutdownReason(), {});
        } catch (const std::exception&) {
            // Reported or not, the coordinator learns the rest from the missed heartbeats.
        }
        std::lock_guard lock(mutex_);
        events_.push(Event::FailSubmitted{jobID, "worker_shutdown"});
    }
    {
        std::lock_guard lock(mutex_);
        for (auto& [key, shard] : inFlight_) {
            cancelled.push_back(std::move(shard.heartbeatTask));
            cancelled.push_back(std::move(shard.handlerTask));
        }
        inFlight_.clear();
        currentJobID_.reset();
        currentShardID_.reset();
        currentShardStartedAt_.reset();
        currentShardExpectedSeconds_.reset();
        loop = runLoopTask_;
    }
    // Joins the heartbeats and the handlers, outside the lock. A handler must not outlive stop():
    // it holds the worker while it runs, and whoever stops the worker may be about to exit.
    // Cancelled, a handler gives up its download or inference; a result already on its way is
    // sent first.
    cancelled.clear();
    if (loop) {
        loop->join();
        std::lock_guard lock(mutex_);
        if (runLoopTask_ == loop) runLoopTask_.reset();
    }
    std::lock_guard lock(mutex_);
    events_.push(Event::Stopped{});
}

WorkerControllerSnapshot WorkerController::snapshot() const {
    std::lock_guard lock(mutex_);
    return {isRunning_,
            currentJobID_,
            currentShardID_,
            currentShardStartedAt_,
            currentShardExpectedSeconds_,
            lastHeartbeatAt_,
            lastErrorDescription_};
}

std::size_t WorkerController::inFlightCount() const {
    std::lock_guard lock(mutex_);
    return inFlight_.size();
}

void WorkerController::recordModelLoaded(bool hit, double durationSeconds) {
    log::get("WorkerController")->info("model_loaded hit={} seconds={:f}", hit, durationSeconds);
    std::lock_guard lock(mutex_);
    pendingCacheLoadObservation_ = ShardCacheObservation{hit, durationSeconds};
}

void WorkerController::setErrorLocked(std::string description) {
    lastErrorDescription_ = description;
    events_.push(Event::ErrorOccurred{std::move(description)});
}

// ---- run loop -------------------------------------------------------------------------------

void WorkerController::runLoop(std::weak_ptr<WorkerController> weak,
                               std::shared_ptr<SleepProvider> sleeper, std::stop_token stop) {
    LoopState state;
    while (true) {
        TurnOutcome outcome;
        {
            auto self = weak.lock();
            if (!self) return;
            outcome = self->turn(state, stop);
        }
        if (outcome.end) return;
        // A cancelled sleep simply returns; the next turn's first step ends the loop.
        if (outcome.sleepSeconds > 0) sleeper->sleep(outcome.sleepSeconds, stop);
    }
}

std::int64_t WorkerController::shardLimitLocked() const {
    std::int64_t limit = deps_.config.maxShardsInFlightOverride.value_or(
        lastSuggestedMaxShards_.value_or(deps_.config.maxConcurrentJobs));
    return std::clamp<std::int64_t>(limit, 1, 16);
}

WorkerController::TurnOutcome WorkerController::turn(LoopState& state, std::stop_token stop) {
    const auto& config = deps_.config;
    {
        std::lock_guard lock(mutex_);
        if (stop.stop_requested() || !isRunning_) return {true, 0};
    }
    bool eligible = deps_.isEligible ? deps_.isEligible() : true;
    std::int64_t free = 0;
    int alreadyInFlight = 0;
    {
        std::lock_guard lock(mutex_);
        if (!eligible) {
            if (!state.pauseReported) {
                log::get("WorkerController")->info("WorkerController.runLoop paused: ineligible");
                events_.push(Event::Paused{"ineligible"});
                state.pauseReported = true;
            }
            state.wasEligible = false;
            return {false, config.eligibilityRecheckInterval};
        }
        if (!state.wasEligible) {
            log::get("WorkerController")->info("WorkerController.runLoop resumed");
            events_.push(Event::Resumed{});
        }
        state.pauseReported = false;
        state.wasEligible = true;
        free = shardLimitLocked() - static_cast<std::int64_t>(inFlight_.size()) -
               static_cast<std::int64_t>(pendingClaims_.size());
        alreadyInFlight = static_cast<int>(inFlight_.size());
    }
    if (free <= 0) return {false, config.eligibilityRecheckInterval};

    if (deps_.memoryGate) {
        if (auto reason = deps_.memoryGate->check(alreadyInFlight)) {
            log::get("WorkerController")
                ->info("WorkerController.runLoop: ram-gated \u2014 {}", reason->description());
            std::lock_guard lock(mutex_);
            events_.push(Event::RamGated{*reason});
            return {false, config.eligibilityRecheckInterval};
        }
    }

    PollBatchOutcome outcome;
    Date pollStart = deps_.now();
    try {
        WorkerCapabilities capabilities =
            deps_.capabilities ? deps_.capabilities->snapshot() : WorkerCapabilities{};
        outcome = deps_.http->pollBatch(capabilities, free, stop);
    } catch (const WorkerHTTPError& error) {
        if (error.isCancellation() && stop.stop_requested()) return {true, 0};
        return handlePollFailure(error);
    } catch (const std::exception& error) {
        return handlePollFailure(error);
    }
    double rttMs = secondsBetween(pollStart, deps_.now()) * 1000.0;

    std::unique_lock lock(mutex_);
    if (outcome.suggestedMaxShards) lastSuggestedMaxShards_ = outcome.suggestedMaxShards;
    if (outcome.strategySuggestion) {
        lastStrategySuggestion_ = outcome.strategySuggestion;
        if (deps_.strategyHolder) deps_.strategyHolder->set(outcome.strategySuggestion);
    }
    if (!isRunning_) {
        // stop() began while the poll was on the wire: these claims are ours now, so each still
        // gets its one terminal report rather than vanishing.
        lock.unlock();
        reportClaimsReceivedWhileStopping(outcome.items);
        return {true, 0};
    }
    for (auto& [key, shard] : inFlight_) shardRTTAccumulator_[key].add(rttMs);
    if (outcome.items.empty()) {
        events_.push(Event::Idle{});
        return {false, config.pollInterval};
    }
    for (const auto& claim : outcome.items) {
        const std::string& key = claim.key();
        shardRTTAccumulator_[key].add(rttMs);
        ModelIdentifier model = claim.modelOrDefault();
        std::vector<ModelIdentifier> running;
        for (const auto& [k, shard] : inFlight_) {
            if (std::find(running.begin(), running.end(), shard.modelIdentifier) == running.end()) {
                running.push_back(shard.modelIdentifier);
            }
        }
        if (running.empty() || (running.size() == 1 && running.front() == model)) {
            startClaimLocked(claim, key, model);
        } else {
            queuePendingClaimLocked(claim, key);
        }
    }
    return {false, 0};
}

WorkerController::TurnOutcome WorkerController::handlePollFailure(const std::exception& error) {
    std::lock_guard lock(mutex_);
    if (const auto* http = dynamic_cast<const WorkerHTTPError*>(&error);
        http && http->kind() == WorkerHTTPError::Kind::rateLimited) {
        setErrorLocked(describeStatic(*http));
        double retryAfter = http->retryAfterSeconds()
                                ? static_cast<double>(*http->retryAfterSeconds())
                                : deps_.config.pollInterval;
        return {false, std::max(deps_.config.pollInterval, retryAfter)};
    }
    setErrorLocked(describeStatic(error));
    return {false, deps_.config.pollInterval};
}

void WorkerController::reportClaimsReceivedWhileStopping(const std::vector<ShardClaim>& claims) {
    for (const auto& claim : claims) {
        try {
            deps_.http->submitFail(claim.jobID, claim.shardID, shutdownReason(), {});
        } catch (const std::exception&) {
        }
        std::lock_guard lock(mutex_);
        terminallySubmittedJobIDs_.insert(claim.jobID);
        events_.push(Event::FailSubmitted{claim.jobID, "worker_shutdown"});
    }
}

// ---- claims ---------------------------------------------------------------------------------

void WorkerController::startClaimLocked(const ShardClaim& claim, const std::string& key,
                                        const ModelIdentifier& model) {
    currentJobID_ = claim.jobID;
    currentShardID_ = claim.shardID;
    currentShardStartedAt_ = deps_.now();
    std::optional<double> expected;
    if (claim.startSeconds && claim.endSeconds && *claim.endSeconds - *claim.startSeconds > 0) {
        expected = std::max((*claim.endSeconds - *claim.startSeconds) * 0.125, 1.0);
    }
    currentShardExpectedSeconds_ = expected;
    events_.push(Event::Claimed{claim.jobID, claim.shardID});

    InFlightShard shard{claim.jobID, claim.shardID, *currentShardStartedAt_,
                        expected,    model,         nullptr,
                        nullptr,     false};
    shard.heartbeatTask = makeHeartbeatTask(claim.jobID, claim.shardID);
    shard.handlerTask = Task::start([weak = weak_from_this(), claim, key](std::stop_token stop) {
        if (auto self = weak.lock()) {
            self->handleClaim(claim, stop);
            self->removeInFlight(key);
        }
    });
    inFlight_.insert_or_assign(key, std::move(shard));
}

void WorkerController::queuePendingClaimLocked(const ShardClaim& claim, const std::string& key) {
    if (pendingClaims_.contains(key)) return;
    pendingClaims_.emplace(key, claim);
    pendingClaimOrder_.push_back(key);
}

void WorkerController::removeInFlight(const std::string& key) {
    std::optional<InFlightShard>
        removed;  // destroyed after the lock is released: joins its heartbeat
    std::lock_guard lock(mutex_);
    auto it = inFlight_.find(key);
    if (it == inFlight_.end()) return;
    removed = std::move(it->second);
    inFlight_.erase(it);
    if (removed->heartbeatTask) removed->heartbeatTask->cancel();
    shardStageAccumulator_.erase(key);
    shardRTTAccumulator_.erase(key);
    shardCacheObservation_.erase(key);
    if (removed->shardID == currentShardID_) {
        if (inFlight_.empty()) {
            currentJobID_.reset();
            currentShardID_.reset();
            currentShardStartedAt_.reset();
            currentShardExpectedSeconds_.reset();
        } else {
            auto oldest = inFlight_.begin();
            for (auto candidate = inFlight_.begin(); candidate != inFlight_.end(); ++candidate) {
                if (candidate->second.startedAt < oldest->second.startedAt) oldest = candidate;
            }
            currentJobID_ = oldest->second.jobID;
            currentShardID_ = oldest->second.shardID;
            currentShardStartedAt_ = oldest->second.startedAt;
            currentShardExpectedSeconds_ = oldest->second.expectedSeconds;
        }
    }
    drainPendingClaimsLocked();
}

void WorkerController::drainPendingClaimsLocked() {
    if (!isRunning_ || !inFlight_.empty()) return;
    std::optional<std::string> firstKey;
    while (!pendingClaimOrder_.empty()) {
        std::string key = pendingClaimOrder_.front();
        pendingClaimOrder_.erase(pendingClaimOrder_.begin());
        if (pendingClaims_.contains(key)) {
            firstKey = key;
            break;
        }
    }
    if (!firstKey) return;
    ShardClaim first = pendingClaims_.at(*firstKey);
    pendingClaims_.erase(*firstKey);
    ModelIdentifier model = first.modelOrDefault();
    std::vector<std::string> sameModel;
    for (const auto& key : pendingClaimOrder_) {
        auto it = pendingClaims_.find(key);
        if (it != pendingClaims_.end() && it->second.modelOrDefault() == model)
            sameModel.push_back(key);
    }
    startClaimLocked(first, *firstKey, model);
    for (const auto& key : sameModel) {
        auto it = pendingClaims_.find(key);
        if (it == pendingClaims_.end()) continue;
        ShardClaim claim = std::move(it->second);
        pendingClaims_.erase(it);
        auto position = std::find(pendingClaimOrder_.begin(), pendingClaimOrder_.end(), key);
        if (position != pendingClaimOrder_.end()) pendingClaimOrder_.erase(position);
        startClaimLocked(claim, key, claim.modelOrDefault());
    }
}

// ---- one shard ------------------------------------------------------------------------------

bool WorkerController::beginTerminalReport(const std::string& key, const std::string& jobID) {
    std::lock_guard lock(mutex_);
    if (terminallySubmittedJobIDs_.contains(jobID)) {
        events_.push(Event::ResultDiscarded{jobID, kDiscardReason});
        return false;
    }
    if (auto it = inFlight_.find(key); it != inFlight_.end())
        it->second.terminalReportStarted = true;
    return true;
}

void WorkerController::handleClaim(const ShardClaim& claim, std::stop_token stop) {
    const std::string key = claim.key();
    const ModelIdentifier model = claim.modelOrDefault();

    if (claim.modelIdentifier) {
        std::exception_ptr loadError;
        if (swapHandlerIfNeeded(*claim.modelIdentifier, key, loadError, stop) ==
            SwapResult::failed) {
            std::string description = "unknown error";
            try {
                std::rethrow_exception(loadError);
            } catch (const std::exception& error) {
                description = describeStatic(error);
            } catch (...) {
            }
            log::get("WorkerController")
                ->error("handler swap failed \u2014 failing shard as handler_load_failed: {}",
                        description);
            if (beginTerminalReport(key, claim.jobID)) {
                reportFailure(
                    claim.jobID, claim.shardID,
                    {"handler_load_failed",
                     "handler load failed for " + model.model + ": " + description, true});
            }
            return;
        }
    }

    std::shared_ptr<ModelHandler> handler =
        deps_.handlerLookup ? deps_.handlerLookup(model) : nullptr;
    if (!handler) {
        log::get("WorkerController")
            ->info("no handler available \u2014 failing shard as retryable");
        if (beginTerminalReport(key, claim.jobID)) {
            reportFailure(
                claim.jobID, claim.shardID,
                {"handler_unavailable", "no registered handler for model " + model.model, true});
        }
        return;
    }

    {
        std::lock_guard lock(mutex_);
        if (!shardCacheObservation_.contains(key) && pendingCacheLoadObservation_) {
            shardCacheObservation_[key] = *pendingCacheLoadObservation_;
            pendingCacheLoadObservation_->loadSeconds = 0;
        }
    }

    Date downloadStart = deps_.now();
    std::optional<ClaimedJob> job;
    try {
        job = deps_.materialiser(claim, stop);
    } catch (const std::exception& error) {
        emitStageTiming(key, Stage::download, secondsBetween(downloadStart, deps_.now()));
        if (beginTerminalReport(key, claim.jobID)) {
            reportFailure(claim.jobID, claim.shardID,
                          {"ingestion_error", describeStatic(error), true});
        }
        return;
    }
    emitStageTiming(key, Stage::download, secondsBetween(downloadStart, deps_.now()));
    Date inferenceStart = deps_.now();
    WorkerPerformanceMetadata meta = deps_.performanceMetadataProvider
                                         ? deps_.performanceMetadataProvider()
                                         : WorkerPerformanceMetadata{};

    std::optional<JobResult> result;
    StageObserver observer = [weak = weak_from_this(), key](ModelHandlerStage stage,
                                                            double seconds) {
        if (auto self = weak.lock()) {
            self->emitStageTiming(
                key, stage == ModelHandlerStage::decode ? Stage::decode : Stage::inference,
                seconds);
        }
    };
    try {
        result = handler->handle(*job, observer, stop);
    } catch (const std::exception& error) {
        if (beginTerminalReport(key, claim.jobID)) {
            reportFailure(claim.jobID, claim.shardID,
                          {"handler_error", describeStatic(error), isRetryableHandlerError(error)});
        }
        return;
    }

    std::optional<ResourceAggregate> aggregate;
    if (deps_.resourceAggregator) aggregate = deps_.resourceAggregator(inferenceStart);
    double wall = secondsBetween(inferenceStart, deps_.now());

    PerformanceInputs inputs;
    Date submitStart;
    {
        std::lock_guard lock(mutex_);
        if (terminallySubmittedJobIDs_.contains(claim.jobID)) {
            events_.push(Event::ResultDiscarded{claim.jobID, kDiscardReason});
            return;
        }
        if (aggregate) events_.push(Event::ResourceStats{key, *aggregate});
        if (auto it = shardRTTAccumulator_.find(key); it != shardRTTAccumulator_.end())
            inputs.rtt = it->second;
        if (auto it = shardCacheObservation_.find(key); it != shardCacheObservation_.end())
            inputs.cache = it->second;
        submitStart = deps_.now();
        if (auto it = shardStageAccumulator_.find(key); it != shardStageAccumulator_.end())
            inputs.stages = it->second;
        inputs.lastSubmitRttMs = submitRTTState_.lastSubmitRttMs;
        inputs.strategy = lastStrategySuggestion_;
    }

    auto failSubmission = [&](const std::exception& error) {
        emitStageTiming(key, Stage::submit, secondsBetween(submitStart, deps_.now()));
        if (beginTerminalReport(key, claim.jobID)) {
            reportFailure(claim.jobID, claim.shardID,
                          {"handler_error", describeStatic(error), isRetryableHandlerError(error)});
        }
    };

    const TranscriptResult* transcript = result->output.transcript();
    if (!transcript) {
        failSubmission(
            ModelError(ModelError::InvalidInput{"non-transcript output not supported in Phase 1"}));
        return;
    }
    SubmitResultBody body;
    body.transcript = transcript->text;
    body.language = transcript->language.value_or("en");
    body.model = handler->modelIdentifier().model;
    body.backend = result->backendUsed;
    if (claim.startSeconds && claim.endSeconds)
        body.durationSeconds = *claim.endSeconds - *claim.startSeconds;
    body.wordCount = countWords(transcript->text);
    if (aggregate) {
        inputs.wallSeconds = wall;
        inputs.aggregate = *aggregate;
        inputs.startSeconds = claim.startSeconds;
        inputs.endSeconds = claim.endSeconds;
        inputs.meta = meta;
        inputs.segmentCount = transcript->segments.size();
        body.performance = buildPerformanceBody(inputs);
    }

    if (!beginTerminalReport(key, claim.jobID)) return;
    Date callStart = deps_.now();
    try {
        // Not tied to the task's cancellation: once begun, the one terminal report must arrive.
        deps_.http->submitResult(result->jobID, result->shardID, body, {});
    } catch (const std::exception& error) {
        emitStageTiming(key, Stage::submit, secondsBetween(submitStart, deps_.now()));
        reportFailure(claim.jobID, claim.shardID,
                      {"handler_error", describeStatic(error), isRetryableHandlerError(error)});
        return;
    }
    std::lock_guard lock(mutex_);
    submitRTTState_.lastSubmitRttMs = secondsBetween(callStart, deps_.now()) * 1000.0;
    emitStageTimingLocked(key, Stage::submit, secondsBetween(submitStart, deps_.now()));
    events_.push(Event::ResultSubmitted{claim.jobID});
}

WorkerController::SwapResult WorkerController::swapHandlerIfNeeded(const ModelIdentifier& target,
                                                                   const std::string& key,
                                                                   std::exception_ptr& error,
                                                                   std::stop_token stop) {
    std::lock_guard swapping(swapMutex_);
    std::optional<ModelIdentifier> from;
    if (auto current = deps_.handlerLookup ? deps_.handlerLookup(target) : nullptr) {
        from = current->modelIdentifier();
        if (*from == target) return SwapResult::notNeeded;
    }
    if (!deps_.handlerLoader) return SwapResult::noLoader;
    Date started = deps_.now();
    try {
        deps_.handlerLoader(target, stop);
    } catch (...) {
        error = std::current_exception();
        return SwapResult::failed;
    }
    double seconds = secondsBetween(started, deps_.now());
    {
        std::lock_guard lock(mutex_);
        events_.push(Event::ModelSwap{key, from, target, seconds});
        events_.push(Event::StageTiming{key, Stage::modelSwap, seconds});
    }
    log::get("WorkerController")
        ->info("handler swapped from={} to={} in {:f}s", from ? from->model : "none", target.model,
               seconds);
    return SwapResult::swapped;
}

void WorkerController::reportFailure(const std::string& jobID,
                                     const std::optional<std::string>& shardID,
                                     const FailReason& reason) {
    try {
        deps_.http->submitFail(jobID, shardID, reason, {});
    } catch (const std::exception& error) {
        std::lock_guard lock(mutex_);
        setErrorLocked(describeStatic(error));
        return;
    }
    std::lock_guard lock(mutex_);
    events_.push(Event::FailSubmitted{jobID, reason.code});
}

TaskHandle WorkerController::makeHeartbeatTask(const std::string& jobID,
                                               const std::optional<std::string>& shardID) {
    return Task::start([weak = weak_from_this(), http = deps_.http, sleeper = deps_.sleepProvider,
                        interval = deps_.config.heartbeatInterval, now = deps_.now, jobID,
                        shardID](std::stop_token stop) {
        while (!stop.stop_requested()) {
            sleeper->sleep(interval, stop);
            if (stop.stop_requested()) return;
            try {
                http->heartbeat(jobID, shardID, stop);
            } catch (const WorkerHTTPError& error) {
                if (error.isCancellation() && stop.stop_requested()) return;
                if (auto self = weak.lock()) {
                    std::lock_guard lock(self->mutex_);
                    self->setErrorLocked(describeStatic(error));
                }
                continue;
            } catch (const std::exception& error) {
                if (auto self = weak.lock()) {
                    std::lock_guard lock(self->mutex_);
                    self->setErrorLocked(describeStatic(error));
                }
                continue;
            }
            if (auto self = weak.lock()) {
                std::lock_guard lock(self->mutex_);
                Date at = now();
                self->lastHeartbeatAt_ = at;
                self->events_.push(Event::Heartbeat{jobID, at});
            }
        }
    });
}

void WorkerController::emitStageTiming(const std::string& key, Stage stage, double seconds) {
    std::lock_guard lock(mutex_);
    emitStageTimingLocked(key, stage, seconds);
}

void WorkerController::emitStageTimingLocked(const std::string& key, Stage stage, double seconds) {
    log::get("WorkerController")
        ->info("stage_timing shard={} stage={} seconds={:f}", key, rawValue(stage), seconds);
    shardStageAccumulator_[key].add(stage, seconds);
    events_.push(Event::StageTiming{key, stage, seconds});
}

}  // namespace corvane
