// corvane: the worker application. With a display it lives in the tray; without one, or with
// --headless, the same worker runs on a plain main loop. `enroll` connects the computer once.

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/AppEnvironment.h"
#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/app/EnrollCommand.h"
#include "CorvaneApp/app/HeadlessRunner.h"
#include "CorvaneApp/app/OnboardingSystemCredentialStore.h"
#include "CorvaneApp/app/SignOutCommand.h"
#include "CorvaneApp/app/WorkerStatusTracker.h"
#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/KeychainStore.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/dashboard/EarningsCommand.h"
#include "CorvaneApp/demo/DemoHeadless.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "CorvaneApp/eligibility/X11Display.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/Paths.h"

namespace {

constexpr const char* kUsage =
    "usage: corvane [--headless] [--data-mode=real|dummy]\n"
    "       corvane --data-mode=dummy --screen=SCENE --capture-to=FILE.png\n"
    "       corvane enroll --coordinator URL [--token-stdin | --token-file FILE] [--schedule "
    "WHEN]\n"
    "       corvane status\n"
    "       corvane signout\n"
    "       corvane earnings [--range today|7d|30d|90d|all] [--csv FILE]\n"
    "\n"
    "  (no arguments)  run the worker: in the tray when a display is available, else headless\n"
    "  --headless      run the worker without a display, logging to stderr and the log file;\n"
    "                  SIGTERM or SIGINT stop it cleanly\n"
    "  --data-mode=dummy  show sample data instead: no coordinator, settings kept in memory\n"
    "                  (also CORVANE_DATA_MODE, or the CorvaneDataMode user default)\n"
    "  --screen, --capture-to  with demo data: render one screen offscreen to a PNG\n"
    "  enroll          connect this computer to a coordinator (see: corvane enroll --help)\n"
    "  status          print the running worker's status, job and last error\n"
    "  signout         end this computer's enrolment (config and credential removed)\n"
    "  earnings        show balances, today, a range's totals and recent jobs; --csv writes\n"
    "                  the range's daily earnings (see: corvane earnings --help)\n";

// What the running headless worker last published; absent when none is running.
std::optional<corvane::WorkerStatusRecord> runningWorker() {
    auto record = corvane::readWorkerStatusFile(corvane::workerStatusFilePath());
    const bool alive =
        record && (record->pid <= 0 || ::kill(pid_t(record->pid), 0) == 0 || errno == EPERM);
    return alive ? record : std::nullopt;
}

// Exit 3 when no worker is running.
int status() {
    try {
        const auto record = runningWorker();
        if (!record) {
            std::cout << "Corvane is not running.\n";
            return 3;
        }
        std::cout << corvane::describe(*record);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "corvane: " << error.what() << "\n";
        return 1;
    }
}

int enroll(const std::vector<std::string>& arguments) {
    corvane::OnboardingMachineFacts::Sources sources;
    sources.version = CORVANE_VERSION;
    const auto facts = corvane::OnboardingMachineFacts::read(corvane::ProcMachineProbe(), sources);
    corvane::EnrollDependencies dependencies;
    dependencies.registrationClient =
        std::make_shared<corvane::CoordinatorRegistrationClient>(facts.buildIdentity);
    dependencies.credentialStore = corvane::makeSystemCredentialStore();
    dependencies.configPath = corvane::paths::varnixDir() / "config.yaml";
    dependencies.machineFacts = [facts] { return facts; };
    return corvane::runEnrollCommand(arguments, std::cin, std::cout, std::cerr, dependencies);
}

// A display that takes clients: a Wayland socket, or an X server that accepts a connection. A
// stale DISPLAY (a remote login without forwarding) runs the worker headless instead of ending in
// Qt's "could not connect to display".
bool hasDisplay() {
    if (const char* wayland = std::getenv("WAYLAND_DISPLAY"); wayland && *wayland) {
        std::filesystem::path socket = wayland;
        const char* runtime = std::getenv("XDG_RUNTIME_DIR");
        if (socket.is_relative() && runtime) socket = std::filesystem::path(runtime) / socket;
        std::error_code error;
        if (std::filesystem::is_socket(socket, error)) return true;
    }
    return corvane::X11Display().get() != nullptr;
}

// The tray application is its own image, so that a headless worker never maps Qt and its
// libraries: next to this binary in a build tree, in libexec when installed.
std::optional<std::filesystem::path> desktopBinary() {
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) return std::nullopt;
    for (const auto& candidate :
         {self.parent_path() / "corvane-desktop",
          self.parent_path() / ".." / "libexec" / "corvane" / "corvane-desktop"}) {
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments.front() == "enroll") {
        return enroll(std::vector<std::string>(arguments.begin() + 1, arguments.end()));
    }
    if (!arguments.empty() && arguments.front() == "status") return status();
    if (!arguments.empty() && arguments.front() == "signout") {
        corvane::SignOutDependencies dependencies;
        dependencies.configPath = corvane::paths::varnixDir() / "config.yaml";
        dependencies.keychain =
            std::make_shared<corvane::KeychainStore>(corvane::chooseCredentialBackend());
        dependencies.runningWorker = []() -> std::optional<long> {
            try {
                if (auto record = runningWorker()) return record->pid;
            } catch (const std::exception&) {
                // A damaged status file says nothing of a running worker.
            }
            return std::nullopt;
        };
        return corvane::runSignOutCommand(
            std::vector<std::string>(arguments.begin() + 1, arguments.end()), std::cout, std::cerr,
            dependencies);
    }
    if (!arguments.empty() && arguments.front() == "earnings") {
        corvane::EarningsCommandDependencies dependencies;
        dependencies.coordinatorAPI = [] {
            corvane::AppEnvironment environment;  // only where the enrolment lives
            environment.configPath = corvane::paths::varnixDir() / "config.yaml";
            corvane::KeychainStore keychain(corvane::chooseCredentialBackend());
            return std::shared_ptr<const corvane::CoordinatorAPIProtocol>(
                corvane::AppSession::coordinatorAPI(environment, keychain));
        };
        return corvane::runEarningsCommand(
            std::vector<std::string>(arguments.begin() + 1, arguments.end()), std::cout, std::cerr,
            dependencies);
    }
    if (!arguments.empty() && (arguments.front() == "--help" || arguments.front() == "-h" ||
                               arguments.front() == "help")) {
        std::cout << kUsage;
        return 0;
    }
    std::map<std::string, std::string> environment;
    if (const char* mode = std::getenv("CORVANE_DATA_MODE"))
        environment["CORVANE_DATA_MODE"] = mode;
    const auto dataMode = corvane::resolveDataMode(arguments, environment, corvane::UserDefaults());
    std::vector<std::string> runArguments;  // without the demo's switches, read above
    std::optional<corvane::ScreenshotLaunchArgs> screenshot;
    if (dataMode == corvane::DataMode::dummy)
        screenshot = corvane::ScreenshotLaunchArgs::parse(arguments);
    for (const auto& argument : arguments) {
        const bool harness = screenshot && (argument.starts_with("--screen=") ||
                                            argument.starts_with("--capture-to="));
        if (!argument.starts_with("--data-mode=") && !harness) runArguments.push_back(argument);
    }
    const bool headless = !runArguments.empty() && runArguments.front() == "--headless";
    if (!runArguments.empty() && !headless) {
        std::cerr << "corvane: unknown argument " << runArguments.front() << "\n" << kUsage;
        return 2;
    }
    // The screenshot harness renders offscreen: it needs the desktop image, not a display.
    if (screenshot) ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    if (screenshot || (!headless && hasDisplay())) {
        if (const auto desktop = desktopBinary()) {
            ::execv(desktop->c_str(), argv);
            std::cerr << "corvane: cannot start the desktop application " << desktop->string()
                      << ": " << std::strerror(errno) << "; running headless\n";
        } else {
            std::cerr << "corvane: this build has no desktop application; running headless\n";
        }
        if (screenshot) {
            std::cout << "ERROR: snapshot failed for scenario " << screenshot->scenario << "\n";
            return 1;
        }
    }
    if (dataMode == corvane::DataMode::dummy) {
        // The sample session headless: its rhythm in the log.
        corvane::blockTerminationSignals();
        return corvane::runDemoHeadless(CORVANE_VERSION);
    }
    // Before any thread exists, so that only the signal watcher ever receives them. (The desktop
    // application catches them with handlers instead.)
    corvane::blockTerminationSignals();
    return corvane::runHeadless(CORVANE_VERSION, std::cout, std::cerr);
}
