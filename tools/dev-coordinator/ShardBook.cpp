#include "tools/dev-coordinator/ShardBook.h"

#include <algorithm>
#include <utility>

namespace corvane::dev {

void ShardBook::add(ShardSpec spec) {
    entries_.push_back({std::move(spec), State::pending, {}});
}

std::vector<ShardSpec> ShardBook::claim(size_t limit, const std::string& workerID) {
    std::vector<ShardSpec> claimed;
    for (Entry& entry : entries_) {
        if (claimed.size() >= limit) break;
        if (entry.state != State::pending) continue;
        entry.state = State::held;
        entry.workerID = workerID;
        claimed.push_back(entry.spec);
    }
    return claimed;
}

std::optional<size_t> ShardBook::find(const std::string& jobID,
                                      const std::optional<std::string>& shardID,
                                      const std::string& workerID, State state) const {
    auto it = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return entry.state == state && entry.workerID == workerID && entry.spec.jobID == jobID &&
               entry.spec.shardID == shardID;
    });
    if (it == entries_.end()) return std::nullopt;
    return static_cast<size_t>(it - entries_.begin());
}

ShardBook::Standing ShardBook::standing(const std::string& jobID,
                                        const std::optional<std::string>& shardID,
                                        const std::string& workerID) const {
    // A shard handed out again after it ended has a held entry next to the ended one; the held
    // one is what a report refers to.
    if (find(jobID, shardID, workerID, State::held)) return Standing::held;
    if (find(jobID, shardID, workerID, State::ended)) return Standing::alreadyEnded;
    return Standing::notHeld;
}

ShardBook::Standing ShardBook::end(const std::string& jobID,
                                   const std::optional<std::string>& shardID,
                                   const std::string& workerID) {
    if (auto index = find(jobID, shardID, workerID, State::held)) {
        entries_[*index].state = State::ended;
        return Standing::held;
    }
    return standing(jobID, shardID, workerID);
}

size_t ShardBook::pendingCount() const {
    return static_cast<size_t>(
        std::count_if(entries_.begin(), entries_.end(),
                      [](const Entry& entry) { return entry.state == State::pending; }));
}

}  // namespace corvane::dev
