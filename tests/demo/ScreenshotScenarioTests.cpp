#include <gtest/gtest.h>

#include <map>

#include "CorvaneApp/demo/DemoSession.h"
#include "CorvaneApp/demo/DummyDataProvider.h"
#include "CorvaneApp/demo/ScreenshotScenarios.h"
#include "CorvaneApp/models/ModelCatalogue.h"
#include "tests/support/ManualExecutor.h"

namespace corvane {
namespace {

class ScreenshotScenarioTest : public ::testing::Test {
  protected:
    AppModel& makeModel(std::string appVersion = "0.2.0") {
        DemoSession::Options options;
        options.version = std::move(appVersion);
        options.referenceDate = dateFromUnixSeconds(1'781'771'400);
        options.simulateModelDownload = false;
        options.startBackgroundTasks = false;
        session.emplace(executor, std::move(options));
        AppModel& m = session->model();
        loads = 0;
        shown = false;
        watch = m.observe([this, &m](ModelParts) {
            if (!shown && m.account().heldBalance()) ++loads;
            shown = m.account().heldBalance().has_value();
        });
        return m;
    }
    void apply(std::string_view id) {
        applyScreenshotScenario(*findScreenshotScenario(id), session->model());
        executor.runUntilIdle();
    }

    testing::ManualExecutor executor;
    std::optional<DemoSession> session;
    int loads = 0;  // times the demo account came to be shown
    bool shown = false;
    Subscription watch;
};

TEST_F(ScreenshotScenarioTest, EveryCatalogueSceneLeavesTheModelAsItsDescriptionSays) {
    const auto whisper = whisperModelIdentifier();
    using M = ScreenshotModelsState;
    for (const auto& scenario : screenshotCatalog()) {
        SCOPED_TRACE(std::string(scenario.id));
        EXPECT_EQ(findScreenshotScenario(scenario.id), &scenario) << "ids are unique";
        loads = 0;
        auto& m = makeModel();
        applyScreenshotScenario(scenario, m);
        executor.runUntilIdle();
        EXPECT_EQ(loads, 1) << "every scene shows the demo account";
        const bool popover = scenario.id.starts_with("popover-");
        EXPECT_EQ(
            m.requestedPage(),
            popover ? std::nullopt : std::optional<std::string>(rawValue(scenario.surface.page)));
        EXPECT_EQ(m.presentation(), scenario.status
                                        ? WorkerStatusPresentation::defaultFor(*scenario.status)
                                        : DummyDataProvider::sessionPresentation());
        EXPECT_EQ(m.pauseControl().isManuallyPaused(), m.status() == WorkerStatus::paused);
        EXPECT_EQ(m.account().latestAppVersion().has_value(),
                  scenario.id.ends_with("update-available"));

        const auto& progress = m.modelInstall().modelDownloadProgress();
        EXPECT_EQ(progress.has_value(), scenario.id.starts_with("models-"));
        if (!progress) continue;
        EXPECT_EQ(progress->modelDisplayName, "Whisper large-v3 turbo");
        EXPECT_EQ(m.modelInstall().installedModelIDs().contains(whisper),
                  scenario.models == M::ready);
        // The phase's alternative in the progress variant: downloading, failed, not started, ready.
        const std::map<M, std::size_t> phases{
            {M::downloading, 0}, {M::downloadFailed, 1}, {M::notInstalled, 2}, {M::ready, 3}};
        EXPECT_EQ(progress->phase.index(), phases.at(*scenario.models));
    }
}

TEST_F(ScreenshotScenarioTest, ScenesAppliedInTurnDoNotLeakIntoEachOther) {
    auto& m = makeModel("0.2.9");
    apply("overview-paused");
    apply("models-downloading");
    EXPECT_EQ(m.statusSub(), "Paused by you") << "the owner's pause holds on a page naming none";
    apply("popover-offline");
    apply("models-ready");
    EXPECT_EQ(m.statusLabel(), "Offline") << "the lifted pause does not come back";
    apply("popover-update-available");
    EXPECT_EQ(m.account().latestAppVersion()->version, "0.3.0");
    EXPECT_FALSE(m.account().updateAvailable()) << "the banner waits for an installer";
    EXPECT_EQ(loads, 1) << "the demo account is loaded once per session";
}

}  // namespace
}  // namespace corvane
