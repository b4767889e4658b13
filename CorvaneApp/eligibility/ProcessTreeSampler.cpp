#include "CorvaneApp/eligibility/ProcessTreeSampler.h"

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <string>
#include <unordered_set>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/eligibility/ProcessTable.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

std::optional<int> parseID(std::string_view text) {
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < 1)
        return std::nullopt;
    return value;
}

// The space-separated ids of a children file.
void appendIDs(std::string_view text, std::vector<int>& out) {
    while (!text.empty()) {
        const auto start = text.find_first_not_of(" \n");
        if (start == std::string_view::npos) break;
        text.remove_prefix(start);
        const auto end = std::min(text.find_first_of(" \n"), text.size());
        if (auto id = parseID(text.substr(0, end))) out.push_back(*id);
        text.remove_prefix(end);
    }
}

// The parent id of a stat line: the second field after the name's closing parenthesis.
std::optional<int> parentID(std::string_view line) {
    const auto close = line.rfind(')');
    if (close == std::string_view::npos) return std::nullopt;
    std::string_view rest = line.substr(close + 1);
    const auto state = rest.find_first_not_of(' ');
    if (state == std::string_view::npos) return std::nullopt;
    rest.remove_prefix(state);
    const auto space = rest.find(' ');
    if (space == std::string_view::npos) return std::nullopt;
    rest = trimAsciiWhitespace(rest.substr(space));
    return parseID(rest.substr(0, rest.find(' ')));
}

}  // namespace

ProcessTreeSampler::Options ProcessTreeSampler::systemOptions() {
    Options options;
    if (long ticks = ::sysconf(_SC_CLK_TCK); ticks > 0) options.ticksPerSecond = ticks;
    if (long page = ::sysconf(_SC_PAGESIZE); page > 0) options.pageSize = page;
    return options;
}

ProcessTreeSampler::ProcessTreeSampler(Options options) : options_(std::move(options)) {
    if (options_.ticksPerSecond <= 0) options_.ticksPerSecond = 100;
    if (options_.pageSize <= 0) options_.pageSize = 4096;
}

std::optional<std::vector<int>> ProcessTreeSampler::listAllPIDs() const {
    Dir dir(::opendir(options_.procRoot.c_str()));
    if (!dir) return std::nullopt;
    std::vector<int> ids;
    while (dirent* entry = ::readdir(dir.get())) {
        if (auto id = parseID(entry->d_name)) ids.push_back(*id);
    }
    if (ids.empty()) return std::nullopt;
    return ids;
}

std::unordered_map<int, std::vector<int>> ProcessTreeSampler::childrenByScan() const {
    std::unordered_map<int, std::vector<int>> children;
    for (int id : listAllPIDs().value_or(std::vector<int>{})) {
        const std::string path = (options_.procRoot / std::to_string(id) / "stat").string();
        ProcText::Buffer<1024> text;
        if (!ProcText::readInto(path.c_str(), text)) continue;
        if (auto parent = parentID(text.view())) children[*parent].push_back(id);
    }
    return children;
}

void ProcessTreeSampler::collectDescendants(
    int processID, std::vector<int>& out,
    const std::unordered_map<int, std::vector<int>>* scanned) const {
    std::vector<int> children;
    if (scanned) {
        if (auto it = scanned->find(processID); it != scanned->end()) children = it->second;
    } else {
        // Each thread lists the children it started.
        const std::filesystem::path taskDir =
            options_.procRoot / std::to_string(processID) / "task";
        Dir dir(::opendir(taskDir.c_str()));
        if (!dir) return;
        while (dirent* entry = ::readdir(dir.get())) {
            if (!parseID(entry->d_name)) continue;
            const std::string path = (taskDir / entry->d_name / "children").string();
            ProcText::Buffer<4096> text;
            if (ProcText::readInto(path.c_str(), text)) appendIDs(text.view(), children);
        }
    }
    for (int child : children) {
        // A malformed tree could loop; each id is taken once.
        if (child == processID || std::find(out.begin(), out.end(), child) != out.end()) continue;
        out.push_back(child);
        collectDescendants(child, out, scanned);
    }
}

std::vector<int> ProcessTreeSampler::descendants(int processID) const {
    std::vector<int> out;
    const std::string probe = (options_.procRoot / std::to_string(processID) / "task" /
                               std::to_string(processID) / "children")
                                  .string();
    if (::access(probe.c_str(), R_OK) == 0) {
        collectDescendants(processID, out, nullptr);
    } else {
        const auto scanned = childrenByScan();
        collectDescendants(processID, out, &scanned);
    }
    return out;
}

std::vector<int> ProcessTreeSampler::corvanePIDs(int rootPID) const {
    std::vector<int> ids{rootPID};
    for (int id : descendants(rootPID)) {
        if (id != rootPID) ids.push_back(id);
    }
    std::error_code error;
    if (!options_.runtimeDir || !std::filesystem::is_directory(*options_.runtimeDir, error))
        return ids;
    // Walking every process is the costly part, so it happens only while the folder exists.
    std::string prefix = options_.runtimeDir->lexically_normal().string();
    if (!prefix.ends_with('/')) prefix += '/';
    char target[1024];
    for (int id : listAllPIDs().value_or(std::vector<int>{})) {
        if (std::find(ids.begin(), ids.end(), id) != ids.end()) continue;
        const std::string link = (options_.procRoot / std::to_string(id) / "exe").string();
        const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
        if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) continue;
        if (std::string_view(target, static_cast<std::size_t>(length)).starts_with(prefix))
            ids.push_back(id);
    }
    return ids;
}

std::optional<ResourceSampler::TreeUsage> ProcessTreeSampler::sample(std::optional<int> daemonPID) {
    if (!daemonPID || *daemonPID < 1) {
        lastTicksByPID_.clear();
        lastSampleTime_.reset();
        return ResourceSampler::TreeUsage{};
    }
    const ProcessTable table(options_.procRoot);
    const auto root = table.process(*daemonPID);
    if (!root) return std::nullopt;  // the tick reports nothing rather than a partial tree

    const Date now = options_.now();
    const double elapsed = lastSampleTime_ ? secondsBetween(*lastSampleTime_, now) : 0.0;
    lastSampleTime_ = now;

    const double nanosPerTick = 1e9 / static_cast<double>(options_.ticksPerSecond);
    std::unordered_map<int, std::uint64_t> ticksByPID;
    std::uint64_t residentPages = 0;
    double busyNanos = 0;
    for (int id : corvanePIDs(*daemonPID)) {
        const auto process = id == *daemonPID ? root : table.process(id);
        if (!process) continue;
        ticksByPID[id] = process->cpuTicks;
        residentPages += process->residentPages;
        if (auto old = lastTicksByPID_.find(id); old != lastTicksByPID_.end()) {
            // Ticks that went backwards mean a reused id: it counts for nothing this time.
            if (process->cpuTicks >= old->second)
                busyNanos += static_cast<double>(process->cpuTicks - old->second) * nanosPerTick;
        } else if (elapsed > 0) {
            // A child born in this interval can't be charged with more than the interval.
            busyNanos +=
                std::min(static_cast<double>(process->cpuTicks) * nanosPerTick, elapsed * 1e9);
        }
    }
    lastTicksByPID_ = std::move(ticksByPID);

    ResourceSampler::TreeUsage usage;
    usage.residentMB =
        static_cast<double>(residentPages) * static_cast<double>(options_.pageSize) / 1048576.0;
    usage.cpuPercent = elapsed > 0 ? busyNanos / (elapsed * 1e9) * 100.0 : 0.0;
    return usage;
}

}  // namespace corvane
