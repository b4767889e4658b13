#include "CorvaneApp/app/HeadlessRunner.h"

#include <signal.h>

#include <cstdlib>
#include <ctime>
#include <optional>
#include <ostream>
#include <thread>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/app/WorkerStatusPublisher.h"
#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/platform/LoopExecutor.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane {
namespace {

sigset_t terminationSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGINT);
    return set;
}

// A positive number of seconds from the environment variable `name`; absent when unset or not one.
std::optional<double> positiveSeconds(const char* name) {
    const char* text = std::getenv(name);
    if (!text) return std::nullopt;
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (end == text || *end != '\0' || !(seconds > 0)) return std::nullopt;
    return seconds;
}

}  // namespace

void blockTerminationSignals() {
    sigset_t set = terminationSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::jthread quitOnTerminationSignal(LoopExecutor& loop) {
    return std::jthread([&loop](std::stop_token stop) {
        sigset_t set = terminationSignals();
        timespec tick{0, 200'000'000};
        while (!stop.stop_requested()) {
            int signal = sigtimedwait(&set, nullptr, &tick);
            if (signal == SIGTERM || signal == SIGINT) {
                log::get("corvane")->info("received {}, stopping",
                                          signal == SIGTERM ? "SIGTERM" : "SIGINT");
                loop.quit();
                return;
            }
        }
    });
}

int runHeadless(const std::string& version, std::ostream& out, std::ostream& err) {
    auto logger = log::get("corvane");
    try {
        log::addFileSink((paths::logDir() / "corvane-app.log").string());
    } catch (const std::exception& error) {
        err << "corvane: cannot open the log file (" << error.what()
            << "); logging to stderr only\n";
    }
    LoopExecutor loop;
    auto environment = AppEnvironment::system(version);
    // Nobody is at a server to press "retry": a failed model download is tried again by itself,
    // every five minutes unless CORVANE_MODEL_RETRY_SECONDS says otherwise.
    environment.modelRetrySeconds = positiveSeconds("CORVANE_MODEL_RETRY_SECONDS").value_or(300);
    // How long a paused worker keeps the weights; for trying the release without the wait.
    if (auto seconds = positiveSeconds("CORVANE_MODEL_RELEASE_SECONDS"))
        environment.modelReleaseDelaySeconds = *seconds;
    AppSession session(loop, std::move(environment));
    if (!session.delegate().isWorkerEnrolled()) {
        out << "This computer is not enrolled with a coordinator yet.\n"
               "Enrol it once with:\n"
               "  corvane enroll --coordinator <URL> --token-stdin < token.txt\n"
               "then start the worker again. See: corvane enroll --help\n";
        return 2;
    }
    logger->info("corvane {} starting headless", version);
    session.launch();
    WorkerStatusPublisher status(session, loop, workerStatusFilePath());
    return runUntilTerminated(loop, session);
}

int runUntilTerminated(LoopExecutor& loop, Session& session) {
    auto signalWatcher = quitOnTerminationSignal(loop);
    loop.run();
    session.terminate();
    signalWatcher.request_stop();
    log::get("corvane")->info("corvane stopped");
    return 0;
}

}  // namespace corvane
