#include "CorvaneApp/platform/Log.h"

#include <filesystem>
#include <mutex>

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_color_sinks.h>

namespace corvane::log {
namespace {

struct Registry {
    std::mutex mutex;
    std::vector<spdlog::sink_ptr> sinks{std::make_shared<spdlog::sinks::stderr_color_sink_mt>()};
    std::vector<std::shared_ptr<spdlog::logger>> loggers;
};

Registry& registry() {
    static Registry instance;  // the process's logging set-up, like spdlog's own registry
    return instance;
}

}  // namespace

std::shared_ptr<spdlog::logger> get(const std::string& category) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    for (const auto& logger : r.loggers) {
        if (logger->name() == category) return logger;
    }
    auto logger = std::make_shared<spdlog::logger>(category, r.sinks.begin(), r.sinks.end());
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e [%n] %l: %v");
    logger->set_level(spdlog::level::info);
    logger->flush_on(spdlog::level::info);
    r.loggers.push_back(logger);
    return logger;
}

void setSinks(std::vector<spdlog::sink_ptr> sinks) {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    r.sinks = std::move(sinks);
    for (auto& logger : r.loggers) logger->sinks() = r.sinks;
}

std::vector<spdlog::sink_ptr> sinks() {
    auto& r = registry();
    std::lock_guard lock(r.mutex);
    return r.sinks;
}

void addFileSink(const std::string& path) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    auto all = sinks();
    all.push_back(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, 5 * 1024 * 1024, 2));
    setSinks(std::move(all));
}

}  // namespace corvane::log
