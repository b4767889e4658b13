#pragma once
// Yields the machine to the user's own demanding work: when the frontmost application has used
// at least half the machine's CPU or RAM for ten samples 30 seconds apart, it holds a pause that
// names the application and its load, until the load falls under a quarter or the front changes.

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class HeavyAppDetector {
  public:
    struct AppIdentity {
        int processID = 0;
        std::optional<std::string> bundleIdentifier;  // on Linux: the process name
        bool operator==(const AppIdentity&) const = default;
    };

    struct WindowSample {
        double cpuPercent = 0;
        double memoryPercent = 0;
    };

    enum class TriggerStrategy { sustainedEverySample, averageWindow };

    struct ForegroundAppSample {
        int processID = 0;
        std::optional<std::string> bundleIdentifier;
        std::string localizedName;
        double cpuPercent = 0;     // of the whole machine, all cores
        double memoryPercent = 0;  // of physical memory
        TriggerStrategy strategy = TriggerStrategy::sustainedEverySample;
    };

    class Sampling {
      public:
        virtual ~Sampling() = default;
        // The frontmost application and its load; absent when there is none or it can't be read.
        virtual std::optional<ForegroundAppSample> sampleForegroundApp() = 0;
    };
    class SystemSampler;

    static constexpr double sampleInterval = 30.0;
    static constexpr std::size_t windowSize = 10;
    static constexpr double triggerThreshold = 50.0;
    static constexpr double releaseThreshold = 25.0;

    HeavyAppDetector(std::shared_ptr<EligibilityGate> eligibilityGate, Executor& mainSequence,
                     std::function<bool()> pauseOnHeavyApp, std::shared_ptr<Sampling> sampler,
                     std::function<void(const std::optional<std::string>&)> onStatusChange);
    HeavyAppDetector(const HeavyAppDetector&) = delete;
    HeavyAppDetector& operator=(const HeavyAppDetector&) = delete;

    // Samples every 30 seconds, and once at once. A second call does nothing.
    void start();
    // Ends sampling, forgets the tracked application and releases a hold.
    void stop();
    // Called when settings change: switching the feature off releases at once.
    void syncConfiguration();
    void evaluate(const std::optional<ForegroundAppSample>& sample);
    void releasePause();

    static bool shouldPause(const std::deque<WindowSample>& window, TriggerStrategy strategy);
    static std::string pauseDescription(const ForegroundAppSample& sample);
    // Applications whose load comes in bursts (builds) are judged by the window's mean. On Linux
    // the IDEs that stand in that place: "qtcreator", "gnome-builder", "clion".
    static TriggerStrategy strategyFor(const std::optional<std::string>& bundleIdentifier);

    bool isPaused() const { return pauseHandle_ != nullptr; }
    const std::optional<AppIdentity>& trackedApp() const { return trackedApp_; }
    const std::deque<WindowSample>& window() const { return window_; }
    const std::optional<std::string>& currentPauseDescription() const {
        return currentPauseDescription_;
    }

  private:
    void forgetTrackedApp();
    void tell(const std::optional<std::string>& description);

    std::shared_ptr<EligibilityGate> gate_;
    Executor& mainSequence_;
    std::function<bool()> pauseOnHeavyApp_;
    std::shared_ptr<Sampling> sampler_;
    std::function<void(const std::optional<std::string>&)> onStatusChange_;
    TimerHandle timer_;
    std::optional<AppIdentity> trackedApp_;
    std::deque<WindowSample> window_;
    std::shared_ptr<PauseHandle> pauseHandle_;
    std::optional<std::string> currentPauseDescription_;
};

}  // namespace corvane
