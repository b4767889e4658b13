#include "CorvaneApp/demo/DemoShardProgress.h"

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace corvane {

std::optional<DemoShardProgress> liveShardProgress(double sessionElapsed) {
    // Under a second, or a clock that ran backwards or broke, reads as the session's start.
    std::int64_t s = std::isfinite(sessionElapsed) && sessionElapsed >= 1
                         ? static_cast<std::int64_t>(sessionElapsed)
                         : 0;
    std::int64_t inCycle = s % DemoShardProgress::cycleSeconds;
    if (inCycle >= DemoShardProgress::runningSeconds) return std::nullopt;
    int k = static_cast<int>((s / DemoShardProgress::cycleSeconds) % 3);
    std::array<char, 32> job{};
    std::array<char, 32> shard{};
    std::snprintf(job.data(), job.size(), "job_demo_live_%03d", 900 + k);
    std::snprintf(shard.data(), shard.size(), "shard_demo_live_%03d", k + 1);
    return DemoShardProgress{job.data(), shard.data(), static_cast<double>(inCycle), 310};
}

}  // namespace corvane
