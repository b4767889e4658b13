#pragma once
// A fresh folder under the temp directory for one test, removed with everything in it afterwards.

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane::testing {

class ScratchFolder {
  public:
    ScratchFolder() {
        std::string pattern =
            (std::filesystem::temp_directory_path() / "corvane-test-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ScratchFolder() {
        std::error_code ignored;
        // A test may have taken its own rights away from the folder; give them back to remove it.
        std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ignored);
        std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

    // Writes `bytes` to `name` (parent folders included) and returns the path.
    std::filesystem::path write(std::string_view name, std::string_view bytes) const {
        auto file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        writeFileAtomically(file, bytes);
        return file;
    }

  private:
    std::filesystem::path path_;
};

}  // namespace corvane::testing
