#include "CorvaneApp/eligibility/SystemMeetingProbe.h"

#include <array>
#include <system_error>

#include "CorvaneApp/eligibility/ProcText.h"
#include "CorvaneApp/platform/Text.h"

namespace corvane {
namespace {

// Calls `visit` for each entry of `folder` named `prefix` + digits (+ `suffix`).
template <typename Visit>
bool anyEntry(const std::filesystem::path& folder, std::string_view prefix, std::string_view suffix,
              Visit visit) {
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    if (error) return false;
    for (; it != std::filesystem::directory_iterator(); it.increment(error)) {
        if (error) return false;
        std::string name = it->path().filename().string();
        if (name.size() <= suffix.size() ||
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0) {
            continue;
        }
        if (!ProcText::isPrefixAndNumber(
                std::string_view(name).substr(0, name.size() - suffix.size()), prefix)) {
            continue;
        }
        if (visit(it->path())) return true;
    }
    return false;
}

bool substreamRunning(const std::filesystem::path& substream) {
    auto text = ProcText::readSmallFile(substream / "status", 4096);
    if (!text) return false;
    std::string_view first = *text;
    first = first.substr(0, first.find('\n'));
    return trimAsciiWhitespace(first) == "state: RUNNING";
}

}  // namespace

MeetingDetector::Snapshot SystemMeetingProbe::read() const {
    auto [camera, app] = scanProcesses(true, true);
    return {camera, microphoneInUse(), app};
}

bool SystemMeetingProbe::microphoneInUse() const {
    return anyEntry(roots_.asound, "card", "", [](const std::filesystem::path& card) {
        return anyEntry(card, "pcm", "c", [](const std::filesystem::path& pcm) {
            return anyEntry(pcm, "sub", "", substreamRunning);
        });
    });
}

bool SystemMeetingProbe::cameraInUse() const {
    return scanProcesses(true, false).first;
}

bool SystemMeetingProbe::knownMeetingAppRunning() const {
    return scanProcesses(false, true).second;
}

std::pair<bool, bool> SystemMeetingProbe::scanProcesses(bool camera, bool app) const {
    // The descriptors of every process are looked through only when a camera exists at all.
    if (camera) {
        camera =
            anyEntry(roots_.dev, "video", "", [](const std::filesystem::path&) { return true; });
    }
    std::string cameraPrefix = (roots_.dev / "video").string();
    bool cameraFound = false;
    bool appFound = false;
    processes_.forEachName([&](int processID, std::string_view name) {
        // The state is read only for a name that matches: a client that ended but isn't reaped
        // yet doesn't count.
        if (app && !appFound && isKnownMeetingApp(name)) {
            auto process = processes_.process(processID);
            appFound = process && !process->isTerminated();
        }
        if (camera && !cameraFound) {
            processes_.forEachOpenFile(processID, [&](std::string_view target) {
                cameraFound = ProcText::isPrefixAndNumber(target, cameraPrefix);
                return !cameraFound;
            });
        }
        return (camera && !cameraFound) || (app && !appFound);
    });
    return {cameraFound, appFound};
}

bool SystemMeetingProbe::isKnownMeetingApp(std::string_view processName) {
    static constexpr std::array<std::string_view, 6> kNames = {
        "zoom", "ZoomLauncher", "teams", "teams-for-linux", "webex", "CiscoCollabHost"};
    for (auto name : kNames) {
        if (processName == name) return true;
    }
    return false;
}

}  // namespace corvane
