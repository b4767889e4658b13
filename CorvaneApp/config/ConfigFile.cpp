#include "CorvaneApp/config/ConfigFile.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <system_error>

#include "CorvaneApp/platform/AtomicFile.h"
#include "CorvaneApp/platform/Paths.h"

namespace corvane::configfile {

std::filesystem::path defaultPath() {
    return paths::varnixDir() / "config.yaml";
}

std::optional<std::string> read(const std::filesystem::path& path) {
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return std::nullopt;
    return readFile(path);
}

std::string readOrEmptyIfMissing(const std::filesystem::path& path) {
    std::error_code error;
    auto status = std::filesystem::status(path, error);
    if (status.type() == std::filesystem::file_type::not_found) return {};
    if (auto text = read(path)) return *text;
    throw std::system_error(error ? error : std::make_error_code(std::errc::io_error),
                            "cannot read " + path.string());
}

void writeAtomic(std::string_view text, const std::filesystem::path& path) {
    std::filesystem::path target = path;
    std::error_code error;
    // Replace what a symlinked config points at, not the link.
    if (std::filesystem::is_symlink(path, error)) target = std::filesystem::weakly_canonical(path);
    if (target.has_parent_path()) std::filesystem::create_directories(target.parent_path());

    struct stat existing {};
    if (::stat(target.c_str(), &existing) == 0) {
        // Root may write anywhere; a file that grants no one write access is still read-only.
        bool readOnly = (existing.st_mode & 0222) == 0 || ::access(target.c_str(), W_OK) != 0;
        if (readOnly) {
            throw std::system_error(EACCES, std::generic_category(),
                                    target.string() + " is read-only");
        }
        writeFileAtomically(target, text);
    } else {
        writeFileAtomically(target, text, 0600);
    }
}

}  // namespace corvane::configfile
