// The onboarding window's words and values from its view model: each step's texts with this
// system's words, the buttons while a request runs, the connect errors and what they open, the
// schedule's times in more than one zone, and the welcome's processor and estimate.

#include <gtest/gtest.h>

#include "CorvaneApp/dashboard/MonthlyEarningsEstimate.h"
#include "CorvaneApp/dashboard/OnboardingPageState.h"
#include "tests/eligibility/ScopedTimeZone.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ManualExecutor.h"

namespace corvane::testing {
namespace {

OnboardingMachineFacts machine(
    std::optional<std::string> chip = "AMD Ryzen 9 5900X 12-Core Processor") {
    return {"wk_00112233aabbccdd", "build-box", std::move(chip), 34359738368ull, "0.1.0"};
}

class OnboardingPageStateTest : public ::testing::Test {
  protected:
    std::unique_ptr<OnboardingViewModel> make(OnboardingMachineFacts facts = machine()) {
        OnboardingViewModel::Dependencies deps;
        deps.mainSequence = &executor;
        deps.backgroundRunner = std::make_shared<InlineBackgroundRunner>();
        deps.registrationClient = registration;
        deps.credentialStore = credentials;
        deps.machine = std::move(facts);
        deps.now = clock.function();
        deps.defaultCoordinatorURL = "https://coordinator.test";
        deps.writeConfig = [this](const WorkerConfigWriter& writer) {
            written = writer.renderYAML();
        };
        return std::make_unique<OnboardingViewModel>(std::move(deps));
    }
    // Each request's answer lands on the main sequence, as it does in the window.
    void land() { executor.runUntilIdle(); }

    ManualExecutor executor;
    FakeClock clock{dateFromUnixSeconds(1'781'796'600)};  // Thursday 2026-06-18 15:30 UTC
    std::shared_ptr<FakeRegistration> registration = std::make_shared<FakeRegistration>();
    std::shared_ptr<FakeCredentialStore> credentials = std::make_shared<FakeCredentialStore>();
    std::string written;
};

// Every string of the state, to look for the other platform's words in any of them.
std::vector<std::string> allTexts(const OnboardingPageState& s) {
    std::vector<std::string> texts{
        s.windowTitle,        s.welcome.title,          s.welcome.body,    s.connect.title,
        s.connect.body,       s.connect.registerAs,     s.configure.title, s.configure.bodyMarkdown,
        s.configure.acDetail, s.configure.scheduleBody, s.done.title,      s.done.body,
        s.done.dashboardNote, s.primary.title};
    for (const auto& row : s.configure.presets) texts.push_back(row.detail);
    if (s.error) texts.push_back(*s.error);
    return texts;
}

TEST_F(OnboardingPageStateTest, EachStepSaysItsTextsInThisSystemsWordsWithItsButtons) {
    auto model = make();
    struct Expected {
        OnboardingStep step;
        std::string primary;
        std::optional<std::string> back;
    };
    const std::vector<Expected> walk{{OnboardingStep::welcome, "Get Started", std::nullopt},
                                     {OnboardingStep::connect, "Connect", "Back"},
                                     {OnboardingStep::configure, "Save Configuration", "Back"},
                                     {OnboardingStep::done, "Start Earning", std::nullopt}};
    for (const auto& expected : walk) {
        SCOPED_TRACE(int(expected.step));
        const auto state = onboardingPageState(*model);
        ASSERT_EQ(state.step, expected.step) << state.error.value_or("");
        EXPECT_EQ(state.primary, (OnboardingButton{expected.primary, true}));
        EXPECT_EQ(state.back.has_value(), expected.back.has_value());
        if (expected.back) {
            EXPECT_EQ(state.back, (OnboardingButton{*expected.back, true}));
        }
        for (std::size_t i = 0; i < state.steps.size(); ++i) {
            EXPECT_EQ(state.steps[i].current, int(i) == int(expected.step));
            EXPECT_EQ(state.steps[i].completed, int(i) < int(expected.step));
        }
        for (const auto& text : allTexts(state)) {
            for (const char* word : {"Mac", "macOS", "Keychain", "menu bar"})
                EXPECT_EQ(text.find(word), std::string::npos) << text;
        }
        switch (expected.step) {
            case OnboardingStep::welcome:
                model->advance();
                break;
            case OnboardingStep::connect:
                model->connect();
                break;
            case OnboardingStep::configure:
                model->saveConfiguration();
                break;
            case OnboardingStep::done:
                break;
        }
        land();
    }

    const auto state = onboardingPageState(*model);
    EXPECT_EQ(state.windowTitle, "Set up Corvane");
    EXPECT_EQ(state.welcome,
              (OnboardingWelcomeState{"Turn your idle computer into a worker.",
                                      "Corvane detected AMD Ryzen 9 5900X 12-Core Processor in "
                                      "this computer. Similar machines earn about $50/month when "
                                      "idle 12 hours a day."}));
    const auto& connect = state.connect;
    EXPECT_EQ(connect.title, "Set up Corvane on this computer");
    EXPECT_EQ(connect.body, "Corvane will register this computer and fetch a worker credential.");
    EXPECT_EQ(connect.registerAs, "This computer will register as");
    EXPECT_EQ(connect.computerName, "build-box");
    EXPECT_EQ(connect.identityDetail,
              "wk_00112233aabbccdd · AMD Ryzen 9 5900X 12-Core Processor · 32 GB memory")
        << "what registration sends: the memory as whole gigabytes";
    EXPECT_EQ(connect.url, "https://coordinator.test");
    const auto& configure = state.configure;
    EXPECT_EQ(configure.title, "Configure runtime behavior");
    EXPECT_EQ(configure.bodyMarkdown,
              "These defaults match the Python daemon schema and are written to "
              "`~/.varnix-compute/config.yaml`.");
    EXPECT_EQ(configure.idleLabel, "Minimum idle minutes");
    EXPECT_EQ(configure.idleMinutes, 3) << "the config file's default";
    EXPECT_EQ(configure.acTitle, "Require AC power");
    EXPECT_EQ(configure.acDetail, "Keep Corvane off battery unless you deliberately disable this.");
    EXPECT_EQ(configure.scheduleHeading, "When Corvane is eligible to run");
    EXPECT_EQ(configure.scheduleBody,
              "You'll only earn when your computer is idle and plugged in. Letting Corvane run "
              "\"always on\" gives it the most windows — you can tighten the schedule any time "
              "from Settings.");
    using P = OnboardingSchedulePreset;
    EXPECT_EQ(configure.presets,
              (std::vector<OnboardingPresetRow>{
                  {P::alwaysOn, "Always on", "Runs whenever your computer is idle and on AC power.",
                   true},
                  {P::businessHours, "Business hours",
                   "Runs 9:00 AM–5:00 PM every day, idle + plugged in. Limit to weekdays in "
                   "Settings → Schedule after setup.",
                   false},
                  {P::custom, "Custom",
                   "Pick a start and end time. Per-day filtering lives in Settings.", false}}));
    EXPECT_EQ(state.done,
              (OnboardingDoneState{
                  "This computer is ready.",
                  "Corvane stored your worker credential in the keyring and wrote the daemon "
                  "config.",
                  {{"Worker ID", "wk_00112233aabbccdd", true},
                   {"Coordinator", "https://coordinator.test", false},
                   {"Configuration", "~/.varnix-compute/config.yaml", true}},
                  "When you start earning, Corvane opens the dashboard so you can watch Whisper "
                  "finish downloading."}));
}

TEST_F(OnboardingPageStateTest, WhileARequestRunsTheButtonsSayItAndNothingCanBeChanged) {
    auto model = make();
    model->advance();
    model->connect();
    auto state = onboardingPageState(*model);
    EXPECT_TRUE(state.working);
    EXPECT_EQ(state.primary, (OnboardingButton{"Connecting…", false}));
    EXPECT_EQ(state.back, (OnboardingButton{"Back", false}));
    EXPECT_FALSE(state.connect.fieldsEnabled);
    model->connect();  // a second press while the first runs
    land();
    EXPECT_EQ(registration->calls.size(), 1u);

    model->saveConfiguration();
    state = onboardingPageState(*model);
    EXPECT_EQ(state.primary, (OnboardingButton{"Saving…", false}));
    EXPECT_FALSE(state.configure.controlsEnabled);
    land();
    state = onboardingPageState(*model);
    EXPECT_FALSE(state.working);
    EXPECT_EQ(state.step, OnboardingStep::done);
}

// The connect step's error table: the words on the step and whether Advanced opens. A code is
// sent only from an open Advanced.
TEST_F(OnboardingPageStateTest,
       EachRegistrationRefusalSaysItsWordsAndOpensAdvancedWhenACodeMatters) {
    using E = CoordinatorRegistrationError;
    struct Row {
        std::string name;
        std::function<void()> fail;
        bool advancedOpen;  // with the code "inv-1" typed either way
        std::string text;
        bool advancedAfter;
    };
    const std::vector<Row> rows{
        {"already registered", [] { throw E::existingWorkerTokenRequired(); }, false,
         "This computer is already registered. Use the existing worker credential to rotate it "
         "instead of retrying public setup.",
         false},
        {"invalid invitation", [] { throw E::invalidInvitation(); }, true,
         "That invitation code wasn't accepted. Check Advanced and try again.", true},
        {"invitation required, code sent", [] { throw E::invitationRequired(); }, true,
         "This invitation code wasn't accepted. Check Advanced and try again.", true},
        {"invitation required, none sent", [] { throw E::invitationRequired(); }, false,
         "This installation requires an invitation code. Open Advanced, enter it there, and try "
         "again.",
         true},
        {"rate limited", [] { throw E::rateLimited("30"); }, false,
         "Too many registration attempts. Try again in 30 seconds.", false},
        {"5xx", [] { throw E::coordinatorUnavailable(); }, false,
         "Corvane couldn't reach the service right now. Wait a moment and try again.", false},
        {"not a URL", [] { throw E::invalidCoordinatorURL(); }, false, "Enter a valid URL.", false},
        {"another error", [] { throw std::runtime_error("the socket closed"); }, false,
         "the socket closed", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        registration->calls.clear();
        registration->answer = [&row](const FakeRegistration::Call&) -> WorkerRegistrationResponse {
            row.fail();
            return {};
        };
        auto model = make();
        model->advance();
        model->setEnrollmentToken("inv-1");
        model->setShowAdvancedOptions(row.advancedOpen);
        model->connect();
        land();
        const auto state = onboardingPageState(*model);
        EXPECT_EQ(state.error, row.text);
        EXPECT_EQ(state.connect.showAdvanced, row.advancedAfter);
        EXPECT_EQ(state.step, OnboardingStep::connect);
        EXPECT_EQ(state.primary, (OnboardingButton{"Connect", true}));
        ASSERT_EQ(registration->calls.size(), 1u);
        EXPECT_EQ(registration->calls[0].enrollmentToken,
                  row.advancedOpen ? std::optional<std::string>("inv-1") : std::nullopt);
        model->goBack();
        EXPECT_FALSE(onboardingPageState(*model).error) << "going back clears the words";
    }
}

// The custom times are local times: the window shows, keeps and writes the same hour and minute
// in every zone, and a preset switch gives them back.
TEST_F(OnboardingPageStateTest, CustomTimesSurviveAPresetSwitchAndAreWrittenAsShownInEachZone) {
    for (const char* zone : {"UTC", "Asia/Kolkata", "America/New_York"}) {
        SCOPED_TRACE(zone);
        ScopedTimeZone scoped(zone);
        auto model = make();
        auto configure = onboardingPageState(*model).configure;
        EXPECT_EQ(configure.start, (ClockTime{9, 0}));
        EXPECT_EQ(configure.end, (ClockTime{17, 0}));

        model->updateCustomStart(onboardingTimeToday(*model, {22, 30}));
        model->updateCustomEnd(onboardingTimeToday(*model, {6, 15}));
        configure = onboardingPageState(*model).configure;
        EXPECT_TRUE(configure.presets[2].selected) << "a typed time is the custom schedule";
        EXPECT_EQ(configure.start, (ClockTime{22, 30}));

        model->applySchedulePreset(OnboardingSchedulePreset::alwaysOn);
        configure = onboardingPageState(*model).configure;
        EXPECT_EQ(configure.start, (ClockTime{9, 0}));
        model->applySchedulePreset(OnboardingSchedulePreset::custom);
        configure = onboardingPageState(*model).configure;
        EXPECT_EQ(configure.start, (ClockTime{22, 30}));
        EXPECT_EQ(configure.end, (ClockTime{6, 15}));

        model->advance();
        model->connect();
        land();
        model->saveConfiguration();
        land();
        EXPECT_NE(written.find("  enabled: true\n  start_time: '22:30'\n  end_time: '06:15'\n"),
                  std::string::npos)
            << written;
    }
}

TEST_F(OnboardingPageStateTest, WelcomeNamesTheProcessorAsReadAndItsFamilysEstimate) {
    struct Row {
        std::optional<std::string> chip;
        std::string shown;
        std::string family;
        std::string estimate;
    };
    const std::string arch(buildArchitectureName());
    const std::string archEstimate = monthlyEarningsEstimate(std::nullopt).estimate;
    const std::vector<Row> rows{
        {"Intel(R) Core(TM) i7-10700K CPU @ 3.80GHz", "Intel Core i7-10700K", "Ryzen 7 / Core i7",
         "$40"},
        {"Intel(R) Core(TM) Ultra 7 155H", "Intel Core Ultra 7 155H", "Ryzen 7 / Core i7", "$40"},
        {"AMD Ryzen Threadripper PRO 5995WX 64-Cores", "AMD Ryzen Threadripper PRO 5995WX 64-Cores",
         "AMD Threadripper", "$95"},
        {"Intel(R) Xeon(R) Gold 6338 CPU @ 2.00GHz", "Intel Xeon Gold 6338", "Intel Xeon", "$70"},
        {"AMD Ryzen 5 5600G with Radeon Graphics", "AMD Ryzen 5 5600G with Radeon Graphics",
         "Ryzen 5 / Core i5", "$28"},
        {"M1", "M1", "Apple M-series", "$35"},
        {"M2 Max", "M2 Max", "Apple M-series Max", "$85"},
        {"Apple M3 Ultra", "Apple M3 Ultra", "Apple M-series Ultra", "$120"},
        {"Neoverse-N1", "Neoverse-N1", "Arm server", "$45"},
        {"QEMU Virtual CPU version 2.5+", "QEMU Virtual CPU version 2.5+", arch, archEstimate},
        {std::nullopt, "an " + arch + " processor", arch, archEstimate},
        {"  ", "an " + arch + " processor", arch, archEstimate},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.chip.value_or("(none)"));
        const auto state = onboardingPageState(*make(machine(row.chip)));
        EXPECT_EQ(state.welcome.body, "Corvane detected " + row.shown +
                                          " in this computer. Similar machines earn about " +
                                          row.estimate + "/month when idle 12 hours a day.");
        EXPECT_EQ(monthlyEarningsEstimate(readableChipName(row.chip.value_or(""))).family,
                  row.family);
    }
}

}  // namespace
}  // namespace corvane::testing
