#include "CorvaneApp/eligibility/ProcessTable.h"

#include <dirent.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <memory>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

struct DirCloser {
    void operator()(DIR* dir) const { ::closedir(dir); }
};
using Dir = std::unique_ptr<DIR, DirCloser>;

std::optional<int> parseProcessID(const char* name) {
    std::string_view text(name);
    if (text.empty()) return std::nullopt;
    int value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < 1) return std::nullopt;
    return value;
}

// The `index`th space-separated field of `text` (0-based).
std::string_view field(std::string_view text, int index) {
    std::size_t pos = 0;
    for (int i = 0; i <= index; ++i) {
        while (pos < text.size() && text[pos] == ' ') ++pos;
        std::size_t end = text.find(' ', pos);
        if (end == std::string_view::npos) end = text.size();
        if (i == index) return text.substr(pos, end - pos);
        pos = end;
    }
    return {};
}

}  // namespace

std::optional<ProcessTable::Process> ProcessTable::parseStat(int processID, std::string_view line) {
    std::size_t open = line.find('(');
    std::size_t close = line.rfind(')');
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
        return std::nullopt;
    }
    Process process;
    process.processID = processID;
    process.name = std::string(line.substr(open + 1, close - open - 1));
    // After ") ": state is field 0, utime 11, stime 12, rss 21 (fields 3, 14, 15 and 24 of stat).
    std::string_view rest = line.substr(close + 1);
    std::string_view state = field(rest, 0);
    auto utime = ProcText::parseUnsigned(field(rest, 11));
    auto stime = ProcText::parseUnsigned(field(rest, 12));
    auto rss = ProcText::parseUnsigned(field(rest, 21));
    if (state.size() != 1 || !utime || !stime || !rss) return std::nullopt;
    process.state = state[0];
    process.cpuTicks = *utime + *stime;
    process.residentPages = *rss;
    return process;
}

template <std::size_t N>
bool ProcessTable::pathOf(char (&buffer)[N], int processID, const char* leaf) const {
    int length = std::snprintf(buffer, N, "%s/%d/%s", rootText_.c_str(), processID, leaf);
    return length > 0 && static_cast<std::size_t>(length) < N;
}

std::optional<ProcessTable::Process> ProcessTable::process(int processID) const {
    char path[512];
    ProcText::Buffer<1024> text;
    if (!pathOf(path, processID, "stat") || !ProcText::readInto(path, text)) return std::nullopt;
    return parseStat(processID, trimAsciiWhitespace(text.view()));
}

void ProcessTable::forEachProcessID(const std::function<bool(int)>& visit) const {
    Dir dir(::opendir(rootText_.c_str()));
    if (!dir) return;
    while (dirent* entry = ::readdir(dir.get())) {
        auto processID = parseProcessID(entry->d_name);
        if (processID && !visit(*processID)) return;
    }
}

void ProcessTable::forEachName(const std::function<bool(int, std::string_view)>& visit) const {
    char path[512];
    ProcText::Buffer<64> text;
    forEachProcessID([&](int processID) {
        if (!pathOf(path, processID, "comm") || !ProcText::readInto(path, text)) return true;
        std::string_view name = text.view();
        if (!name.empty() && name.back() == '\n') name.remove_suffix(1);
        return visit(processID, name);
    });
}

void ProcessTable::forEachOpenFile(int processID,
                                   const std::function<bool(std::string_view)>& visit) const {
    char folder[512];
    if (!pathOf(folder, processID, "fd")) return;
    Dir dir(::opendir(folder));
    if (!dir) return;  // gone, or another user's
    char path[sizeof folder + sizeof(dirent::d_name) + 1];
    char target[512];
    while (dirent* entry = ::readdir(dir.get())) {
        if (entry->d_name[0] == '.') continue;
        std::snprintf(path, sizeof path, "%s/%s", folder, entry->d_name);
        ssize_t length = ::readlink(path, target, sizeof target);
        if (length <= 0 || static_cast<std::size_t>(length) >= sizeof target) continue;
        if (!visit(std::string_view(target, static_cast<std::size_t>(length)))) return;
    }
}

}  // namespace corvane
