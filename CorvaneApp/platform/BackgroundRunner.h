#pragma once
// Runs blocking work (network calls) away from the main sequence. The store posts results back to
// its executor itself; a runner only decides where the body runs.

#include <functional>
#include <memory>
#include <stop_token>

#include "CorvaneApp/platform/Task.h"

namespace corvane {

// The handle of one body in flight: cancel() requests a stop through its stop_token. Dropping
// the handle cancels too.
class BackgroundJob {
  public:
    virtual ~BackgroundJob() = default;
    virtual void cancel() = 0;
};

class BackgroundRunner {
  public:
    virtual ~BackgroundRunner() = default;
    virtual std::unique_ptr<BackgroundJob> run(std::function<void(std::stop_token)> body) = 0;
};

// One Task per body; dropping the job cancels and joins it.
class TaskBackgroundRunner final : public BackgroundRunner {
  public:
    std::unique_ptr<BackgroundJob> run(std::function<void(std::stop_token)> body) override {
        class Job final : public BackgroundJob {
          public:
            explicit Job(TaskHandle task) : task_(std::move(task)) {}
            void cancel() override { task_->cancel(); }

          private:
            TaskHandle task_;
        };
        return std::make_unique<Job>(Task::start(std::move(body)));
    }
};

// Runs each body at once, on the caller's thread: for work that never waits (the sample
// session's answers) and for tests.
class InlineBackgroundRunner final : public BackgroundRunner {
  public:
    std::unique_ptr<BackgroundJob> run(std::function<void(std::stop_token)> body) override {
        class Done final : public BackgroundJob {
          public:
            void cancel() override {}
        };
        body(std::stop_token{});
        return std::make_unique<Done>();
    }
};

}  // namespace corvane
