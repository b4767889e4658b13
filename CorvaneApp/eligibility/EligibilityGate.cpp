#include "CorvaneApp/eligibility/EligibilityGate.h"

#include <algorithm>

#include "CorvaneApp/platform/Text.h"

namespace corvane {

std::shared_ptr<EligibilityGate> EligibilityGate::create(Executor& mainSequence,
                                                         bool initialIsScheduledOn) {
    return std::shared_ptr<EligibilityGate>(
        new EligibilityGate(mainSequence, initialIsScheduledOn));
}

EligibilityGate::EligibilityGate(Executor& mainSequence, bool initialIsScheduledOn)
    : mainSequence_(mainSequence),
      mainThread_(std::this_thread::get_id()),
      isEligible_(initialIsScheduledOn),
      isScheduledOn_(initialIsScheduledOn),
      snapshot_(std::make_shared<EligibilitySnapshot>(initialIsScheduledOn)) {}

std::shared_ptr<PauseHandle> EligibilityGate::pause(std::string_view reason) {
    std::string trimmed = trimWhitespaceAndNewlines(reason);
    if (trimmed.empty()) return nullptr;
    PauseEntryID id = nextEntryID_++;
    pauseEntries_.push_back(PauseEntry{id, std::move(trimmed)});
    notify(Property::pauseEntries);
    recomputeEligibility();
    return std::make_shared<PauseHandle>(weak_from_this(), id);
}

void EligibilityGate::setScheduledOn(bool on, std::optional<std::string> reason) {
    if (isScheduledOn_ != on) {
        isScheduledOn_ = on;
        notify(Property::isScheduledOn);
    }
    std::optional<std::string> offReason;
    if (!on) offReason = reason ? std::move(*reason) : std::string("schedule off");
    if (scheduledOffReason_ != offReason) {
        scheduledOffReason_ = std::move(offReason);
        notify(Property::scheduledOffReason);
    }
    recomputeEligibility();
}

void EligibilityGate::clearAllPauses() {
    if (pauseEntries_.empty()) return;
    pauseEntries_.clear();
    notify(Property::pauseEntries);
    recomputeEligibility();
}

std::optional<std::string> EligibilityGate::reason() const {
    if (!pauseEntries_.empty()) return pauseEntries_.back().reason;
    if (isScheduledOn_) return std::nullopt;
    return scheduledOffReason_;
}

std::optional<std::string> EligibilityGate::temporaryPauseReason() const {
    if (pauseEntries_.empty()) return std::nullopt;
    return pauseEntries_.front().reason;
}

std::vector<std::string> EligibilityGate::pauseReasons() const {
    std::vector<std::string> reasons;
    reasons.reserve(pauseEntries_.size());
    for (const auto& entry : pauseEntries_) reasons.push_back(entry.reason);
    return reasons;
}

std::function<bool()> EligibilityGate::isEligibleFunction() const {
    return [snapshot = snapshot_] { return snapshot->value(); };
}

Subscription EligibilityGate::observe(std::function<void(Property)> observer) {
    return observers_.subscribe(std::move(observer));
}

void EligibilityGate::releaseEntry(PauseEntryID id) {
    auto it = std::find_if(pauseEntries_.begin(), pauseEntries_.end(),
                           [id](const PauseEntry& entry) { return entry.id == id; });
    if (it == pauseEntries_.end()) return;
    pauseEntries_.erase(it);
    notify(Property::pauseEntries);
    recomputeEligibility();
}

void EligibilityGate::postReleaseEntry(PauseEntryID id) {
    mainSequence_.post([weak = weak_from_this(), id] {
        if (auto gate = weak.lock()) gate->releaseEntry(id);
    });
}

void EligibilityGate::recomputeEligibility() {
    bool verdict = pauseEntries_.empty() && isScheduledOn_;
    if (isEligible_ != verdict) {
        isEligible_ = verdict;
        notify(Property::isEligible);
    }
    // Stored on every pass, after the observed value, so an off-thread reader never leads it.
    snapshot_->store(verdict);
}

}  // namespace corvane
