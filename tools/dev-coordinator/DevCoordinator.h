#pragma once
// A small coordinator on loopback for local runs and end-to-end tests: it hands out shards,
// serves their audio with Range support, records every request and report, and can be scripted
// to answer late, wrongly or not at all.

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "CorvaneApp/coordinator/AccountRecords.h"
#include "tools/dev-coordinator/DevCoordinatorRecords.h"
#include "tools/dev-coordinator/PathPattern.h"
#include "tools/dev-coordinator/ShardBook.h"

namespace httplib {
class Server;
struct Request;
struct Response;
}  // namespace httplib

namespace corvane::dev {

// Worker endpoints: GET "/api/v1/workers/poll?max_shards=N", POST "/api/v1/jobs/{id}/heartbeat",
// ".../result" and ".../fail" with an optional "?shard_id=", all behind the bearer token; and
// GET "/audio/<file>" without it; and POST "/api/v1/workers/register" without it, which hands
// out the worker token.
//
// Answers: a wrong or missing token gets 401 {"detail": ...}. A poll gets 200 {"items": [...]}
// or 204 when nothing waits. A report about a shard that this worker (by "X-Worker-ID") does not
// hold gets 404 and is not recorded. A result or failure ends the shard; a second one for the
// same shard is recorded as well, so tests see the duplicate, and answered 409. A heartbeat on
// an ended shard gets 404. A result body that is not a JSON object, or a failure body without
// an "error" string, gets 422 and changes nothing. A registration needs a JSON object with a
// "worker_id" string (else 422), the right "X-Enrollment-Token" when `enrollmentToken` is set
// (else 401), and a worker id not registered before (else 403, "already registered"); it is
// answered {"worker_id", "worker_token", "message"}. All its refusals carry {"error": ...}.
class DevCoordinator {
  public:
    struct Options {
        std::string host = "127.0.0.1";
        int port = 0;  // 0 = pick a free port
        std::filesystem::path audioDir{};
        std::string token = "dev-token";
        std::vector<ShardSpec> shards{};
        std::optional<int> suggestedMaxShards{};       // sent as X-Suggested-Max-Shards on polls
        std::optional<std::string> enrollmentToken{};  // required of registrations when set
    };

    // Listens before returning; throws std::runtime_error when the address cannot be bound.
    explicit DevCoordinator(Options options);
    // Stops and joins, promptly even with delayed replies pending (they close unanswered).
    ~DevCoordinator();
    DevCoordinator(const DevCoordinator&) = delete;
    DevCoordinator& operator=(const DevCoordinator&) = delete;

    int port() const { return port_; }
    std::string baseURL() const;  // "http://127.0.0.1:<port>"

    void addShard(ShardSpec spec);
    // One-shot override: the next request whose path starts with `pathPrefix` gets this reply
    // instead of normal handling (FIFO per prefix; the longest matching prefix wins).
    void enqueueReply(std::string pathPrefix, ScriptedReply reply);
    void setAudioFaults(AudioFaults faults);

    std::vector<RecordedRequest> requests() const;
    std::vector<ResultRecord> results() const;
    std::vector<FailureRecord> failures() const;
    std::vector<HeartbeatRecord> heartbeats() const;
    std::vector<RegistrationRecord> registrations() const;

    // Payout preferences (PUT "/api/v1/workers/me/payout-prefs"): the accepted pair, a method
    // refused with 400 and "required_setup" until it is set up, and a payout cycle in progress
    // that refuses every change with 409. See DevCoordinatorAccount.cpp.
    struct PayoutPrefs {
        std::string method = "ach";
        std::string schedule = "weekly";
        std::string updatedAt = "2026-01-01T00:00:00Z";
    };
    PayoutPrefs payoutPrefs() const;
    void requirePayoutSetup(std::string method, std::string requiredSetup);
    void setPayoutCycleInProgress(bool inProgress);

    // Payout methods ("/api/v1/workers/me/payout-methods": GET lists, POST adds, PUT
    // ".../{id}/primary" and DELETE ".../{id}"), kept in memory; and the payout history and
    // balances the dashboard reports. See DevCoordinatorAccount.cpp.
    std::vector<WorkerPayoutMethod> payoutMethods() const;
    void addPayout(WorkerDashboard::PayoutDisbursement payout);
    void setBalances(double held, double available);

    // Blocks until the predicate holds or `limit` passes; returns whether it held. The
    // predicate runs without the coordinator's lock, so it may call the accessors above.
    bool waitUntil(std::function<bool(const DevCoordinator&)> predicate,
                   std::chrono::milliseconds limit);
    size_t pendingShardCount() const;

  private:
    // The handler gets the text of the path's placeholder.
    using Handler = void (DevCoordinator::*)(const httplib::Request&, httplib::Response&,
                                             const std::string&);
    // One endpoint. New endpoints (registration, account) are one more row and one handler.
    struct Route {
        std::string method;
        PathPattern pattern;  // matched against the decoded path
        bool needsToken;
        Handler handler;
    };

    void serve(const httplib::Request& request, httplib::Response& response);
    void record(const httplib::Request& request);
    std::optional<ScriptedReply> takeScriptedReply(const std::string& rawPath);
    // Returns what the log says became of the request.
    std::string play(const ScriptedReply& reply, const httplib::Request& request,
                     httplib::Response& response);
    bool authorised(const httplib::Request& request) const;
    // Waits unless the coordinator stops first; returns false when it stopped.
    bool waitUnlessStopping(double seconds);
    void noteChange();  // with mutex_ held

    void handlePoll(const httplib::Request& request, httplib::Response& response,
                    const std::string&);
    void handleHeartbeat(const httplib::Request& request, httplib::Response& response,
                         const std::string& jobID);
    void handleResult(const httplib::Request& request, httplib::Response& response,
                      const std::string& jobID);
    void handleFail(const httplib::Request& request, httplib::Response& response,
                    const std::string& jobID);
    enum class ReportKind { heartbeat, result, fail };
    void handleJobReport(const httplib::Request& request, httplib::Response& response,
                         const std::string& jobID, ReportKind kind);
    void handleAudio(const httplib::Request& request, httplib::Response& response,
                     const std::string& fileName);
    void handleRegister(const httplib::Request& request, httplib::Response& response,
                        const std::string&);
    void handlePutPayoutPrefs(const httplib::Request& request, httplib::Response& response,
                              const std::string&);
    void handleDashboard(const httplib::Request& request, httplib::Response& response,
                         const std::string&);
    void handleListPayoutMethods(const httplib::Request& request, httplib::Response& response,
                                 const std::string&);
    void handleAddPayoutMethod(const httplib::Request& request, httplib::Response& response,
                               const std::string&);
    void handleSetPrimaryPayoutMethod(const httplib::Request& request, httplib::Response& response,
                                      const std::string& id);
    void handleRemovePayoutMethod(const httplib::Request& request, httplib::Response& response,
                                  const std::string& id);
    void handleEarningsSummary(const httplib::Request& request, httplib::Response& response,
                               const std::string&);
    void handleNoHistory(const httplib::Request& request, httplib::Response& response,
                         const std::string&);
    void handleNoHourlyEarnings(const httplib::Request& request, httplib::Response& response,
                                const std::string&);

    const std::string host_;
    const std::filesystem::path audioDir_;
    const std::string token_;
    const std::optional<int> suggestedMaxShards_;
    const std::optional<std::string> enrollmentToken_;
    const std::vector<Route> routes_;

    mutable std::mutex mutex_;
    std::condition_variable signal_;  // a record was added, or the coordinator is stopping
    bool stopping_ = false;           // guarded by mutex_
    unsigned long changes_ = 0;       // guarded by mutex_
    ShardBook book_;                  // guarded by mutex_
    std::map<std::string, std::deque<ScriptedReply>> scripted_;       // guarded by mutex_
    AudioFaults audioFaults_;                                         // guarded by mutex_
    std::vector<RecordedRequest> requests_;                           // guarded by mutex_
    std::vector<ResultRecord> results_;                               // guarded by mutex_
    std::vector<FailureRecord> failures_;                             // guarded by mutex_
    std::vector<HeartbeatRecord> heartbeats_;                         // guarded by mutex_
    std::vector<RegistrationRecord> registrations_;                   // guarded by mutex_
    PayoutPrefs payoutPrefs_;                                         // guarded by mutex_
    std::map<std::string, std::string> payoutSetupRequired_;          // guarded by mutex_
    bool payoutCycleInProgress_ = false;                              // guarded by mutex_
    std::vector<WorkerPayoutMethod> payoutMethods_;                   // guarded by mutex_
    int nextPayoutMethodNumber_ = 1;                                  // guarded by mutex_
    std::vector<WorkerDashboard::PayoutDisbursement> payoutHistory_;  // guarded by mutex_
    WorkerDashboard::EarningsUSD balances_{};                         // guarded by mutex_

    std::unique_ptr<httplib::Server> server_;
    int port_ = 0;
    std::thread listener_;
};

}  // namespace corvane::dev
