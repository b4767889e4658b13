// corvane: the worker application. With a display it lives in the tray; without one, or with
// --headless, the same worker runs on a plain main loop. `enroll` connects the computer once.

#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/EnrollCommand.h"
#include "CorvaneApp/app/HeadlessRunner.h"
#include "CorvaneApp/app/OnboardingSystemCredentialStore.h"
#include "CorvaneApp/models/ProcMachineProbe.h"
#include "CorvaneApp/platform/Paths.h"
#ifdef CORVANE_HAS_DESKTOP
#include "CorvaneApp/app/AppDelegate.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/DesktopApp.h"
#endif

namespace {

constexpr const char* kUsage =
    "usage: corvane [--headless]\n"
    "       corvane enroll --coordinator URL [--token-stdin | --token-file FILE] [--schedule WHEN]\n"
    "\n"
    "  (no arguments)  run the worker: in the tray when a display is available, else headless\n"
    "  --headless      run the worker without a display, logging to stderr and the log file;\n"
    "                  SIGTERM or SIGINT stop it cleanly\n"
    "  enroll          connect this computer to a coordinator (see: corvane enroll --help)\n";

int enroll(const std::vector<std::string>& arguments) {
    corvane::OnboardingMachineFacts::Sources sources;
    sources.version = CORVANE_VERSION;
    const auto facts = corvane::OnboardingMachineFacts::read(corvane::ProcMachineProbe(), sources);
    corvane::EnrollDependencies dependencies;
    dependencies.registrationClient = std::make_shared<corvane::CoordinatorRegistrationClient>(facts.buildIdentity);
    dependencies.credentialStore = corvane::makeSystemCredentialStore();
    dependencies.configPath = corvane::paths::varnixDir() / "config.yaml";
    dependencies.machineFacts = [facts] { return facts; };
    return corvane::runEnrollCommand(arguments, std::cin, std::cout, std::cerr, dependencies);
}

#ifdef CORVANE_HAS_DESKTOP
bool hasDisplay() {
    auto set = [](const char* name) {
        const char* value = std::getenv(name);
        return value && *value;
    };
    return set("DISPLAY") || set("WAYLAND_DISPLAY");
}

// The application as the tray sees it. The full status words arrive with the app model; until
// then the line says what the worker is doing in plain terms.
class AppDesktopSession final : public corvane::DesktopSession {
public:
    explicit AppDesktopSession(corvane::Executor& main)
        : delegate_(corvane::AppDelegate::create(main, corvane::AppEnvironment::system(CORVANE_VERSION))) {
        delegate_->launch();
    }
    corvane::TrayStatus trayStatus() override {
        const auto& bridge = delegate_->workerBridge();
        std::string line;
        std::string icon;
        if (!bridge) {
            line = delegate_->isWorkerEnrolled() ? "Starting" : "Not enrolled: run corvane enroll";
            icon = "notEnrolled";
        } else if (delegate_->modelFailure()) {
            line = "Model download failed";
            icon = "error";
        } else if (!delegate_->modelReady()) {
            line = "Preparing the model";
            icon = "idle";
        } else if (auto reason = delegate_->eligibilityGate().reason()) {
            line = "Paused: " + *reason;
            icon = "paused";
        } else if (bridge->hasActiveJob()) {
            line = "Working";
            icon = "earning";
        } else {
            line = "Waiting for work";
            icon = "idle";
        }
        return {line, "Corvane: " + line, icon};
    }
    void openDashboard() override {}
    void showPreferences() override {}
    void about() override { corvane::log::get("corvane")->info("Corvane {}", CORVANE_VERSION); }
    void shutdown() override { delegate_->terminate(); }

private:
    std::shared_ptr<corvane::AppDelegate> delegate_;
};
#endif

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (!arguments.empty() && arguments.front() == "enroll") {
        return enroll(std::vector<std::string>(arguments.begin() + 1, arguments.end()));
    }
    if (!arguments.empty() && (arguments.front() == "--help" || arguments.front() == "-h" || arguments.front() == "help")) {
        std::cout << kUsage;
        return 0;
    }
    const bool headless = !arguments.empty() && arguments.front() == "--headless";
    if (!arguments.empty() && !headless) {
        std::cerr << "corvane: unknown argument " << arguments.front() << "\n" << kUsage;
        return 2;
    }
#ifdef CORVANE_HAS_DESKTOP
    if (!headless && hasDisplay()) {
        return corvane::runDesktop(argc, argv, [](corvane::Executor& main) -> std::unique_ptr<corvane::DesktopSession> {
            return std::make_unique<AppDesktopSession>(main);
        });
    }
#endif
    // Before any thread exists, so that only the signal watcher ever receives them. (The desktop
    // path catches them with handlers instead.)
    corvane::blockTerminationSignals();
    return corvane::runHeadless(CORVANE_VERSION, std::cout, std::cerr);
}
