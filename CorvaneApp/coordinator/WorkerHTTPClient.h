#pragma once
// The worker's transport to the coordinator: poll, heartbeat, result and failure report over
// HTTP with JSON bodies, authorised by the worker's bearer token. Stateless; retries nothing.

#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

#include "CorvaneApp/coordinator/Capabilities.h"
#include "CorvaneApp/coordinator/ShardClaim.h"
#include "CorvaneApp/coordinator/SubmitRecords.h"
#include "CorvaneApp/coordinator/WorkerHTTPError.h"
#include "CorvaneApp/platform/Http.h"

namespace corvane {

// Every operation throws WorkerHTTPError.
class WorkerHTTPClientProtocol {
  public:
    virtual ~WorkerHTTPClientProtocol() = default;
    virtual std::optional<ShardClaim> poll(const WorkerCapabilities& capabilities,
                                           std::stop_token stop) = 0;
    // Default for clients that offer only poll: zero or one item, no suggestions.
    virtual PollBatchOutcome pollBatch(const WorkerCapabilities& capabilities,
                                       std::int64_t maxShards, std::stop_token stop);
    virtual void heartbeat(const std::string& jobId, const std::optional<std::string>& shardId,
                           std::stop_token stop) = 0;
    virtual void submitResult(const std::string& jobId, const std::optional<std::string>& shardId,
                              const SubmitResultBody& body, std::stop_token stop) = 0;
    virtual void submitFail(const std::string& jobId, const std::optional<std::string>& shardId,
                            const FailReason& reason, std::stop_token stop) = 0;
};

class WorkerHTTPClient final : public WorkerHTTPClientProtocol {
  public:
    // Without a session, one with a 30 s request and 120 s resource time-out is made.
    WorkerHTTPClient(std::string baseURL, std::string token, std::string workerID,
                     std::optional<std::string> workerVersion,
                     std::shared_ptr<const http::Session> session = nullptr);

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

    // "/api/v1/jobs/<job>" + suffix, with "?shard_id=<shard>" when a shard is given.
    static std::string failPath(const std::string& jobId, const std::optional<std::string>& shardId,
                                const std::string& suffix);

    // What a poll's answer says: its claims and header suggestions, or the WorkerHTTPError that
    // its status or body calls for. Pure: the answer's bytes are all it reads.
    static PollBatchOutcome readPollBatchResponse(const http::Response& response,
                                                  std::int64_t maxShards, const std::string& path);
    static std::optional<ShardClaim> readPollResponse(const http::Response& response,
                                                      const std::string& path);

  private:
    http::Request makeRequest(const std::string& path, const std::string& method) const;
    http::Response performRequest(const http::Request& request, const std::string& path,
                                  std::stop_token stop) const;
    // The per-job POSTs share everything but their suffix and body.
    void postJobOperation(const std::string& path, std::string body, std::stop_token stop) const;
    http::Response sendPoll(const std::string& path, const WorkerCapabilities& capabilities,
                            std::stop_token stop) const;

    std::string baseURL_;
    std::string token_;
    std::string workerID_;
    std::optional<std::string> workerVersion_;
    std::shared_ptr<const http::Session> session_;
};

}  // namespace corvane
