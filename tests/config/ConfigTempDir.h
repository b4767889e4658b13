#pragma once
// A fresh folder under the temp dir for one test, removed with everything in it afterwards.

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include <stdlib.h>

#include "CorvaneApp/platform/AtomicFile.h"

namespace corvane::testing {

class ConfigTempDir {
public:
    ConfigTempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "corvane-config-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
        path_ = pattern;
    }
    ~ConfigTempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    ConfigTempDir(const ConfigTempDir&) = delete;
    ConfigTempDir& operator=(const ConfigTempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path operator/(std::string_view name) const { return path_ / name; }
    std::filesystem::path write(std::string_view name, std::string_view text) const {
        auto file = path_ / name;
        std::filesystem::create_directories(file.parent_path());
        writeFileAtomically(file, text);
        return file;
    }

private:
    std::filesystem::path path_;
};

}  // namespace corvane::testing
