#include "CorvaneApp/app/NotificationEventLog.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane {

NotificationEventLog::NotificationEventLog(Options options) : options_(std::move(options)) {}

NotificationEventLog::Options NotificationEventLog::defaultOptions() {
    Options options;
    options.fileURL = paths::logDir() / "notifications.log";
    options.rotatedFileURL = paths::logDir() / "notifications.1.log";
    return options;
}

void NotificationEventLog::rotateIfNeeded(std::uintmax_t incomingDataSize) {
    std::error_code error;
    const auto size = std::filesystem::file_size(options_.fileURL, error);
    if (error || size + incomingDataSize <= options_.maxFileSize) return;
    std::filesystem::remove(options_.rotatedFileURL, error);
    std::filesystem::rename(options_.fileURL, options_.rotatedFileURL, error);
}

bool NotificationEventLog::append(std::string_view message) {
    const std::string line =
        "[" + internetDateTime(options_.now()) + "] " + std::string(message) + "\n";
    std::lock_guard lock(mutex_);
    rotateIfNeeded(line.size());
    std::error_code error;
    std::filesystem::create_directories(options_.fileURL.parent_path(), error);
    // One write of the whole line to a file opened for appending: a line is never split.
    const int fd =
        ::open(options_.fileURL.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return false;
    ssize_t written = -1;
    do {
        written = ::write(fd, line.data(), line.size());
    } while (written < 0 && errno == EINTR);
    const bool complete = ::close(fd) == 0 && written == static_cast<ssize_t>(line.size());
    return complete;
}

}  // namespace corvane
