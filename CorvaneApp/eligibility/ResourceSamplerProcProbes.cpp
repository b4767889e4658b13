#include "CorvaneApp/eligibility/ResourceSamplerProcProbes.h"
#include "CorvaneApp/platform/Text.h"

#include <unistd.h>

#include <cmath>
#include <string>

namespace corvane {
namespace {

// Calls `visit` for each line of `text` that starts with "cpu".
template <typename Visit>
void forEachCpuLine(std::string_view text, Visit visit) {
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        if (line.starts_with("cpu")) visit(line);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

}  // namespace

ResourceSamplerProcProbes::ResourceSamplerProcProbes(Options options)
    : options_(std::move(options)), tree_([this] {
          ProcessTreeSampler::Options tree = options_.tree;
          tree.procRoot = options_.procRoot;
          return tree;
      }()) {}

std::optional<CpuTickSet> ResourceSamplerProcProbes::parseCpuLine(std::string_view line) {
    // "cpu  user nice system idle iowait ..." or "cpu3 ...".
    const auto space = line.find(' ');
    if (!line.starts_with("cpu") || space == std::string_view::npos) return std::nullopt;
    std::string_view rest = line.substr(space);
    std::uint64_t values[4];
    for (auto& value : values) {
        const auto start = rest.find_first_not_of(' ');
        if (start == std::string_view::npos) return std::nullopt;
        rest.remove_prefix(start);
        const auto end = std::min(rest.find(' '), rest.size());
        auto parsed = ProcText::parseUnsigned(rest.substr(0, end));
        if (!parsed) return std::nullopt;
        value = *parsed;
        rest.remove_prefix(end);
    }
    return CpuTickSet{values[0], values[1], values[2], values[3]};
}

std::optional<int> ResourceSamplerProcProbes::countCpuList(std::string_view list) {
    list = trimAsciiWhitespace(list);
    if (list.empty()) return std::nullopt;
    int count = 0;
    while (!list.empty()) {
        const auto comma = std::min(list.find(','), list.size());
        const std::string_view range = list.substr(0, comma);
        const auto dash = range.find('-');
        auto first = ProcText::parseUnsigned(range.substr(0, dash));
        auto last = dash == std::string_view::npos
                        ? first
                        : ProcText::parseUnsigned(range.substr(dash + 1));
        if (!first || !last || *last < *first || *last - *first > 65536) return std::nullopt;
        count += static_cast<int>(*last - *first + 1);
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return count;
}

bool ResourceSamplerProcProbes::readStat() {
    const std::string path = (options_.procRoot / "stat").string();
    return ProcText::readInto(path.c_str(), stat_);
}

std::optional<CpuTickSet> ResourceSamplerProcProbes::machineTicks() {
    if (!readStat()) return std::nullopt;
    const std::string_view text = stat_.view();
    if (!text.starts_with("cpu ")) return std::nullopt;
    return parseCpuLine(text.substr(0, text.find('\n')));
}

std::optional<std::vector<CpuTickSet>> ResourceSamplerProcProbes::perCoreTicks() {
    if (!readStat()) return std::nullopt;
    std::vector<CpuTickSet> cores;
    bool malformed = false;
    forEachCpuLine(stat_.view(), [&](std::string_view line) {
        if (line.starts_with("cpu ")) return;
        if (auto ticks = parseCpuLine(line)) {
            cores.push_back(*ticks);
        } else {
            malformed = true;
        }
    });
    if (malformed || cores.empty()) return std::nullopt;
    return cores;
}

std::optional<int> ResourceSamplerProcProbes::performanceCoreCount() {
    // Hybrid processors list their big cores under cpu_core; machines with one kind have no such
    // file.
    auto text = ProcText::readSmallFile(options_.sysRoot / "devices" / "cpu_core" / "cpus");
    if (!text) return std::nullopt;
    return countCpuList(*text);
}

std::optional<ResourceSampler::MachineMemory> ResourceSamplerProcProbes::memory() {
    const std::string path = (options_.procRoot / "meminfo").string();
    ProcText::Buffer<16 * 1024> text;
    if (!ProcText::readInto(path.c_str(), text)) return std::nullopt;
    const auto total = ProcText::meminfoKilobytes(text.view(), "MemTotal");
    const auto available = ProcText::meminfoKilobytes(text.view(), "MemAvailable");
    if (!total || !available || *total == 0 || *available > *total) return std::nullopt;
    const double totalBytes = static_cast<double>(*total) * 1024.0;
    const double usedBytes = static_cast<double>(*total - *available) * 1024.0;
    return ResourceSampler::MachineMemory{usedBytes / totalBytes * 100.0,
                                          std::ldexp(totalBytes, -30)};
}

std::optional<ResourceSampler::TreeUsage> ResourceSamplerProcProbes::processTree(int rootPID) {
    return tree_.sample(rootPID);
}

int ResourceSamplerProcProbes::processorCount() {
    auto cores = perCoreTicks();
    if (cores && !cores->empty()) return static_cast<int>(cores->size());
    const long online = ::sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<int>(online) : 1;
}

}  // namespace corvane
