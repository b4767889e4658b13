#pragma once
// The words every status surface shows — tray icon, tooltip, first menu line, headless log and
// `corvane status` — and the rules that pick them from a gate reason, the runtime-state file's
// eligibility record or a bare status.

#include <array>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "CorvaneApp/eligibility/RuntimeState.h"

namespace corvane {

enum class WorkerStatus {
    notEnrolled,
    earning,
    idle,
    paused,
    scheduled,
    throttled,
    offline,
    updating
};

inline constexpr std::array allWorkerStatuses{WorkerStatus::notEnrolled, WorkerStatus::earning,
                                              WorkerStatus::idle,        WorkerStatus::paused,
                                              WorkerStatus::scheduled,   WorkerStatus::throttled,
                                              WorkerStatus::offline,     WorkerStatus::updating};

std::string_view rawValue(WorkerStatus status);
std::optional<WorkerStatus> workerStatusFromRaw(std::string_view raw);

// The palette entry a status glyph is drawn in; the toolkit layer owns the colour values.
enum class CorvaneColor { bone400, phosphor500, signalInfo, signalWarn, signalError, plum500 };
CorvaneColor glyphColor(WorkerStatus status);

// Trims white space and line breaks; nothing for an empty result.
std::optional<std::string> corvaneTrimmed(const std::optional<std::string>& text);
std::optional<std::string> corvaneTrimmed(std::string_view text);

struct WorkerStatusPresentation {
    WorkerStatus status = WorkerStatus::idle;
    std::string label;
    std::string sub;
    std::string tooltip;

    bool operator==(const WorkerStatusPresentation&) const = default;

    static WorkerStatusPresentation defaultFor(WorkerStatus status);
};

// Remembers which unknown eligibility reasons were reported, so each leaves one warning per
// process however often the state file repeats it. Safe from any thread.
class UnknownEligibilityReasonReporter {
  public:
    using Warn = std::function<void(const std::string& line)>;
    // `warn` receives "Unknown eligibility reason from daemon: <reason>"; by default a warning in
    // the application log.
    explicit UnknownEligibilityReasonReporter(Warn warn = {});
    void reportIfNeeded(const std::string& reason);

  private:
    Warn warn_;
    std::mutex mutex_;
    std::set<std::string> reportedReasons_;  // guarded by mutex_
};

// From a gate reason ("schedule off", "on battery", ...); nothing for an absent or blank reason.
std::optional<WorkerStatusPresentation> presentationForGateReason(
    const std::optional<std::string>& reason);
// From the runtime-state file's eligibility record; unknown reasons go to `reporter`.
WorkerStatusPresentation presentationFor(const EligibilityState& state,
                                         UnknownEligibilityReasonReporter& reporter);
// A short line for places with little room; nothing when there is nothing to add.
std::optional<std::string> inlineExplanation(WorkerStatus status, std::string_view label,
                                             const std::optional<std::string>& sub);

}  // namespace corvane
