#pragma once
// The process list of a /proc tree: ids, names, states, CPU time and resident size, and what each
// process holds open. Processes that vanish or belong to other users are skipped, never errors.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace corvane {

class ProcessTable {
  public:
    struct Process {
        int processID = 0;
        std::string name;            // the kernel's short name (comm), at most 15 bytes
        char state = '?';            // 'R', 'S', 'Z' (terminated, not yet reaped), ...
        std::uint64_t cpuTicks = 0;  // user + system time, in clock ticks
        std::uint64_t residentPages = 0;
        bool isTerminated() const { return state == 'Z' || state == 'X' || state == 'x'; }
    };

    explicit ProcessTable(std::filesystem::path root = "/proc")
        : root_(std::move(root)), rootText_(root_.string()) {}

    // Calls `visit` with the id and short name of every process, until it returns false. Cheap:
    // the kernel writes the name file without walking the process's memory, as it does for stat.
    void forEachName(const std::function<bool(int processID, std::string_view name)>& visit) const;
    std::optional<Process> process(int processID) const;
    // Calls `visit` with the target of every open file of the process; stops when it returns false.
    void forEachOpenFile(int processID, const std::function<bool(std::string_view)>& visit) const;

    // Parses one /proc/<pid>/stat line; the name sits in parentheses and may itself hold spaces
    // and parentheses, so the fields are counted from the last ')'.
    static std::optional<Process> parseStat(int processID, std::string_view line);

    const std::filesystem::path& root() const { return root_; }

  private:
    // "<root>/<pid>/<leaf>" into `buffer`; false when it doesn't fit.
    template <std::size_t N>
    bool pathOf(char (&buffer)[N], int processID, const char* leaf) const;
    // Calls `visit` with each numeric entry of the root folder.
    void forEachProcessID(const std::function<bool(int)>& visit) const;

    std::filesystem::path root_;
    std::string rootText_;
};

}  // namespace corvane
