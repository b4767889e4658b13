#include "CorvaneApp/platform/Task.h"

namespace corvane {

Task::Task(Body body) : thread_(std::move(body)) {}

Task::~Task() {
    thread_.request_stop();
    if (!thread_.joinable()) return;
    if (thread_.get_id() == std::this_thread::get_id()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void Task::join() {
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

}  // namespace corvane
