#include "CorvaneApp/platform/SleepProvider.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace corvane {

bool TaskSleepProvider::sleep(double seconds, std::stop_token stop) {
    if (stop.stop_requested()) return false;
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    auto duration = std::chrono::duration<double>(std::max(0.0, seconds));
    // Nothing notifies this variable: only the time or a stop request ends the wait.
    wake.wait_for(lock, stop, duration, [] { return false; });
    return !stop.stop_requested();
}

}  // namespace corvane
