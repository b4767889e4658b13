#pragma once
// The worker: polls the coordinator, claims shards, runs each on the current model handler with
// heartbeats, and ends every claim in exactly one result, failure report or discard. It never
// throws to its owner; everything it has to say leaves through events() and snapshot().

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/coordinator/JobRecords.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/coordinator/WorkerHTTPClient.h"
#include "CorvaneApp/eligibility/MemoryGate.h"
#include "CorvaneApp/eligibility/ResourceAggregate.h"
#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/EventStream.h"
#include "CorvaneApp/platform/SleepProvider.h"
#include "CorvaneApp/platform/Task.h"
#include "CorvaneApp/worker/ShardPerformance.h"
#include "CorvaneApp/worker/WorkerControllerEvent.h"

namespace corvane {

struct WorkerControllerConfig {
    double pollInterval = 30.0;
    double heartbeatInterval = 30.0;
    double eligibilityRecheckInterval = 5.0;
    std::int64_t maxConcurrentJobs = 1;
    std::optional<std::int64_t> maxShardsInFlightOverride;
};

// The text of any error the worker shows or reports.
std::string describeStatic(const std::exception& error);
// Whether a shard that failed with `error` may be handed out again.
bool isRetryableHandlerError(const std::exception& error);

class WorkerController : public std::enable_shared_from_this<WorkerController> {
  public:
    using HandlerLookup = std::function<std::shared_ptr<ModelHandler>(const ModelIdentifier&)>;
    using Materialiser = std::function<ClaimedJob(const ShardClaim&, std::stop_token)>;
    using ResourceAggregator = std::function<std::optional<ResourceAggregate>(Date since)>;
    using PerformanceMetadataProvider = std::function<WorkerPerformanceMetadata()>;
    using HandlerLoader = std::function<void(const ModelIdentifier&, std::stop_token)>;

    // Everything the worker reaches, given once. Functions must be safe to call from any thread.
    struct Dependencies {
        std::shared_ptr<WorkerHTTPClientProtocol> http;
        std::shared_ptr<CapabilitiesProvider> capabilities;
        HandlerLookup handlerLookup;
        Materialiser materialiser;
        std::function<bool()> isEligible;
        std::shared_ptr<MemoryGate> memoryGate;  // optional
        std::shared_ptr<StrategySuggestionHolder> strategyHolder;
        WorkerControllerConfig config;
        std::shared_ptr<SleepProvider> sleepProvider;
        NowFunction now = systemNow;
        std::optional<std::string> buildIdentity;
        ResourceAggregator resourceAggregator;                    // optional
        PerformanceMetadataProvider performanceMetadataProvider;  // optional: empty metadata
        HandlerLoader handlerLoader;                              // optional
    };

    static std::shared_ptr<WorkerController> create(Dependencies dependencies);
    explicit WorkerController(
        Dependencies dependencies);  // use create(): tasks hold the worker weakly
    ~WorkerController();
    WorkerController(const WorkerController&) = delete;
    WorkerController& operator=(const WorkerController&) = delete;

    // Read by one consumer, the bridge.
    EventStream<WorkerControllerEvent>& events() { return events_; }

    void start();
    // Reports every shard in flight as "worker_shutdown", drops queued claims, and returns when the
    // run loop has ended.
    void stop();
    WorkerControllerSnapshot snapshot() const;
    std::size_t inFlightCount() const;
    void recordModelLoaded(bool hit, double durationSeconds);

  private:
    struct InFlightShard {
        std::string jobID;
        std::optional<std::string> shardID;
        Date startedAt;
        std::optional<double> expectedSeconds;
        ModelIdentifier modelIdentifier;
        TaskHandle handlerTask;
        TaskHandle heartbeatTask;
        bool terminalReportStarted = false;  // the handler is already sending its result or failure
    };
    enum class SwapResult { notNeeded, swapped, noLoader, failed };
    struct LoopState {
        bool wasEligible = true;
        bool pauseReported = false;
    };
    // What one turn asks of the loop: end, go on at once, or sleep first.
    struct TurnOutcome {
        bool end = false;
        double sleepSeconds = 0;
    };

    static void runLoop(std::weak_ptr<WorkerController> weak,
                        std::shared_ptr<SleepProvider> sleeper, std::stop_token stop);
    TurnOutcome turn(LoopState& state, std::stop_token stop);
    TurnOutcome handlePollFailure(const std::exception& error);
    void reportClaimsReceivedWhileStopping(const std::vector<ShardClaim>& claims);
    std::int64_t shardLimitLocked() const;

    void startClaimLocked(const ShardClaim& claim, const std::string& key,
                          const ModelIdentifier& model);
    void queuePendingClaimLocked(const ShardClaim& claim, const std::string& key);
    void removeInFlight(const std::string& key);
    void drainPendingClaimsLocked();

    void handleClaim(const ShardClaim& claim, std::stop_token stop);
    SwapResult swapHandlerIfNeeded(const ModelIdentifier& target, const std::string& key,
                                   std::exception_ptr& error, std::stop_token stop);
    // Claims the right to send the shard's one terminal report; false (and a discard event) when
    // stop() has already reported the job.
    bool beginTerminalReport(const std::string& key, const std::string& jobID);
    void reportFailure(const std::string& jobID, const std::optional<std::string>& shardID,
                       const FailReason& reason);
    TaskHandle makeHeartbeatTask(const std::string& jobID,
                                 const std::optional<std::string>& shardID);
    void emitStageTiming(const std::string& key, WorkerControllerEvent::Stage stage,
                         double seconds);
    void emitStageTimingLocked(const std::string& key, WorkerControllerEvent::Stage stage,
                               double seconds);
    void setErrorLocked(std::string description);

    const Dependencies deps_;
    EventStream<WorkerControllerEvent> events_;
    // Held across a model load (never with mutex_), so that shards wanting the same model wait
    // for the one load instead of each loading it again.
    std::mutex swapMutex_;

    mutable std::mutex mutex_;
    // Everything below is guarded by mutex_.
    TaskHandle runLoopTask_;
    std::optional<std::string> currentJobID_;
    std::optional<std::string> currentShardID_;
    std::optional<Date> currentShardStartedAt_;
    std::optional<double> currentShardExpectedSeconds_;
    std::map<std::string, ShardStageAccumulator> shardStageAccumulator_;
    std::map<std::string, ShardRTTAccumulator> shardRTTAccumulator_;
    std::map<std::string, ShardCacheObservation> shardCacheObservation_;
    std::optional<ShardCacheObservation> pendingCacheLoadObservation_;
    WorkerSubmitRTTState submitRTTState_;
    std::optional<Date> lastHeartbeatAt_;
    std::optional<std::string> lastErrorDescription_;
    bool isRunning_ = false;
    std::map<std::string, InFlightShard> inFlight_;
    std::map<std::string, ShardClaim> pendingClaims_;
    std::vector<std::string> pendingClaimOrder_;
    std::optional<std::int64_t> lastSuggestedMaxShards_;
    std::optional<CoordinatorStrategySuggestion> lastStrategySuggestion_;
    std::set<std::string> terminallySubmittedJobIDs_;
};

}  // namespace corvane
