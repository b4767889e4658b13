#include "CorvaneApp/platform/TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace corvane {
namespace {

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

}  // namespace

TemporaryFile::TemporaryFile(const std::filesystem::path& folder, std::string_view prefix,
                             std::string_view suffix) {
    std::string pattern =
        (folder / (std::string(prefix) + "XXXXXX" + std::string(suffix))).string();
    fd_ = ::mkstemps(pattern.data(), static_cast<int>(suffix.size()));
    if (fd_ < 0) fail(errno, "cannot create a temporary file in " + folder.string());
    path_ = pattern;
}

TemporaryFile::~TemporaryFile() {
    close();
    if (!path_.empty()) ::unlink(path_.c_str());
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      fd_(std::exchange(other.fd_, -1)),
      written_(other.written_) {}

TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept {
    if (this != &other) {
        close();
        if (!path_.empty()) ::unlink(path_.c_str());
        path_ = std::exchange(other.path_, {});
        fd_ = std::exchange(other.fd_, -1);
        written_ = other.written_;
    }
    return *this;
}

void TemporaryFile::close() noexcept {
    if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

bool TemporaryFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd_, bytes.data(), bytes.size());
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            if (n == 0) errno = EIO;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
        written_ += static_cast<std::uintmax_t>(n);
    }
    return true;
}

void TemporaryFile::setPermissions(mode_t mode) {
    if (::fchmod(fd_, mode) != 0) fail(errno, "cannot set permissions of " + path_.string());
}

void TemporaryFile::finish(bool durable) {
    if (fd_ < 0) return;
    if (durable && ::fsync(fd_) != 0) fail(errno, "cannot flush " + path_.string());
    if (::close(std::exchange(fd_, -1)) != 0) fail(errno, "cannot close " + path_.string());
}

void TemporaryFile::moveTo(const std::filesystem::path& destination, bool durable) {
    finish(durable);
    if (::rename(path_.c_str(), destination.c_str()) != 0)
        fail(errno, "cannot replace " + destination.string());
    path_.clear();
    if (!durable) return;
    const auto folder =
        destination.has_parent_path() ? destination.parent_path() : std::filesystem::path(".");
    if (int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

}  // namespace corvane
