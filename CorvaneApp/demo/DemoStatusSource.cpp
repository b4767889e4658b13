#include "CorvaneApp/demo/DemoStatusSource.h"

#include "CorvaneApp/demo/DummyDataProvider.h"

namespace corvane {

std::optional<WorkerStatusPresentation> DemoStatusSource::refresh(const WorkerStatusInputs& inputs,
                                                                  Date) {
    if (!inputs.enrolled) {
        showsOwnWords_ = false;
        return WorkerStatusPresentation::defaultFor(WorkerStatus::notEnrolled);
    }
    if (inputs.paused) return WorkerStatusPresentation::defaultFor(WorkerStatus::paused);
    if (showsOwnWords_) return std::nullopt;
    showsOwnWords_ = true;
    return DummyDataProvider::sessionPresentation();
}

WorkerStatusPresentation DemoStatusSource::ownerResumed(const WorkerStatusInputs& inputs) {
    if (inputs.paused) return WorkerStatusPresentation::defaultFor(WorkerStatus::paused);
    showsOwnWords_ = true;
    return DummyDataProvider::sessionPresentation();
}

}  // namespace corvane
