#pragma once
// The coordinator's ledger of shards: which wait, which worker holds which, which have ended.
// Not thread-safe: its owner guards it.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "tools/dev-coordinator/DevCoordinatorRecords.h"

namespace corvane::dev {

class ShardBook {
  public:
    enum class Standing {
        held,          // the worker holds the shard
        notHeld,       // never claimed by this worker
        alreadyEnded,  // this worker held it and has reported its end
    };

    void add(ShardSpec spec);
    // Hands up to `limit` waiting shards, oldest first, to `workerID`.
    std::vector<ShardSpec> claim(size_t limit, const std::string& workerID);
    // What a report of `workerID` about this job and shard refers to. A shard id must match
    // exactly: a report without one only names a claim that had none.
    Standing standing(const std::string& jobID, const std::optional<std::string>& shardID,
                      const std::string& workerID) const;
    // Ends the held shard; returns its standing before the call.
    Standing end(const std::string& jobID, const std::optional<std::string>& shardID,
                 const std::string& workerID);
    size_t pendingCount() const;

  private:
    enum class State { pending, held, ended };
    struct Entry {
        ShardSpec spec;
        State state = State::pending;
        std::string workerID;
    };
    // Index of the first entry of this worker, job, shard and state.
    std::optional<size_t> find(const std::string& jobID, const std::optional<std::string>& shardID,
                               const std::string& workerID, State state) const;

    std::vector<Entry> entries_;
};

}  // namespace corvane::dev
