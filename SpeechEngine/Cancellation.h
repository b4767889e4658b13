#pragma once
// The engine's cancellation: a stop request seen at a check point ends the work with this error.

#include <stdexcept>
#include <stop_token>

namespace speech {

class CancellationError : public std::runtime_error {
  public:
    CancellationError() : std::runtime_error("cancelled") {}
};

inline void checkCancellation(const std::stop_token& stop) {
    if (stop.stop_requested()) throw CancellationError();
}

}  // namespace speech
