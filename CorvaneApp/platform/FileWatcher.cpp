#include "CorvaneApp/platform/FileWatcher.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <stop_token>

#include "CorvaneApp/platform/Log.h"

namespace corvane {
namespace {

// Written in place (closed after writing), renamed over or away, created, deleted.
constexpr std::uint32_t kEvents =
    IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_CREATE | IN_DELETE | IN_DELETE_SELF;

}  // namespace

FileWatcher::FileWatcher(std::filesystem::path file, std::function<void()> onChange)
    : file_(std::move(file)), onChange_(std::move(onChange)) {
    inotify_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    wake_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (inotify_ < 0 || wake_ < 0 ||
        ::inotify_add_watch(inotify_, file_.parent_path().c_str(), kEvents) < 0) {
        log::get("FileWatcher")->info("not watching {}: {}", file_.string(), std::strerror(errno));
        return;
    }
    watching_ = true;
    thread_ = Task::start([this](std::stop_token stop) { run(stop); });
}

FileWatcher::~FileWatcher() {
    if (thread_) {
        thread_->cancel();
        const std::uint64_t one = 1;
        [[maybe_unused]] auto written = ::write(wake_, &one, sizeof one);
        thread_->join();
    }
    if (inotify_ >= 0) ::close(inotify_);
    if (wake_ >= 0) ::close(wake_);
}

void FileWatcher::run(std::stop_token stop) {
    const std::string name = file_.filename().string();
    alignas(inotify_event) std::array<char, 16 * 1024> buffer;
    while (!stop.stop_requested()) {
        std::array<pollfd, 2> fds{pollfd{inotify_, POLLIN, 0}, pollfd{wake_, POLLIN, 0}};
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            log::get("FileWatcher")
                ->error("watching {} ended: {}", file_.string(), std::strerror(errno));
            break;
        }
        if (stop.stop_requested() || fds[1].revents != 0) break;
        // Everything queued so far is one burst: an editor's save is several events.
        bool ours = false, folderGone = false;
        for (;;) {
            const ssize_t length = ::read(inotify_, buffer.data(), buffer.size());
            if (length <= 0) break;
            for (ssize_t offset = 0; offset < length;) {
                const auto* event = reinterpret_cast<const inotify_event*>(buffer.data() + offset);
                folderGone = folderGone || (event->mask & (IN_DELETE_SELF | IN_IGNORED)) != 0;
                if ((event->mask & (IN_DELETE_SELF | IN_IGNORED | IN_Q_OVERFLOW)) != 0 ||
                    (event->len > 0 && name == event->name)) {
                    ours = true;
                }
                offset += ssize_t(sizeof(inotify_event)) + ssize_t(event->len);
            }
        }
        if (ours) onChange_();
        if (folderGone) break;
    }
    watching_ = false;
}

}  // namespace corvane
