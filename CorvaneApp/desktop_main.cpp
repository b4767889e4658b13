// corvane-desktop: the tray application. `corvane` starts it in its own place when a display is
// there (and for the screenshot harness), so that only this image loads Qt; a headless worker
// stays small.

#include <cstdlib>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "CorvaneApp/app/AppSession.h"
#include "CorvaneApp/config/DataMode.h"
#include "CorvaneApp/config/UserDefaults.h"
#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/ui/harness/ScreenshotHarness.h"
#include "CorvaneApp/ui/shell/DesktopApp.h"

int main(int argc, char** argv) {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    std::map<std::string, std::string> environment;
    if (const char* mode = std::getenv("CORVANE_DATA_MODE"))
        environment["CORVANE_DATA_MODE"] = mode;
    const std::string version = CORVANE_VERSION;
    // The session's sources are chosen here, once: the sample account or the real one.
    if (corvane::resolveDataMode(arguments, environment, corvane::UserDefaults()) ==
        corvane::DataMode::dummy) {
        if (auto screenshot = corvane::ScreenshotLaunchArgs::parse(arguments)) {
            const char* palette = std::getenv("CORVANE_SCREENSHOT_PALETTE");
            const auto variant = palette && std::string(palette) == "dark"
                                     ? corvane::theme::Variant::dark
                                     : corvane::theme::Variant::light;
            return corvane::runScreenshotHarness(argc, argv, *screenshot, version, std::cout,
                                                 variant);
        }
        return corvane::runDesktop(argc, argv,
                                   [version](corvane::Executor& main) {
                                       corvane::DemoSession::Options options;
                                       options.version = version;
                                       return std::make_unique<corvane::DemoSession>(
                                           main, std::move(options));
                                   },
                                   {version});
    }
    return corvane::runDesktop(argc, argv,
                               [version](corvane::Executor& main) {
                                   return std::make_unique<corvane::AppSession>(
                                       main, corvane::AppEnvironment::system(version));
                               },
                               {version, true});
}
