// The desktop entry with a scripted session, for the tray smoke test: what the application shell
// will do, without the worker. Usage: ui_smoke_app <folder>
//   <folder>/status       three lines, read at every refresh: status line, tooltip, glyph name
//   <folder>/fail-session present: building the session fails
//   <folder>/shutdown     a line appended each time shutdown() runs
// Each call of the session is also printed to stdout as "event <name>".

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "CorvaneApp/ui/DesktopApp.h"

namespace {

void announce(const char* event) {
    std::printf("event %s\n", event);
    std::fflush(stdout);
}

class ScriptedSession final : public corvane::DesktopSession {
  public:
    ScriptedSession(std::filesystem::path folder, corvane::Executor& mainSequence)
        : folder_(std::move(folder)) {
        mainSequence.post([] { announce("ready"); });  // so the test knows the loop runs
    }
    corvane::TrayStatus trayStatus() override {
        corvane::TrayStatus status;
        std::ifstream in(folder_ / "status");
        std::getline(in, status.statusLine);
        std::getline(in, status.tooltip);
        std::getline(in, status.iconName);
        return status;
    }
    void openDashboard() override { announce("openDashboard"); }
    void showPreferences() override { announce("showPreferences"); }
    void about() override { announce("about"); }
    void shutdown() override { std::ofstream(folder_ / "shutdown", std::ios::app) << "shutdown\n"; }

  private:
    std::filesystem::path folder_;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) return 2;
    const std::filesystem::path folder = argv[1];
    corvane::DesktopOptions options;
    options.statusRefreshSeconds = 0.1;  // quick, so a status change shows without a long wait
    return corvane::runDesktop(
        argc, argv,
        [&](corvane::Executor& mainSequence) -> std::unique_ptr<corvane::DesktopSession> {
            if (std::filesystem::exists(folder / "fail-session")) {
                throw std::runtime_error("the scripted session was told to fail");
            }
            return std::make_unique<ScriptedSession>(folder, mainSequence);
        },
        options);
}
