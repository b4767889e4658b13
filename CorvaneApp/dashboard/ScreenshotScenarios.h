#pragma once
// The launch switches of the screenshot harness and the catalogue of scenes it can set. Only
// read in dummy mode, so the real application has no such switch.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvane {

struct ScreenshotLaunchArgs {
    std::string scenario;
    std::optional<std::filesystem::path> captureTo;

    // Absent without a non-empty "--screen=" scenario; an empty "--capture-to=" is no path.
    static std::optional<ScreenshotLaunchArgs> parse(const std::vector<std::string>& arguments);
    friend bool operator==(const ScreenshotLaunchArgs&, const ScreenshotLaunchArgs&) = default;
};

enum class DashPage { overview, earnings, payouts, schedule, models, settings };

struct ScreenshotSurface {
    enum class Kind { dashboard, popover };
    Kind kind = Kind::popover;
    DashPage page = DashPage::overview;  // only for dashboard
    friend bool operator==(const ScreenshotSurface&, const ScreenshotSurface&) = default;
};

// One scene as data; its set-up over the app model is looked up by id.
struct ScreenshotScenarioInfo {
    std::string_view id;
    std::string_view description;
    ScreenshotSurface surface;
};

// In catalogue order, the popover scenes first.
const std::vector<ScreenshotScenarioInfo>& screenshotCatalog();
const ScreenshotScenarioInfo* findScreenshotScenario(std::string_view id);

}  // namespace corvane
