#include <gtest/gtest.h>

#include "CorvaneApp/app/OnboardingViewModel.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/FakeClock.h"

namespace corvane::testing {
namespace {

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
    EXPECT_EQ(model.step(), OnboardingStep::configure);
}

TEST_F(Onboarding, RefusalsExplainThemselvesAndAMissingCodeOpensAdvanced) {
    struct Row {
        std::optional<CoordinatorRegistrationError> error;
        std::string text;
        bool opensAdvanced;
    };
    for (const Row& row : std::vector<Row>{
             {CoordinatorRegistrationError::invitationRequired(),
              "This installation requires an invitation code. Open Advanced, enter it there, and try again.", true},
             {std::nullopt, "socket exploded", false},
         }) {
        SCOPED_TRACE(row.text);
        registration->answer = [&row](const FakeRegistration::Call&) -> WorkerRegistrationResponse {
            if (row.error) throw *row.error;
            throw std::runtime_error("socket exploded");
        };
        auto model = make();
        model.advance();
        model.connect();
        EXPECT_EQ(model.errorMessage(), row.text);
        EXPECT_EQ(model.showAdvancedOptions(), row.opensAdvanced);
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

    std::filesystem::remove(home.path() / ".varnix-compute");
    model.saveConfiguration();
    EXPECT_EQ(model.step(), OnboardingStep::done);
    EXPECT_EQ(registration->calls.size(), 1u) << "saving again reuses the one registration";
    EXPECT_EQ(model.summary(), (OnboardingSummary{"wk_00112233aabbccdd", "https://coordinator.test"}));
    EXPECT_EQ(flushed, 2) << "pending settings are written once the credential is kept";
    ASSERT_EQ(credentials->tokens.size(), 1u);
    EXPECT_EQ(credentials->tokens.begin()->second, "wt-secret-123");
    model.finish();
    EXPECT_EQ(finished, 1);
}

TEST(OnboardingMachineFacts, WorkerIDIsStableAndPrivateAndTheNameIsThePrettyOne) {
    const std::string a = workerIDForMachine("0123456789abcdef0123456789abcdef\n");
    EXPECT_EQ(a, workerIDForMachine("0123456789abcdef0123456789abcdef")) << "stable for one machine";
    EXPECT_NE(a, workerIDForMachine("fedcba9876543210fedcba9876543210"));
    EXPECT_EQ(a.find("0123456789abcdef"), std::string::npos) << "the machine id itself stays home";

    EXPECT_EQ(computerNameFrom("ICON_NAME=computer\nPRETTY_HOSTNAME=\"Ana's Desk\"\n", "ana-desk"), "Ana's Desk");
    EXPECT_EQ(computerNameFrom("PRETTY_HOSTNAME=\n", "my-mac.local"), "my-mac");
}

}  // namespace
}  // namespace corvane::testing
