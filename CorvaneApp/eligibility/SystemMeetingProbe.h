#pragma once
// The machine's meeting signals: a capture stream of the sound card running (ALSA's
// /proc/asound), a /dev/video* device held open by a process, and a known meeting client
// running.

#include <filesystem>
#include <string_view>
#include <utility>

#include "CorvaneApp/eligibility/MeetingDetector.h"
#include "CorvaneApp/eligibility/ProcessTable.h"

namespace corvane {

// Where the probe looks; a test points these at a fixture tree.
struct MeetingProbeRoots {
    std::filesystem::path proc = "/proc";
    std::filesystem::path asound = "/proc/asound";
    std::filesystem::path dev = "/dev";
};

class SystemMeetingProbe {
  public:
    using Roots = MeetingProbeRoots;

    explicit SystemMeetingProbe(Roots roots = {})
        : roots_(std::move(roots)), processes_(roots_.proc) {}

    MeetingDetector::Snapshot read() const;

    // A capture substream (card*/pcm*c/sub*/status) says "state: RUNNING". Unreadable or odd
    // files read as not running: a failed signal leans towards working.
    bool microphoneInUse() const;
    // Some process holds a /dev/video* device open. Only processes whose descriptors we may read
    // are seen, which covers the user's own call clients.
    bool cameraInUse() const;
    bool knownMeetingAppRunning() const;

    // The meeting clients by their Linux process names. The desktop clients known elsewhere by
    // bundle identifier map as: Zoom -> "zoom", "ZoomLauncher"; Teams -> "teams",
    // "teams-for-linux" (the community client that replaced the retired Linux one); Webex ->
    // "webex", "CiscoCollabHost". FaceTime has no Linux client.
    static bool isKnownMeetingApp(std::string_view processName);

  private:
    // One pass over the processes for both signals: {camera held open, meeting client running}.
    std::pair<bool, bool> scanProcesses(bool camera, bool app) const;

    Roots roots_;
    ProcessTable processes_;
};

}  // namespace corvane
