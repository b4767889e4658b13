#pragma once
// Which source decides the status at a moment, in a fixed order: enrolment, pauses, the model
// download, the worker itself, a running shard, the gate, then the runtime-state file. A short
// grace after the last busy moment keeps the status from flickering to idle between shards.
// Also the small status file a running instance keeps for `corvane status`.

#include <filesystem>
#include <memory>
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

// Where the app model's status words come from. A real session derives them from its sources
// (WorkerStatusTracker); the sample session holds words of its own.
class StatusSource {
  public:
    virtual ~StatusSource() = default;
    // The words for these inputs now; absent keeps the words on show.
    virtual std::optional<WorkerStatusPresentation> refresh(const WorkerStatusInputs& inputs,
                                                            Date now) = 0;
    // The owner took their pause.
    virtual void ownerPaused() = 0;
    // The words just after the owner lifted their pause; `inputs.paused` says whether another
    // pause still holds.
    virtual WorkerStatusPresentation ownerResumed(const WorkerStatusInputs& inputs) = 0;
    // A new session (sign-out, sign-in) starts from nothing.
    virtual void reset() = 0;
};

class WorkerStatusTracker final : public StatusSource {
  public:
    static constexpr double graceSeconds = 15.0;

    explicit WorkerStatusTracker(std::shared_ptr<UnknownEligibilityReasonReporter> reporter)
        : reporter_(std::move(reporter)) {}
    std::optional<WorkerStatusPresentation> refresh(const WorkerStatusInputs& inputs,
                                                    Date now) override {
        return presentation(inputs, now);
    }
    WorkerStatusPresentation presentation(const WorkerStatusInputs& inputs, Date now);
    void ownerPaused() override { awaitingResume_ = false; }
    // Just after the owner resumes a running worker the state file may still say "paused" for a
    // few seconds; that stale word shows as idle until a fresher source speaks.
    WorkerStatusPresentation ownerResumed(const WorkerStatusInputs& inputs) override;
    void reset() override {
        awaitingResume_ = false;
        lastObservedBusyAt_.reset();
    }

    bool awaitingFreshEligibilityAfterManualResume() const { return awaitingResume_; }
    const std::optional<Date>& lastObservedBusyAt() const { return lastObservedBusyAt_; }

  private:
    bool withinGrace(Date now) const;

    std::shared_ptr<UnknownEligibilityReasonReporter> reporter_;
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
