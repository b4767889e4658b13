#include "CorvaneApp/dashboard/ScreenshotScenarios.h"

#include <algorithm>

namespace corvane {

std::optional<ScreenshotLaunchArgs> ScreenshotLaunchArgs::parse(const std::vector<std::string>& arguments) {
    constexpr std::string_view screen = "--screen=";
    constexpr std::string_view capture = "--capture-to=";
    std::string scenario;
    std::optional<std::filesystem::path> captureTo;
    for (const auto& argument : arguments) {
        if (argument.starts_with(screen)) {
            scenario = argument.substr(screen.size());
        } else if (argument.starts_with(capture)) {
            auto path = argument.substr(capture.size());
            captureTo = path.empty() ? std::nullopt : std::optional<std::filesystem::path>(path);
        }
    }
    if (scenario.empty()) return std::nullopt;
    return ScreenshotLaunchArgs{std::move(scenario), std::move(captureTo)};
}

const std::vector<ScreenshotScenarioInfo>& screenshotCatalog() {
    using K = ScreenshotSurface::Kind;
    constexpr ScreenshotSurface popover{K::popover, DashPage::overview};
    auto page = [](DashPage p) { return ScreenshotSurface{K::dashboard, p}; };
    static const std::vector<ScreenshotScenarioInfo> catalog{
        {"popover-earning", "Tray popover — earning, no update banner.", popover},
        {"popover-idle", "Tray popover — idle (online, no jobs).", popover},
        {"popover-paused", "Tray popover — paused by user.", popover},
        {"popover-scheduled", "Tray popover — outside allowed hours.", popover},
        {"popover-throttled", "Tray popover — CPU cap reached.", popover},
        {"popover-offline", "Tray popover — no internet connection.", popover},
        {"popover-updating", "Tray popover — installing update.", popover},
        {"popover-update-available", "Tray popover — earning with an update banner.", popover},
        {"overview-earning", "Overview page — earning, steady state.", page(DashPage::overview)},
        {"overview-paused", "Overview page — paused by user.", page(DashPage::overview)},
        {"overview-update-available", "Overview page — update banner shown.", page(DashPage::overview)},
        {"earnings-default", "Earnings page — populated dummy data.", page(DashPage::earnings)},
        {"models-ready", "Models page — Whisper installed and ready.", page(DashPage::models)},
        {"models-downloading", "Models page — Whisper mid-download.", page(DashPage::models)},
        {"models-not-installed", "Models page — Whisper not yet installed.", page(DashPage::models)},
        {"models-download-failed", "Models page — Whisper download failed, retry offered.", page(DashPage::models)},
        {"schedule-default", "Schedule & limits page — default recommended.", page(DashPage::schedule)},
        {"payouts-default", "Payouts page — no method attached yet.", page(DashPage::payouts)},
        {"settings-default", "Settings page — default.", page(DashPage::settings)},
    };
    return catalog;
}

const ScreenshotScenarioInfo* findScreenshotScenario(std::string_view id) {
    const auto& catalog = screenshotCatalog();
    auto it = std::find_if(catalog.begin(), catalog.end(), [&](const auto& s) { return s.id == id; });
    return it == catalog.end() ? nullptr : &*it;
}

}  // namespace corvane
