// corvane-desktop: the tray application. `corvane` starts it in its own place when a display is
// there, so that only this image loads Qt; a headless worker stays small.

#include <memory>
#include <string>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/platform/Log.h"
#include "CorvaneApp/ui/DesktopApp.h"

namespace {

// The application as the tray sees it: the model's status words, read at every refresh.
class AppDesktopSession final : public corvane::DesktopSession {
  public:
    explicit AppDesktopSession(corvane::Executor& main)
        : session_(main, corvane::AppEnvironment::system(CORVANE_VERSION)) {
        session_.launch();
    }
    corvane::TrayStatus trayStatus() override {
        const auto p = session_.refreshedPresentation();
        return {p.label + " — " + session_.statusSubtitle(), p.tooltip,
                std::string(corvane::rawValue(p.status))};
    }
    void openDashboard() override {}
    void showPreferences() override {}
    void about() override { corvane::log::get("corvane")->info("Corvane {}", CORVANE_VERSION); }
    void shutdown() override { session_.terminate(); }

  private:
    corvane::AppSession session_;
};

}  // namespace

int main(int argc, char** argv) {
    return corvane::runDesktop(
        argc, argv, [](corvane::Executor& main) -> std::unique_ptr<corvane::DesktopSession> {
            return std::make_unique<AppDesktopSession>(main);
        });
}
