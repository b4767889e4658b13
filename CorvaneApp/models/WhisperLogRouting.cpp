#include "CorvaneApp/models/WhisperLogRouting.h"

#include <string_view>

#include <whisper.h>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

void forward(ggml_log_level level, const char* text, void*) {
    if (!text) return;
    std::string_view message(text);
    while (!message.empty() && (message.back() == '\n' || message.back() == '\r'))
        message.remove_suffix(1);
    // ggml prints progress dots and other fragments on their own; they carry nothing alone.
    if (message.find_first_not_of(" .\t") == std::string_view::npos) return;
    static const auto logger = log::get("whisper.cpp");  // the same logger for every call
    switch (level) {
        case GGML_LOG_LEVEL_ERROR:
            logger->error("{}", message);
            break;
        case GGML_LOG_LEVEL_WARN:
            logger->warn("{}", message);
            break;
        // Its info lines (thirty per model load) are details: kept at debug, like its debug lines.
        default:
            logger->debug("{}", message);
            break;
    }
}

}  // namespace

void routeWhisperLogs() {
    whisper_log_set(forward, nullptr);  // also hands the callback to ggml underneath
}

}  // namespace corvane
