#pragma once
// The owner's pause and the pause under a demanding front application: the owner's hold on the
// eligibility gate, the heavy-application detector that takes its own, and the subtitle that
// names a pause the owner did not take. Lives on the main sequence.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/app/ModelChanges.h"
#include "CorvaneApp/eligibility/EligibilityGate.h"
#include "CorvaneApp/eligibility/HeavyAppDetector.h"
#include "CorvaneApp/platform/Executor.h"

namespace corvane {

class PauseControl {
  public:
    struct Dependencies {
        std::shared_ptr<EligibilityGate> eligibilityGate;  // required
        // The frontmost application's load and the owner's setting for that pause; without a
        // sampler there is no such pause.
        std::shared_ptr<HeavyAppDetector::Sampling> heavyAppSampler;
        std::function<bool()> pauseOnHeavyApp;
        // Whether the detector samples at all (a model without background work never does).
        bool detectHeavyApps = true;
        // After the detector takes or lifts its pause (deferred to the main sequence).
        std::function<void()> onHeavyAppPauseChange;
    };

    PauseControl(Executor& mainSequence, ModelChanges& changes, Dependencies dependencies);
    ~PauseControl();
    PauseControl(const PauseControl&) = delete;
    PauseControl& operator=(const PauseControl&) = delete;

    bool isManuallyPaused() const { return isManuallyPaused_; }
    const std::optional<std::string>& temporaryPauseStatusSubtitle() const {
        return temporaryPauseStatusSubtitle_;
    }
    // The owner may pause unless someone else's pause holds, and may lift only their own.
    bool isPauseActionEnabled() const;
    // The gate holds any pause entry (the owner's or another's).
    bool gateHoldsPause() const { return gate_->isTemporarilyPaused(); }
    // The reason of a pause the owner did not take: the detector's subtitle, else the gate's first
    // pause entry; absent while the owner's own pause holds or nothing is paused.
    std::optional<std::string> othersPauseReason() const;
    const HeavyAppDetector* heavyAppDetector() const { return heavyAppDetector_.get(); }

    // The owner's hold: taken with "manual pause"; the detector stops while it stands.
    void pause();
    void resume();
    // Forgets the owner's pause and the detector's tracked application.
    void reset();
    void setTemporaryPauseStatusSubtitle(std::optional<std::string> subtitle);
    // Follows the owner's setting: a switched-off detector lets its pause go.
    void syncHeavyAppConfiguration();
    void startHeavyAppDetection();

  private:
    Executor& main_;
    ModelChanges& changes_;
    std::shared_ptr<EligibilityGate> gate_;
    bool detectHeavyApps_;
    std::function<void()> onHeavyAppPauseChange_;
    bool isManuallyPaused_ = false;
    std::optional<std::string> temporaryPauseStatusSubtitle_;
    std::shared_ptr<PauseHandle> manualPauseHandle_;
    std::unique_ptr<HeavyAppDetector> heavyAppDetector_;
    std::shared_ptr<PauseControl*> alive_;
};

}  // namespace corvane
