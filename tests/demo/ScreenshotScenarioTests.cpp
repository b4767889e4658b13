#include <gtest/gtest.h>

#include <map>

#include "CorvaneApp/coordinator/CoordinatorAPI.h"
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
        applyScreenshotScenario(*findScreenshotScenario(id), *session);
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
        applyScreenshotScenario(scenario, *session);
        executor.runUntilIdle();
        EXPECT_EQ(loads, 1) << "every scene shows the demo account";
        const bool dashboard = scenario.surface.kind == ScreenshotSurface::Kind::dashboard;
        EXPECT_EQ(
            m.requestedPage(),
            dashboard ? std::optional<std::string>(rawValue(scenario.surface.page)) : std::nullopt);
        EXPECT_EQ(m.presentation(), scenario.status
                                        ? WorkerStatusPresentation::defaultFor(*scenario.status)
                                        : DummyDataProvider::sessionPresentation());
        EXPECT_EQ(m.pauseControl().isManuallyPaused(), m.status() == WorkerStatus::paused);
        const auto& latest = m.account().latestAppVersion();
        EXPECT_EQ(latest && AccountState::isVersionNewer(latest->version, m.appVersion()),
                  scenario.id.ends_with("update-available"))
            << (latest ? latest->version : "none") << " over " << m.appVersion();

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

// The onboarding scenes are walked as an owner walks the window, against the sample coordinator:
// each ends on its step, nothing reaches a keyring or a file, and the refused code is kept.
TEST_F(ScreenshotScenarioTest, OnboardingScenesWalkTheSampleOnboardingToTheirStep) {
    std::vector<const ScreenshotScenarioInfo*> scenes;
    for (const auto& scenario : screenshotCatalog()) {
        if (scenario.surface.kind == ScreenshotSurface::Kind::onboarding)
            scenes.push_back(&scenario);
    }
    ASSERT_EQ(scenes.size(), 5u);
    for (const auto* scenario : scenes) {
        SCOPED_TRACE(std::string(scenario->id));
        makeModel();
        auto model = session->makeOnboarding({});
        int turns = 0;
        while (advanceOnboardingScene(scenario->surface, *model)) {
            executor.runUntilIdle();
            ASSERT_LT(++turns, 10);
        }
        EXPECT_EQ(model->step(), scenario->surface.onboardingStep);
        EXPECT_FALSE(model->isWorking());
        const bool rejected = !scenario->surface.invitationCode.empty();
        EXPECT_EQ(model->errorMessage().has_value(), rejected);
        if (rejected) {
            EXPECT_EQ(model->errorMessage(),
                      "That invitation code wasn't accepted. Check Advanced and try again.");
            EXPECT_TRUE(model->showAdvancedOptions());
            EXPECT_EQ(model->enrollmentToken(), scenario->surface.invitationCode);
        }
        const bool registered = scenario->surface.onboardingStep > OnboardingStep::connect;
        EXPECT_EQ(session->registration().registrations(), registered ? 1 : 0);
        const bool saved = scenario->surface.onboardingStep == OnboardingStep::done;
        EXPECT_EQ(session->configText().find("worker_id: 'wk_demo_7f3a'") != std::string::npos,
                  saved)
            << session->configText();
        EXPECT_EQ(session->credentials()
                      .token({"Corvane sample (" +
                                  std::string(CoordinatorAPI::defaultProductionURL) + ")",
                              "wk_demo_7f3a"})
                      .has_value(),
                  saved);
    }
}

TEST(DemoRegistration, AcceptsNoCodeOrItsOwnAndRefusesOthersAndNonURLs) {
    DemoRegistrationClient client;
    WorkerRegistrationRequest request;
    request.workerID = "wk_x";
    using Kind = CoordinatorRegistrationError::Kind;
    auto refusal = [&](std::string url, std::optional<std::string> code) -> std::optional<Kind> {
        try {
            client.registerWorker(url, code, request);
            return std::nullopt;
        } catch (const CoordinatorRegistrationError& error) {
            return error.kind();
        }
    };
    EXPECT_EQ(refusal("https://c.example", std::nullopt), std::nullopt);
    EXPECT_EQ(refusal(" https://c.example ", " CORVANE-DEMO "), std::nullopt);
    EXPECT_EQ(refusal("https://c.example", "   "), std::nullopt) << "blanks are no code";
    EXPECT_EQ(refusal("https://c.example", "OTHER"), Kind::invalidInvitation);
    EXPECT_EQ(refusal("c.example", std::nullopt), Kind::invalidCoordinatorURL);
    EXPECT_EQ(client.registrations(), 3);
}

}  // namespace
}  // namespace corvane
