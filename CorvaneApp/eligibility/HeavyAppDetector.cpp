#include "CorvaneApp/eligibility/HeavyAppDetector.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numeric>

namespace corvane {

HeavyAppDetector::HeavyAppDetector(
    std::shared_ptr<EligibilityGate> eligibilityGate, Executor& mainSequence,
    std::function<bool()> pauseOnHeavyApp, std::shared_ptr<Sampling> sampler,
    std::function<void(const std::optional<std::string>&)> onStatusChange)
    : gate_(std::move(eligibilityGate)),
      mainSequence_(mainSequence),
      pauseOnHeavyApp_(std::move(pauseOnHeavyApp)),
      sampler_(std::move(sampler)),
      onStatusChange_(std::move(onStatusChange)) {}

void HeavyAppDetector::start() {
    if (timer_.active()) return;
    // The timer is owned here and runs on this sequence, so it never outlives the detector.
    timer_ = mainSequence_.scheduleRepeating(sampleInterval,
                                             [this] { evaluate(sampler_->sampleForegroundApp()); });
    evaluate(sampler_->sampleForegroundApp());
}

void HeavyAppDetector::stop() {
    timer_.cancel();
    forgetTrackedApp();
    releasePause();
}

void HeavyAppDetector::syncConfiguration() {
    if (pauseOnHeavyApp_()) return;
    forgetTrackedApp();
    releasePause();
}

void HeavyAppDetector::evaluate(const std::optional<ForegroundAppSample>& sample) {
    if (!pauseOnHeavyApp_() || !sample) {
        forgetTrackedApp();
        releasePause();
        return;
    }
    AppIdentity identity{sample->processID, sample->bundleIdentifier};
    if (trackedApp_ != identity) {
        trackedApp_ = identity;
        window_.clear();
        if (pauseHandle_) releasePause();
    }
    window_.push_back({sample->cpuPercent, sample->memoryPercent});
    while (window_.size() > windowSize) window_.pop_front();

    if (pauseHandle_) {
        if (sample->cpuPercent < releaseThreshold && sample->memoryPercent < releaseThreshold) {
            pauseHandle_->release();
            pauseHandle_.reset();
            currentPauseDescription_.reset();
            tell(std::nullopt);
            return;
        }
        // The gate's entry keeps the words of the moment the hold was taken; the owner shows these.
        std::string description = pauseDescription(*sample);
        if (description != currentPauseDescription_) {
            currentPauseDescription_ = description;
            tell(currentPauseDescription_);
        }
        return;
    }
    if (!shouldPause(window_, sample->strategy)) return;
    std::string description = pauseDescription(*sample);
    if (auto handle = gate_->pause(description)) {
        pauseHandle_ = std::move(handle);
        currentPauseDescription_ = description;
        tell(currentPauseDescription_);
    }
}

void HeavyAppDetector::releasePause() {
    if (pauseHandle_) {
        pauseHandle_->release();
        pauseHandle_.reset();
    }
    if (currentPauseDescription_) {
        currentPauseDescription_.reset();
        tell(std::nullopt);
    }
}

bool HeavyAppDetector::shouldPause(const std::deque<WindowSample>& window,
                                   TriggerStrategy strategy) {
    if (window.size() < windowSize) return false;
    if (strategy == TriggerStrategy::sustainedEverySample) {
        return std::all_of(window.begin(), window.end(), [](const WindowSample& sample) {
            return sample.cpuPercent >= triggerThreshold ||
                   sample.memoryPercent >= triggerThreshold;
        });
    }
    double count = static_cast<double>(window.size());
    double cpu =
        std::accumulate(window.begin(), window.end(), 0.0,
                        [](double sum, const WindowSample& s) { return sum + s.cpuPercent; });
    double memory =
        std::accumulate(window.begin(), window.end(), 0.0,
                        [](double sum, const WindowSample& s) { return sum + s.memoryPercent; });
    return cpu / count >= triggerThreshold || memory / count >= triggerThreshold;
}

std::string HeavyAppDetector::pauseDescription(const ForegroundAppSample& sample) {
    bool cpuLeads = sample.memoryPercent <= sample.cpuPercent;
    double percent = std::round(std::max(sample.cpuPercent, sample.memoryPercent));
    if (!std::isfinite(percent)) percent = 0;  // a broken reading must not become a broken text
    return "Paused \u2014 " + sample.localizedName + " is using " +
           std::to_string(static_cast<long long>(percent)) + "% " + (cpuLeads ? "CPU" : "RAM");
}

HeavyAppDetector::TriggerStrategy HeavyAppDetector::strategyFor(
    const std::optional<std::string>& bundleIdentifier) {
    static constexpr std::array<std::string_view, 3> kAverageWindow = {"qtcreator", "gnome-builder",
                                                                       "clion"};
    if (bundleIdentifier && std::find(kAverageWindow.begin(), kAverageWindow.end(),
                                      *bundleIdentifier) != kAverageWindow.end()) {
        return TriggerStrategy::averageWindow;
    }
    return TriggerStrategy::sustainedEverySample;
}

void HeavyAppDetector::forgetTrackedApp() {
    trackedApp_.reset();
    window_.clear();
}

void HeavyAppDetector::tell(const std::optional<std::string>& description) {
    if (onStatusChange_) onStatusChange_(description);
}

}  // namespace corvane
