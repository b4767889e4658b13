#pragma once
// A running instance announces itself, headless or in the tray: the status file that `corvane
// status` prints and that `corvane signout` checks before it removes credentials is kept in step
// with the session's status, and each change of the words is logged once. The file goes with a
// clean stop, unless another instance has written it since.

#include <filesystem>
#include <optional>

#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class WorkerStatusPublisher {
  public:
    static constexpr double intervalSeconds = 2.0;

    // Publishes at once, then every two seconds on `mainSequence`.
    WorkerStatusPublisher(Session& session, Executor& mainSequence, std::filesystem::path file);
    ~WorkerStatusPublisher();
    WorkerStatusPublisher(const WorkerStatusPublisher&) = delete;
    WorkerStatusPublisher& operator=(const WorkerStatusPublisher&) = delete;

    void tick();

  private:
    Session& session_;
    std::filesystem::path file_;
    std::optional<WorkerStatusRecord> last_;
    TimerHandle timer_;
};

}  // namespace corvane
