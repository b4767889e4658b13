#pragma once
// The demo worker's current shard: a fixed rhythm that makes the sample session look busy.

#include <optional>
#include <string>

namespace corvane {

struct DemoShardProgress {
    static constexpr int cycleSeconds = 36;
    static constexpr int runningSeconds = 24;  // then 12 seconds with no shard

    std::string jobID;
    std::string shardID;
    double elapsedSeconds = 0;
    double expectedDurationSeconds = 310;

    friend bool operator==(const DemoShardProgress&, const DemoShardProgress&) = default;
};

// Absent in the quiet part of each cycle.
std::optional<DemoShardProgress> liveShardProgress(double sessionElapsed);

}  // namespace corvane
