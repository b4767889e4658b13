#pragma once
// Captures what the loggers write while it lives, to check the exact log lines.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <spdlog/sinks/base_sink.h>

#include "CorvaneApp/platform/Log.h"

namespace corvane::testing {

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // "category level: message" lines, in order.
    std::vector<std::string> lines() const;
    bool contains(const std::string& fragment) const;

  private:
    class Sink;
    std::shared_ptr<Sink> sink_;
    std::vector<spdlog::sink_ptr> previous_;
};

}  // namespace corvane::testing
