#pragma once
// Which source decides the status at a moment, in a fixed order: enrolment, pauses, the model
// download, the worker itself, a running shard, the gate, then the runtime-state file. A short
// grace after the last busy moment keeps the status from flickering to idle between shards.
// Also the small status file a running instance keeps for `corvane status`.

#include <filesystem>
#include <optional>
#include <string>

#include "CorvaneApp/app/WorkerStatus.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

struct WorkerStatusInputs {
    bool enrolled = false;
    bool paused = false;            // paused by the owner, or a temporary pause entry of the gate
    bool modelDownloading = false;  // the weights are being fetched or loaded and have not failed
    bool workerRunning = false;
    bool busy = false;  // a shard is active, or the coordinator reports the worker busy
    bool gateEligible = true;
    std::optional<std::string> gateReason;
    std::optional<EligibilityState> eligibility;  // from the runtime-state file
};

class WorkerStatusTracker {
  public:
    static constexpr double graceSeconds = 15.0;

    explicit WorkerStatusTracker(UnknownEligibilityReasonReporter& reporter)
        : reporter_(reporter) {}
    WorkerStatusPresentation refresh(const WorkerStatusInputs& inputs, Date now);

    // Set just after the owner resumes a running worker: the state file may still say "paused"
    // for a few seconds, and that stale word shows as idle until a fresher source speaks.
    void setAwaitingFreshEligibilityAfterManualResume(bool awaiting) { awaitingResume_ = awaiting; }
    bool awaitingFreshEligibilityAfterManualResume() const { return awaitingResume_; }
    const std::optional<Date>& lastObservedBusyAt() const { return lastObservedBusyAt_; }
    void reset() {
        awaitingResume_ = false;
        lastObservedBusyAt_.reset();
    }

  private:
    bool withinGrace(Date now) const;

    UnknownEligibilityReasonReporter& reporter_;
    std::optional<Date> lastObservedBusyAt_;
    bool awaitingResume_ = false;
};

// What `corvane status` prints: the running instance's words, its job and its last error.
struct WorkerStatusRecord {
    WorkerStatusPresentation presentation;
    std::optional<std::string> jobID;
    std::optional<std::string> shardID;
    std::optional<std::string> lastError;
    std::string updatedAt;  // ISO-8601
    long pid = 0;

    bool operator==(const WorkerStatusRecord&) const = default;
};

std::filesystem::path workerStatusFilePath();  // $XDG_STATE_HOME/Corvane/status.json
// Owner-only, replaced whole so a reader never sees half a record. Throws on a write failure.
void writeWorkerStatusFile(const std::filesystem::path& path, const WorkerStatusRecord& record);
// Nothing when the file is missing; throws std::runtime_error when it is unreadable or malformed.
std::optional<WorkerStatusRecord> readWorkerStatusFile(const std::filesystem::path& path);
// The lines `corvane status` prints.
std::string describe(const WorkerStatusRecord& record);

}  // namespace corvane
