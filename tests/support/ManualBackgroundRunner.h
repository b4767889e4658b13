#pragma once
// A BackgroundRunner for tests: bodies wait until the test runs them, on the test's thread.

#include <deque>
#include <memory>
#include <stop_token>

#include "CorvaneApp/platform/BackgroundRunner.h"

namespace corvane::testing {

class ManualBackgroundRunner final : public BackgroundRunner {
  public:
    std::unique_ptr<BackgroundJob> run(std::function<void(std::stop_token)> body) override {
        queue_.push_back(std::make_shared<Pending>(Pending{std::move(body), {}}));
        return std::make_unique<Job>(queue_.back());
    }

    size_t pendingCount() const { return queue_.size(); }
    // Runs the oldest waiting body; false when none waits.
    bool runNext() {
        if (queue_.empty()) return false;
        auto pending = queue_.front();
        queue_.pop_front();
        pending->body(pending->stop.get_token());
        return true;
    }
    // The app model's suite checks that a superseded refresh is cancelled before it runs.
    bool nextIsCancelled() const {
        return !queue_.empty() && queue_.front()->stop.stop_requested();
    }

  private:
    struct Pending {
        std::function<void(std::stop_token)> body;
        std::stop_source stop;
    };
    struct Job final : BackgroundJob {
        explicit Job(std::shared_ptr<Pending> pending) : pending(std::move(pending)) {}
        ~Job() override { cancel(); }
        void cancel() override { pending->stop.request_stop(); }
        std::shared_ptr<Pending> pending;
    };
    std::deque<std::shared_ptr<Pending>> queue_;
};

}  // namespace corvane::testing
