#pragma once
// The notifications' own log: one line per attempt to notify and its outcome, so that a report of
// a missing notification can be answered from the file. The file grows to 1 MiB; then it becomes
// the one old generation ("notifications.1.log") and a new file starts. Safe from any thread:
// lines never interleave.

#include <cstdint>
#include <filesystem>
#include <mutex>
#include <string_view>

#include "CorvaneApp/platform/Clock.h"

namespace corvane {

class NotificationEventLog {
  public:
    static constexpr std::uintmax_t defaultMaxFileSize = 1'048'576;

    struct Options {
        std::filesystem::path fileURL;         // notifications.log
        std::filesystem::path rotatedFileURL;  // notifications.1.log
        std::uintmax_t maxFileSize = defaultMaxFileSize;
        NowFunction now = systemNow;
    };

    explicit NotificationEventLog(Options options);

    // In Corvane's log folder ($XDG_STATE_HOME/Corvane/logs).
    static Options defaultOptions();

    // Appends "[<ISO-8601 time>] <message>" and a line feed, making the file and its folder when
    // missing. A line that cannot be written is dropped (false): the log never stops anything.
    bool append(std::string_view message);

    const std::filesystem::path& fileURL() const { return options_.fileURL; }
    const std::filesystem::path& rotatedFileURL() const { return options_.rotatedFileURL; }

  private:
    void rotateIfNeeded(std::uintmax_t incomingDataSize);  // requires mutex_

    const Options options_;
    std::mutex mutex_;
};

}  // namespace corvane
