#include "CorvaneApp/platform/AtomicFile.h"

#include <sys/stat.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "CorvaneApp/platform/TemporaryFile.h"

namespace corvane {

void writeFileAtomically(const std::filesystem::path& path, std::string_view contents,
                         std::optional<mode_t> mode) {
    mode_t finalMode = 0644;
    struct stat existing {};
    if (mode) {
        finalMode = *mode;
    } else if (::stat(path.c_str(), &existing) == 0) {
        finalMode = existing.st_mode & 07777;
    }
    const auto folder = path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
    TemporaryFile temp(folder, "." + path.filename().string() + ".tmp-");
    temp.setPermissions(finalMode);
    if (!temp.write(contents))
        throw std::system_error(errno, std::generic_category(),
                                "cannot write " + temp.path().string());
    temp.moveTo(path);
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
