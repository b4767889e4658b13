#pragma once
// Times one stage of a handler and tells the observer its seconds, whether the stage worked or
// threw: the performance record wants the time of a failed decode too.

#include <exception>
#include <optional>
#include <utility>

#include "CorvaneApp/models/ModelHandler.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

template <typename Work>
auto timedStage(ModelHandlerStage stage, const StageObserver& observer, const NowFunction& now, Work&& work) {
    const Date start = now();
    std::optional<decltype(work())> value;
    std::exception_ptr failure;
    try {
        value.emplace(work());
    } catch (...) {
        failure = std::current_exception();
    }
    if (observer) observer(stage, secondsBetween(start, now()));
    if (failure) std::rethrow_exception(failure);
    return std::move(*value);
}

}  // namespace corvane
