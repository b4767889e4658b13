#include "CorvaneApp/demo/DemoHeadless.h"

#include <chrono>
#include <ctime>
#include <thread>

#include "CorvaneApp/app/HeadlessRunner.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/LoopExecutor.h"

namespace corvane {

std::optional<std::string> DemoShardLog::tick(double sessionElapsed) {
    auto now = liveShardProgress(sessionElapsed);
    // Same shard still running (only its elapsed time moved), or still none: nothing to say.
    bool sameShard = now && last_ && now->jobID == last_->jobID && now->shardID == last_->shardID;
    if (started_ && (sameShard || (!now && !last_))) {
        last_ = now;
        return std::nullopt;
    }
    started_ = true;
    last_ = now;
    if (!now) return "demo worker idle between shards";
    return "demo shard " + now->shardID + " of " + now->jobID + " running, expected " +
           std::to_string(static_cast<int>(now->expectedDurationSeconds)) + " s";
}

int runDemoHeadless(const std::string& version) {
    auto logger = log::get("corvane");
    logger->info("corvane {} starting headless with demo data; nothing reaches a coordinator",
                 version);
    LoopExecutor loop;
    DemoShardLog shardLog;
    const auto start = std::chrono::steady_clock::now();
    auto elapsed = [start] {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    DemoSession::Options options;
    options.version = version;
    options.simulateModelDownload = false;
    options.sessionElapsed = elapsed;
    DemoSession session(loop, std::move(options));
    session.launch();
    std::optional<WorkerStatusPresentation> shown;
    auto tick = [&] {
        const auto presentation = session.statusRecord().presentation;
        if (presentation != shown) {
            logger->info("status: {} — {}", presentation.label, presentation.sub);
            shown = presentation;
        }
        if (auto line = shardLog.tick(elapsed())) logger->info("{}", *line);
    };
    tick();
    auto timer = loop.scheduleRepeating(1.0, tick);
    return runUntilTerminated(loop, session);
}

}  // namespace corvane
