#pragma once
// One named logger per component ("WorkerController", "WorkerHTTPClient", ...), all writing to the
// same sinks: stderr by default, plus the log file once the application adds it.

#include <memory>
#include <string>
#include <vector>

#include <spdlog/spdlog.h>

namespace corvane::log {

// The logger of one component, created on first use with the current sinks.
std::shared_ptr<spdlog::logger> get(const std::string& category);

// Replaces the sinks of every logger, present and future.
void setSinks(std::vector<spdlog::sink_ptr> sinks);
std::vector<spdlog::sink_ptr> sinks();

// Adds a rotating file sink at `path` (parent folders are created) next to the present sinks.
void addFileSink(const std::string& path);

}  // namespace corvane::log
