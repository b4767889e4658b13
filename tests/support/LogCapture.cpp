#include "tests/support/LogCapture.h"

#include <algorithm>

namespace corvane::testing {

class LogCapture::Sink final : public spdlog::sinks::base_sink<std::mutex> {
  public:
    std::vector<std::string> lines() {
        std::lock_guard lock(mutex_);
        return lines_;
    }

  protected:
    void sink_it_(const spdlog::details::log_msg& msg) override {
        lines_.push_back(std::string(msg.logger_name.begin(), msg.logger_name.end()) + " " +
                         std::string(spdlog::level::to_string_view(msg.level).data()) + ": " +
                         std::string(msg.payload.begin(), msg.payload.end()));
    }
    void flush_() override {}

  private:
    std::vector<std::string> lines_;
};

LogCapture::LogCapture() : sink_(std::make_shared<Sink>()), previous_(log::sinks()) {
    log::setSinks({sink_});
}

LogCapture::~LogCapture() {
    log::setSinks(previous_);
}

std::vector<std::string> LogCapture::lines() const {
    return sink_->lines();
}

bool LogCapture::contains(const std::string& fragment) const {
    auto all = lines();
    return std::any_of(all.begin(), all.end(), [&](const std::string& line) {
        return line.find(fragment) != std::string::npos;
    });
}

}  // namespace corvane::testing
