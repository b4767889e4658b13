#pragma once
// The screenshot harness: one scene of the sample session rendered offscreen to a PNG, with a
// pinned font, scale, locale, time zone and moment, so that a scene always looks the same. Its
// contract is for scripts: "OK <path>" and status 0, or "ERROR: <text>" and status 1.

#include <QImage>

#include <ostream>
#include <string>

#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/ui/style/Theme.h"

namespace corvane {

class DemoSession;

// The sample account reads as of this instant in every picture (Thursday 2026-06-18 15:30 UTC).
inline constexpr double kScreenshotReferenceUnixSeconds = 1'781'796'600;

// Renders `scenario` from `session` after applying it (needs a QApplication).
QImage renderScene(const ScreenshotScenarioInfo& scenario, DemoSession& session,
                   Executor& mainSequence);

// The whole run: its own QApplication, the scene, the file. `variant` pins the palette.
int runScreenshotHarness(int argc, char** argv, const ScreenshotLaunchArgs& args,
                         const std::string& version, std::ostream& out,
                         theme::Variant variant = theme::Variant::light);

}  // namespace corvane
