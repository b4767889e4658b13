#pragma once
// A unit of concurrent work with cooperative cancellation, owned by whoever holds the handle.

#include <functional>
#include <memory>
#include <stop_token>
#include <thread>

namespace corvane {

// A Task runs its function on its own thread and hands it a stop token. Cancelling only requests
// a stop: the function checks the token at its own pace. Destroying the last handle cancels and
// joins, except on the task's own thread (a task that drops its own handle while finishing), where
// the thread is detached to end by itself.
class Task {
  public:
    using Body = std::function<void(std::stop_token)>;

    static std::shared_ptr<Task> start(Body body) {
        return std::make_shared<Task>(std::move(body));
    }

    explicit Task(Body body);
    ~Task();
    Task(const Task&) = delete;
    Task& operator=(const Task&) = delete;

    void cancel() noexcept { thread_.request_stop(); }
    bool isCancelled() const noexcept { return thread_.get_stop_token().stop_requested(); }
    // Waits for the function to return. Must not be called from the task itself.
    void join();

  private:
    std::jthread thread_;
};

using TaskHandle = std::shared_ptr<Task>;

}  // namespace corvane
