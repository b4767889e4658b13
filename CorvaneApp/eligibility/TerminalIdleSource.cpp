#include "CorvaneApp/eligibility/TerminalIdleSource.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <system_error>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// The newest access time, in Unix seconds, of the entries of `folder` named `prefix` + digits.
void newestAccess(const std::filesystem::path& folder, std::string_view prefix,
                  std::optional<double>& newest) {
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error) return;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) return;
        std::string name = it->path().filename().string();
        if (!ProcText::isPrefixAndNumber(name, prefix)) continue;
        struct stat info {};
        if (::stat(it->path().c_str(), &info) != 0) continue;
        double accessed = static_cast<double>(info.st_atim.tv_sec) +
                          static_cast<double>(info.st_atim.tv_nsec) / 1e9;
        if (!newest || accessed > *newest) newest = accessed;
    }
}

}  // namespace

std::optional<double> TerminalIdleSource::idleSeconds() {
    std::optional<double> newest;
    newestAccess(devRoot_ / "pts", "", newest);
    newestAccess(devRoot_, "tty", newest);
    if (newest) return std::max(0.0, unixSeconds(now_()) - *newest);
    return secondsSinceBoot();
}

std::optional<double> TerminalIdleSource::secondsSinceBoot() const {
    auto text = ProcText::readSmallFile(uptimeFile_, 256);
    if (!text) return std::nullopt;
    std::string_view line = trimAsciiWhitespace(*text);
    auto uptime = ProcText::parseDouble(line.substr(0, line.find(' ')));
    if (!uptime || *uptime < 0) return std::nullopt;
    return *uptime;
}

}  // namespace corvane
