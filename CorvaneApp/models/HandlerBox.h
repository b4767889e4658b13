#pragma once
// The one slot that holds the current handler, read by the worker while it may be replaced.

#include <memory>
#include <mutex>

#include "CorvaneApp/models/ModelHandler.h"

namespace corvane {

class HandlerBox {
  public:
    // A copy of the current handler; the caller keeps it alive for as long as it uses it.
    std::shared_ptr<ModelHandler> current() const {
        std::lock_guard lock(mutex_);
        return handler_;
    }
    // Installs `handler` and gives back the one it replaced.
    std::shared_ptr<ModelHandler> replace(std::shared_ptr<ModelHandler> handler) {
        std::lock_guard lock(mutex_);
        handler_.swap(handler);
        return handler;
    }

  private:
    mutable std::mutex mutex_;               // held only across a pointer copy or swap
    std::shared_ptr<ModelHandler> handler_;  // guarded by mutex_
};

}  // namespace corvane
