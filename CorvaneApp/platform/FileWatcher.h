#pragma once
// Tells when one file is written, replaced, created or removed, through the kernel's inotify: no
// polling. It watches the file's folder, so an editor that saves by renaming a new file over the
// old one is seen as well as one that writes in place. The callback runs on the watcher's own
// thread, once per burst of events; post from there to where the work belongs.

#include <atomic>
#include <filesystem>
#include <functional>

#include "CorvaneApp/platform/Task.h"

namespace corvane {

class FileWatcher {
  public:
    // Starts watching at once. When the folder doesn't exist (or inotify is unavailable) nothing
    // is watched: isWatching() says so and the callback never runs. A folder removed later ends
    // the watch after one last callback.
    FileWatcher(std::filesystem::path file, std::function<void()> onChange);
    // Stops the thread before returning: no callback runs after the destructor.
    ~FileWatcher();
    FileWatcher(const FileWatcher&) = delete;
    FileWatcher& operator=(const FileWatcher&) = delete;

    bool isWatching() const { return watching_; }
    const std::filesystem::path& file() const { return file_; }

  private:
    void run(std::stop_token stop);

    const std::filesystem::path file_;
    const std::function<void()> onChange_;
    int inotify_ = -1;
    int wake_ = -1;  // an eventfd that ends the wait when the watcher stops
    std::atomic<bool> watching_ = false;
    TaskHandle thread_;
};

}  // namespace corvane
