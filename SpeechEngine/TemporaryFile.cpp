#include "SpeechEngine/TemporaryFile.h"

#include <unistd.h>
#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

namespace speech {

TemporaryFile::TemporaryFile(const std::filesystem::path& folder, std::string_view stem) {
    std::string pattern = (folder / ("." + std::string(stem) + ".partial-XXXXXX")).string();
    fd_ = ::mkstemp(pattern.data());
    if (fd_ < 0)
        throw std::system_error(errno, std::generic_category(),
                                "cannot create a temporary file in " + folder.string());
    path_ = pattern;
}

TemporaryFile::~TemporaryFile() {
    close();
    if (!path_.empty()) {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }
}

TemporaryFile::TemporaryFile(TemporaryFile&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      fd_(std::exchange(other.fd_, -1)),
      written_(other.written_) {}

TemporaryFile& TemporaryFile::operator=(TemporaryFile&& other) noexcept {
    if (this != &other) {
        close();
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove(path_, ignored);
        path_ = std::exchange(other.path_, {});
        fd_ = std::exchange(other.fd_, -1);
        written_ = other.written_;
    }
    return *this;
}

void TemporaryFile::close() noexcept {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool TemporaryFile::write(std::string_view bytes) {
    while (!bytes.empty()) {
        ssize_t n = ::write(fd_, bytes.data(), bytes.size());
        if (n < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
        written_ += static_cast<std::uintmax_t>(n);
    }
    return true;
}

void TemporaryFile::moveTo(const std::filesystem::path& destination) {
    if (fd_ >= 0 && ::fsync(fd_) != 0)
        throw std::system_error(errno, std::generic_category(), "cannot flush " + path_.string());
    close();
    std::error_code error;
    if (std::filesystem::is_directory(std::filesystem::symlink_status(destination, error))) {
        std::filesystem::remove_all(destination);
    }
    std::filesystem::rename(path_, destination);
    path_.clear();
}

}  // namespace speech
