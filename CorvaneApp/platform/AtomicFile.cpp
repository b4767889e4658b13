#include "CorvaneApp/platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

namespace corvane {
namespace {

[[noreturn]] void fail(int error, const std::string& what) {
    throw std::system_error(error, std::generic_category(), what);
}

// Closes the descriptor and removes the temp file unless the write was committed.
struct TempFile {
    int fd = -1;
    std::string path;
    bool committed = false;
    ~TempFile() {
        if (fd >= 0) ::close(fd);
        if (!committed && !path.empty()) ::unlink(path.c_str());
    }
};

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::optional<mode_t> mode) {
    mode_t finalMode = 0644;
    struct stat existing {};
    if (mode) {
        finalMode = *mode;
    } else if (::stat(path.c_str(), &existing) == 0) {
        finalMode = existing.st_mode & 07777;
    }
    auto folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    TempFile temp;
    std::string pattern = (folder / ("." + path.filename().string() + ".tmp-XXXXXX")).string();
    temp.fd = ::mkstemp(pattern.data());
    if (temp.fd < 0) fail(errno, "cannot create a temporary file beside " + path.string());
    temp.path = pattern;
    if (::fchmod(temp.fd, finalMode) != 0) fail(errno, "cannot set permissions of " + temp.path);
    size_t written = 0;
    while (written < contents.size()) {
        ssize_t n = ::write(temp.fd, contents.data() + written, contents.size() - written);
        if (n < 0) {
            if (errno == EINTR) continue;
            fail(errno, "cannot write " + temp.path);
        }
        written += static_cast<size_t>(n);
    }
    if (::fsync(temp.fd) != 0) fail(errno, "cannot flush " + temp.path);
    if (::close(temp.fd) != 0) {
        temp.fd = -1;
        fail(errno, "cannot close " + temp.path);
    }
    temp.fd = -1;
    if (::rename(temp.path.c_str(), path.c_str()) != 0)
        fail(errno, "cannot replace " + path.string());
    temp.committed = true;
    int dir = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
}

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream buffer;
    buffer << in.rdbuf();
    if (in.bad()) return std::nullopt;
    return buffer.str();
}

}  // namespace corvane
