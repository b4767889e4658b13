#pragma once
// A throw-away folder tree for the probes of /proc, /sys and /dev: files, symlinks and
// "unreadable" entries (a folder where a file is expected, which fails to read even as root).

#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/support/ScratchFolder.h"

namespace corvane::testing {

class FixtureTree : public ScratchFolder {
  public:
    using ScratchFolder::path;
    std::filesystem::path path(const std::string& relative) const { return path() / relative; }

    std::filesystem::path folder(const std::string& relative) {
        auto target = path(relative);
        std::filesystem::create_directories(target);
        return target;
    }
    // Where a file should be, a folder: every read of it fails.
    void unreadable(const std::string& relative) {
        std::error_code ignored;
        std::filesystem::remove(path(relative), ignored);
        folder(relative);
    }
    void symlink(const std::string& relative, const std::filesystem::path& target) {
        auto link = path(relative);
        std::filesystem::create_directories(link.parent_path());
        std::filesystem::create_symlink(target, link);
    }
    void remove(const std::string& relative) { std::filesystem::remove_all(path(relative)); }

    // proc/<pid>/comm and stat as the kernel writes them: CPU in clock ticks (user time), RSS in
    // pages.
    void process(int pid, const std::string& name, char state = 'S', std::uint64_t ticks = 0,
                 std::uint64_t rssPages = 0) {
        write("proc/" + std::to_string(pid) + "/comm", name + "\n");
        write("proc/" + std::to_string(pid) + "/stat",
              std::to_string(pid) + " (" + name + ") " + state + " 1 1 1 0 -1 0 0 0 0 0 " +
                  std::to_string(ticks) + " 0 0 0 20 0 1 0 100 1000 " + std::to_string(rssPages) +
                  " 0\n");
    }
};

}  // namespace corvane::testing
