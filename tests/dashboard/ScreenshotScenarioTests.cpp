// Every scene of the screenshot catalogue applied to a dummy-mode model, alone and one after the
// other, checked for the state its description names.

#include <gtest/gtest.h>

#include "CorvaneApp/app/DummyDataProvider.h"
#include "CorvaneApp/dashboard/ScreenshotScenarios.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

using Progress = ModelDownloadProgress;

class ScreenshotScenarioTest : public ::testing::Test {
  protected:
    AppModel& makeModel(std::string appVersion = "0.2.0") {
        AppModel::Dependencies deps;
        deps.eligibilityGate = gate;
        deps.dataMode = DataMode::dummy;
        deps.startBackgroundTasks = false;
        deps.appVersion = appVersion;
        deps.buildMachineInfo = [appVersion] {
            AppModel::MachineInfo info;
            info.appVersion = appVersion;
            return info;
        };
        deps.loadDummyData = [this](AppModel& m) {
            ++loads;
            provider.load(m);
        };
        model.emplace(executor, std::move(deps));
        return *model;
    }

    static const ScreenshotScenarioInfo& scene(std::string_view id) {
        const auto* found = findScreenshotScenario(id);
        EXPECT_NE(found, nullptr) << id;
        return *found;
    }

    testing::ManualExecutor executor;
    std::shared_ptr<EligibilityGate> gate = EligibilityGate::create(executor, true);
    DummyDataProvider provider{dateFromUnixSeconds(1'781'771'400)};
    int loads = 0;
    std::optional<AppModel> model;
};

TEST_F(ScreenshotScenarioTest, EveryCatalogueSceneLeavesTheModelAsItsDescriptionSays) {
    const auto whisper = whisperModelIdentifier();
    using M = ScreenshotModelsState;
    for (const auto& scenario : screenshotCatalog()) {
        SCOPED_TRACE(std::string(scenario.id));
        loads = 0;
        auto& m = makeModel();
        applyScreenshotScenario(scenario, m);
        EXPECT_EQ(loads, 1) << "every scene shows the demo account";
        const bool popover = scenario.id.starts_with("popover-");
        EXPECT_EQ(
            m.requestedPage(),
            popover ? std::nullopt : std::optional<std::string>(rawValue(scenario.surface.page)));
        EXPECT_EQ(m.presentation(), scenario.status
                                        ? WorkerStatusPresentation::defaultFor(*scenario.status)
                                        : DummyDataProvider::sessionPresentation());
        EXPECT_EQ(m.isManuallyPaused(), m.status() == WorkerStatus::paused);
        EXPECT_EQ(m.latestAppVersion().has_value(), scenario.id.ends_with("update-available"));

        const auto& progress = m.modelDownloadProgress();
        EXPECT_EQ(progress.has_value(), scenario.id.starts_with("models-"));
        if (!progress) continue;
        EXPECT_EQ(progress->modelDisplayName, "Whisper large-v3 turbo");
        EXPECT_EQ(m.installedModelIDs().contains(whisper), scenario.models == M::ready);
        const auto* downloading = std::get_if<Progress::Downloading>(&progress->phase);
        EXPECT_EQ(downloading != nullptr, scenario.models == M::downloading);
        if (downloading) {
            EXPECT_LT(downloading->bytes, downloading->total.value_or(0));
        }
        EXPECT_EQ(std::holds_alternative<Progress::Failed>(progress->phase),
                  scenario.models == M::downloadFailed);
        EXPECT_EQ(std::holds_alternative<Progress::NotStarted>(progress->phase),
                  scenario.models == M::notInstalled);
    }
}

TEST_F(ScreenshotScenarioTest, ScenesAppliedInTurnDoNotLeakIntoEachOther) {
    auto& m = makeModel("0.2.9");
    applyScreenshotScenario(scene("overview-paused"), m);
    EXPECT_EQ(m.statusSubtitle(), "Paused by you");
    applyScreenshotScenario(scene("models-downloading"), m);
    EXPECT_EQ(m.status(), WorkerStatus::paused) << "the owner's pause holds on a page naming none";

    applyScreenshotScenario(scene("popover-offline"), m);
    applyScreenshotScenario(scene("models-ready"), m);
    EXPECT_FALSE(m.isManuallyPaused());
    EXPECT_EQ(m.statusLabel(), "Offline") << "the lifted pause does not come back";
    applyScreenshotScenario(scene("popover-update-available"), m);
    EXPECT_EQ(m.requestedPage(), std::nullopt);
    EXPECT_EQ(m.latestAppVersion()->version, "0.3.0");
    EXPECT_FALSE(m.updateAvailable()) << "the banner waits for an installer";
    EXPECT_EQ(loads, 1) << "the demo account is loaded once per session";
}

}  // namespace
}  // namespace corvane
