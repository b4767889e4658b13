#pragma once
// The launch switches of the screenshot harness and the catalogue of scenes it can set. Only
// read in dummy mode, so the real application has no such switch.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CorvaneApp/app/DashPage.h"
#include "CorvaneApp/app/OnboardingViewModel.h"
#include "CorvaneApp/app/WorkerStatus.h"

namespace corvane {

class AppModel;
class DemoSession;

struct ScreenshotLaunchArgs {
    std::string scenario;
    std::optional<std::filesystem::path> captureTo;

    // Absent without a non-empty "--screen=" scenario; an empty "--capture-to=" is no path.
    static std::optional<ScreenshotLaunchArgs> parse(const std::vector<std::string>& arguments);
    friend bool operator==(const ScreenshotLaunchArgs&, const ScreenshotLaunchArgs&) = default;
};

// Where Whisper stands on the models page of a scene.
enum class ScreenshotModelsState { ready, downloading, notInstalled, downloadFailed };

struct ScreenshotSurface {
    enum class Kind { dashboard, popover, onboarding };
    Kind kind = Kind::popover;
    DashPage page = DashPage::overview;  // only for dashboard
    // Only for onboarding: the step the window shows, reached through the sample coordinator,
    // and an invitation code sent from Advanced on the way (empty: none).
    OnboardingStep onboardingStep = OnboardingStep::welcome;
    std::string_view invitationCode = {};
    friend bool operator==(const ScreenshotSurface&, const ScreenshotSurface&) = default;
};

// One scene as data: where it is shown and what its set-up changes on the app model.
struct ScreenshotScenarioInfo {
    std::string_view id;
    std::string_view description;
    ScreenshotSurface surface;
    std::optional<WorkerStatus> status;  // shown with that status's own words
    bool offersUpdate = false;           // a newer published version is known
    std::optional<ScreenshotModelsState> models;
    // What else the scene sets on the sample session (its account, settings or defaults), after
    // the rest; the page shown may then arrange itself for the scene (DashboardPage::prepareScene).
    void (*prepare)(DemoSession& session) = nullptr;
};

// In catalogue order, the popover scenes first.
const std::vector<ScreenshotScenarioInfo>& screenshotCatalog();
const ScreenshotScenarioInfo* findScreenshotScenario(std::string_view id);

// One step of the owner's walk through onboarding towards the scene's step (and its invitation
// code); false once the window shows the scene. Each step's answer lands on the main sequence,
// which must run between calls. Throws when a refusal stops the walk short of the scene.
bool advanceOnboardingScene(const ScreenshotSurface& surface, OnboardingViewModel& model);

// Sets the sample session's model up for the scene: the page it asks for, the demo account
// (fetched once), then the scene's status, update and model state. A scene that names no status
// keeps the one the model has; a paused scene is the owner's own pause, and any other status lifts
// it.
void applyScreenshotScenario(const ScreenshotScenarioInfo& scenario, AppModel& model);
// The same, with the sample coordinator publishing the update the scene shows (asked again, it
// would otherwise answer the running version). The scene's own `prepare` is the caller's to run,
// once the account's answers have landed.
void applyScreenshotScenario(const ScreenshotScenarioInfo& scenario, DemoSession& session);

}  // namespace corvane
