#pragma once
// The status words of the sample session: its own working words while enrolled, the owner's
// pause when taken, and whatever a screenshot scene set otherwise. Nothing here follows a worker.

#include "CorvaneApp/app/WorkerStatusTracker.h"

namespace corvane {

class DemoStatusSource final : public StatusSource {
  public:
    std::optional<WorkerStatusPresentation> refresh(const WorkerStatusInputs& inputs,
                                                    Date now) override;
    void ownerPaused() override {}
    WorkerStatusPresentation ownerResumed(const WorkerStatusInputs& inputs) override;
    void reset() override { showsOwnWords_ = false; }

  private:
    bool showsOwnWords_ = false;  // since the last sign-in; a scene may have changed them since
};

}  // namespace corvane
