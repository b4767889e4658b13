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
        std::string name;          // the kernel's short name (comm), at most 15 bytes
        char state = '?';          // 'R', 'S', 'Z' (terminated, not yet reaped), ...
        std::uint64_t cpuTicks = 0;  // user + system time, in clock ticks
        std::uint64_t residentPages = 0;
        bool isTerminated() const { return state == 'Z' || state == 'X' || state == 'x'; }
    };

    explicit ProcessTable(std::filesystem::path root = "/proc") : root_(std::move(root)) {}

    // Calls `visit` for every process whose stat line parses; stops early when it returns false.
    void forEach(const std::function<bool(const Process&)>& visit) const;
    std::optional<Process> process(int processID) const;
    // Calls `visit` with the target of every open file of the process; stops when it returns false.
    void forEachOpenFile(int processID, const std::function<bool(std::string_view)>& visit) const;

    // Parses one /proc/<pid>/stat line; the name sits in parentheses and may itself hold spaces
    // and parentheses, so the fields are counted from the last ')'.
    static std::optional<Process> parseStat(int processID, std::string_view line);

    const std::filesystem::path& root() const { return root_; }

private:
    std::filesystem::path root_;
};

}  // namespace corvane
