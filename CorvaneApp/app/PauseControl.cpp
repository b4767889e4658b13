#include "CorvaneApp/app/PauseControl.h"

#include <utility>

namespace corvane {

PauseControl::PauseControl(Executor& mainSequence, ModelChanges& changes, Dependencies dependencies)
    : main_(mainSequence),
      changes_(changes),
      gate_(std::move(dependencies.eligibilityGate)),
      detectHeavyApps_(dependencies.detectHeavyApps),
      onHeavyAppPauseChange_(std::move(dependencies.onHeavyAppPauseChange)),
      alive_(std::make_shared<PauseControl*>(this)) {
    if (!dependencies.heavyAppSampler) return;
    auto enabled = dependencies.pauseOnHeavyApp ? std::move(dependencies.pauseOnHeavyApp)
                                                : std::function<bool()>([] { return true; });
    heavyAppDetector_ = std::make_unique<HeavyAppDetector>(
        gate_, main_, std::move(enabled), std::move(dependencies.heavyAppSampler),
        [this,
         alive = std::weak_ptr<PauseControl*>(alive_)](const std::optional<std::string>& subtitle) {
            setTemporaryPauseStatusSubtitle(subtitle);
            // Not from inside the detector's own call: what follows may reset the detector.
            main_.post([alive] {
                if (auto self = alive.lock(); self && (*self)->onHeavyAppPauseChange_)
                    (*self)->onHeavyAppPauseChange_();
            });
        });
}

PauseControl::~PauseControl() {
    alive_.reset();
    heavyAppDetector_.reset();  // releases its pause, if it holds one
}

bool PauseControl::isPauseActionEnabled() const {
    return isManuallyPaused_ || !gate_->isTemporarilyPaused();
}

std::optional<std::string> PauseControl::othersPauseReason() const {
    if (isManuallyPaused_) return std::nullopt;
    if (temporaryPauseStatusSubtitle_) return temporaryPauseStatusSubtitle_;
    const auto& entries = gate_->pauseEntries();
    if (entries.empty()) return std::nullopt;
    return entries.front().reason;
}

void PauseControl::pause() {
    changes_.assign(isManuallyPaused_, true, ModelPart::pause);
    manualPauseHandle_ = gate_->pause("manual pause");
    // The owner's pause stands alone: no other hold to lift behind it.
    if (heavyAppDetector_) heavyAppDetector_->stop();
}

void PauseControl::resume() {
    changes_.assign(isManuallyPaused_, false, ModelPart::pause);
    if (auto handle = std::exchange(manualPauseHandle_, nullptr)) handle->release();
    startHeavyAppDetection();
}

void PauseControl::reset() {
    ModelChanges::Batch batch(changes_);
    changes_.assign(isManuallyPaused_, false, ModelPart::pause);
    changes_.assign(temporaryPauseStatusSubtitle_, std::nullopt, ModelPart::pause);
    if (auto handle = std::exchange(manualPauseHandle_, nullptr)) handle->release();
    if (heavyAppDetector_) heavyAppDetector_->stop();  // forgets the tracked application
    startHeavyAppDetection();
}

void PauseControl::setTemporaryPauseStatusSubtitle(std::optional<std::string> subtitle) {
    changes_.assign(temporaryPauseStatusSubtitle_, std::move(subtitle), ModelPart::pause);
}

void PauseControl::syncHeavyAppConfiguration() {
    if (heavyAppDetector_) heavyAppDetector_->syncConfiguration();
}

void PauseControl::startHeavyAppDetection() {
    if (heavyAppDetector_ && detectHeavyApps_) heavyAppDetector_->start();
}

}  // namespace corvane
