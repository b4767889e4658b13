#pragma once
// Polls the runtime-state file on the main executor and keeps the last record that decoded, so a
// half-written or foreign file never loses a good value: only its lastReadAt grows old. A missing
// file resets to the empty record. Nothing is reported or logged: the file is advisory.
//
// Used only on the executor's sequence.

#include <filesystem>
#include <functional>
#include <optional>

#include "CorvaneApp/eligibility/RuntimeState.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

class RuntimeStateReader {
  public:
    // `statePath` is runtimeStatePath(home) in production.
    RuntimeStateReader(Executor& executor, std::filesystem::path statePath,
                       NowFunction now = systemNow);
    RuntimeStateReader(const RuntimeStateReader&) = delete;
    RuntimeStateReader& operator=(const RuntimeStateReader&) = delete;

    // Reads at once, then every `interval` seconds; a second call replaces the running timer.
    void startPolling(double interval);
    void readState();

    // The last good record; the empty record before the first one and while there is no file.
    const RuntimeState& state() const { return state_ ? *state_ : empty_; }
    // How fresh state() is: the writer's "updated_at" when it parses, else the file's
    // modification time, else the moment of reading. Absent when there is no file.
    std::optional<Date> lastReadAt() const { return lastReadAt_; }
    const std::filesystem::path& statePath() const { return statePath_; }

    // Called after a read that changed state() or lastReadAt().
    [[nodiscard]] Subscription observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

  private:
    Date resolvedLastReadAt(const RuntimeState& state) const;
    void update(std::optional<RuntimeState> state, std::optional<Date> lastReadAt);

    Executor& executor_;
    const std::filesystem::path statePath_;
    const NowFunction now_;
    const RuntimeState empty_{};
    std::optional<RuntimeState> state_;
    std::optional<Date> lastReadAt_;
    ObserverList<> observers_;
    TimerHandle timer_;  // last member: cancelled first, before anything its work touches goes
};

}  // namespace corvane
