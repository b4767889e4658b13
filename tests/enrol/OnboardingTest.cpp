#include <gtest/gtest.h>

#include "CorvaneApp/app/OnboardingViewModel.h"
#include "CorvaneApp/config/WorkerConfig.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {
namespace {

using Kind = CoordinatorRegistrationError::Kind;

class Onboarding : public ::testing::Test {
protected:
    TempDir home;
    FakeClock clock;
    std::shared_ptr<FakeRegistration> registration = std::make_shared<FakeRegistration>();
    std::shared_ptr<FakeCredentialStore> credentials = std::make_shared<FakeCredentialStore>();
    std::filesystem::path configPath = home.path() / ".varnix-compute" / "config.yaml";
    int finished = 0;
    int flushed = 0;

    OnboardingViewModel make() {
        OnboardingMachineFacts machine{"wk_00112233aabbccdd", "build-box", "AMD Ryzen 7", 17179869183ull, "0.1.0"};
        return OnboardingViewModel({registration, credentials, configPath, machine, [this] { ++flushed; },
                                    [this] { ++finished; }, clock.function(), "https://coordinator.test"});
    }
};

TEST_F(Onboarding, ConnectSendsTheMachineAndATokenOnlyWhenAdvancedIsOpen) {
    auto model = make();
    model.advance();
    model.setCoordinatorURL("  http://coord.local:8080/  ");
    model.setEnrollmentToken("inv-typed-while-closed");
    model.connect();
    ASSERT_EQ(registration->calls.size(), 1u);
    EXPECT_EQ(registration->calls[0].enrollmentToken, std::nullopt) << "a code typed while Advanced is closed stays home";
    EXPECT_EQ(registration->calls[0].coordinatorURL, "http://coord.local:8080/");
    const auto& request = registration->calls[0].request;
    EXPECT_EQ(request.workerID, "wk_00112233aabbccdd");
    EXPECT_EQ(request.memoryGB, 15) << "physical memory shifted right by 30 bits, not rounded";
    EXPECT_EQ(request.buildIdentity, "0.1.0");
    EXPECT_EQ(model.step(), OnboardingStep::configure);

    model.goBack();
    model.setShowAdvancedOptions(true);
    model.setEnrollmentToken("  inv-42 \n");
    model.connect();
    EXPECT_EQ(registration->calls.back().enrollmentToken, "inv-42");
    model.setEnrollmentToken("   ");
    model.goBack();
    model.advance();
    model.connect();
    EXPECT_EQ(registration->calls.back().enrollmentToken, std::nullopt) << "blank counts as none";
}

TEST_F(Onboarding, RefusalsExplainThemselvesAndARejectedCodeOpensAdvanced) {
    struct Row {
        const char* what;
        std::optional<CoordinatorRegistrationError> error;
        bool withToken;
        std::string text;
        bool opensAdvanced;
    };
    const std::vector<Row> rows = {
        {"required, code sent", CoordinatorRegistrationError::invitationRequired(), true,
         "This invitation code wasn't accepted. Check Advanced and try again.", true},
        {"required, none sent", CoordinatorRegistrationError::invitationRequired(), false,
         "This installation requires an invitation code. Open Advanced, enter it there, and try again.", true},
        {"something else", std::nullopt, false, "socket exploded", false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        registration->answer = [&row](const FakeRegistration::Call&) -> WorkerRegistrationResponse {
            if (row.error) throw *row.error;
            throw std::runtime_error("socket exploded");
        };
        auto model = make();
        model.advance();
        if (row.withToken) {
            model.setShowAdvancedOptions(true);
            model.setEnrollmentToken("inv-1");
        }
        model.connect();
        EXPECT_EQ(model.errorMessage(), row.text);
        EXPECT_EQ(model.showAdvancedOptions(), row.withToken || row.opensAdvanced);
        EXPECT_EQ(model.step(), OnboardingStep::connect) << "the step stays";
        model.saveConfiguration();
        EXPECT_EQ(model.errorMessage(), "Complete the connection step before saving.");
        EXPECT_FALSE(std::filesystem::exists(configPath));
        EXPECT_TRUE(credentials->tokens.empty());
    }
}

// A failure half-way leaves no half-enrolled machine; a retry needs no second registration.
TEST_F(Onboarding, SavingStoresTheCredentialThenWritesTheConfigOrLeavesNothing) {
    auto model = make();
    model.advance();
    model.connect();
    const std::string failed =
        "Corvane could not save your worker credentials locally. Check keyring and home-folder permissions, then try "
        "again.";
    credentials->failuresLeft = 1;  // a locked keyring
    model.saveConfiguration();
    EXPECT_EQ(model.errorMessage(), failed);
    EXPECT_EQ(model.step(), OnboardingStep::configure);
    EXPECT_FALSE(std::filesystem::exists(configPath)) << "no config.yaml without a credential";

    home.write(".varnix-compute", "not a folder");  // the config can't be written
    model.saveConfiguration();
    EXPECT_EQ(model.errorMessage(), failed);
    EXPECT_TRUE(credentials->tokens.empty()) << "the credential stored for it was taken back";
    EXPECT_EQ(credentials->removals, 1);

    std::filesystem::remove(home.path() / ".varnix-compute");
    model.saveConfiguration();
    EXPECT_EQ(model.step(), OnboardingStep::done);
    EXPECT_EQ(registration->calls.size(), 1u) << "saving again reuses the one registration";
    EXPECT_EQ(model.summary(), (OnboardingSummary{"wk_00112233aabbccdd", "https://coordinator.test"}));
    EXPECT_EQ(flushed, 2) << "pending settings are written once the credential is kept";
    ASSERT_EQ(credentials->tokens.size(), 1u);
    EXPECT_EQ(credentials->tokens.begin()->second, "wt-secret-123");
    EXPECT_EQ(WorkerConfig::load(configPath).value().workerID, "wk_00112233aabbccdd");
    EXPECT_EQ(readText(configPath).find("wt-secret-123"), std::string::npos) << "the token never reaches config.yaml";
    model.finish();
    EXPECT_EQ(finished, 1);
}

TEST_F(Onboarding, PresetsAndCustomTimes) {
    auto model = make();
    model.applySchedulePreset(OnboardingSchedulePreset::businessHours);
    EXPECT_EQ(model.configuration().schedule.endTime, model.makeTime(17));

    model.updateCustomStart(model.makeTime(22));
    model.updateCustomEnd(model.makeTime(6));
    EXPECT_EQ(model.configuration().preset, OnboardingSchedulePreset::custom);
    model.applySchedulePreset(OnboardingSchedulePreset::alwaysOn);
    EXPECT_EQ(model.configuration().schedule.startTime, model.makeTime(9));
    model.applySchedulePreset(OnboardingSchedulePreset::custom);
    EXPECT_EQ(model.configuration().schedule.startTime, model.makeTime(22)) << "custom times survive a preset switch";
    EXPECT_EQ(model.configuration().schedule.endTime, model.makeTime(6));

    model.advance();
    model.advance();
    EXPECT_EQ(model.step(), OnboardingStep::connect) << "only connect() leaves the connect step";
    model.goBack();
    model.goBack();
    EXPECT_EQ(model.step(), OnboardingStep::welcome);
}

TEST(OnboardingMachineFacts, NamesIdsChipsAndBuilds) {
    const std::string a = workerIDForMachine("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(a, workerIDForMachine("0123456789abcdef0123456789abcdef")) << "stable for one machine";
    EXPECT_NE(a, workerIDForMachine("fedcba9876543210fedcba9876543210"));
    EXPECT_TRUE(a.starts_with("wk_") && a.size() == 19u) << a;
    EXPECT_EQ(a.find("0123456789abcdef"), std::string::npos) << "the machine id itself stays home";
    EXPECT_NE(workerIDForMachine(std::nullopt), workerIDForMachine("  "));

    EXPECT_EQ(computerNameFrom("ICON_NAME=computer\nPRETTY_HOSTNAME=\"Ana's Desk\"\n", "ana-desk"), "Ana's Desk");
    EXPECT_EQ(computerNameFrom("PRETTY_HOSTNAME=\n", "my-mac.local"), "my-mac");
    EXPECT_EQ(computerNameFrom(std::nullopt, ""), "computer");

    EXPECT_EQ(chipDescriptionFrom("Apple M3 Pro"), "M3 Pro");
    EXPECT_EQ(chipDescriptionFrom("Apple "), std::nullopt);

    EXPECT_EQ(buildIdentityFrom("0.1.0", "0123456789abcdef"), "0.1.0 sha256:0123456789ab");
    EXPECT_EQ(buildIdentityFrom(" ", std::nullopt), std::nullopt);
}

}  // namespace
}  // namespace corvane::testing
