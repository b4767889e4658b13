#include <gtest/gtest.h>

#include "CorvaneApp/app/OnboardingViewModel.h"
#include "tests/enrol/EnrolTestSupport.h"
#include "tests/support/FakeClock.h"
#include "tests/support/ManualExecutor.h"

namespace corvane::testing {
namespace {

class Onboarding : public ::testing::Test {
  protected:
    ScratchFolder home;
    FakeClock clock;
    ManualExecutor executor;
    std::shared_ptr<FakeRegistration> registration = std::make_shared<FakeRegistration>();
    std::shared_ptr<FakeCredentialStore> credentials = std::make_shared<FakeCredentialStore>();
    std::filesystem::path configPath = home.path() / ".varnix-compute" / "config.yaml";
    int flushed = 0;

    // Registration and saving answer on the main sequence; the test lets them land.
    std::unique_ptr<OnboardingViewModel> make() {
        OnboardingMachineFacts machine{"wk_00112233aabbccdd", "build-box", "AMD Ryzen 7",
                                       17179869183ull, "0.1.0"};
        return std::make_unique<OnboardingViewModel>(OnboardingViewModel::Dependencies{
            &executor, std::make_shared<InlineBackgroundRunner>(), registration, credentials,
            configPath, machine, [this] { ++flushed; }, [] {}, clock.function(),
            "https://coordinator.test"});
    }
    void connect(OnboardingViewModel& model) {
        model.connect();
        EXPECT_TRUE(model.isWorking());
        executor.runUntilIdle();
        EXPECT_FALSE(model.isWorking());
    }
    void save(OnboardingViewModel& model) {
        model.saveConfiguration();
        executor.runUntilIdle();
    }
};

TEST_F(Onboarding, AMissingCodeOpensAdvancedAndARefusalLeavesNothingToSave) {
    registration->answer = [](const FakeRegistration::Call&) -> WorkerRegistrationResponse {
        throw CoordinatorRegistrationError::invitationRequired();
    };
    auto owned = make();
    auto& model = *owned;
    model.advance();
    connect(model);
    EXPECT_EQ(model.errorMessage(),
              "This installation requires an invitation code. Open Advanced, enter it there, and "
              "try again.");
    EXPECT_TRUE(model.showAdvancedOptions());
    EXPECT_EQ(model.step(), OnboardingStep::connect) << "the step stays";
    save(model);
    EXPECT_EQ(model.errorMessage(), "Complete the connection step before saving.");
    EXPECT_FALSE(std::filesystem::exists(configPath));
    EXPECT_TRUE(credentials->tokens.empty());
}

// A failure half-way leaves no half-enrolled machine; a retry needs no second registration.
TEST_F(Onboarding, SavingStoresTheCredentialThenWritesTheConfigOrLeavesNothing) {
    auto owned = make();
    auto& model = *owned;
    model.advance();
    connect(model);
    const std::string failed =
        "Corvane could not save your worker credentials locally. Check keyring and home-folder "
        "permissions, then try "
        "again.";
    credentials->failuresLeft = 1;  // a locked keyring
    save(model);
    EXPECT_EQ(model.errorMessage(), failed);
    EXPECT_EQ(model.step(), OnboardingStep::configure);
    EXPECT_FALSE(std::filesystem::exists(configPath)) << "no config.yaml without a credential";

    home.write(".varnix-compute", "not a folder");  // the config can't be written
    save(model);
    EXPECT_EQ(model.errorMessage(), failed);
    EXPECT_TRUE(credentials->tokens.empty()) << "the credential stored for it was taken back";

    std::filesystem::remove(home.path() / ".varnix-compute");
    save(model);
    EXPECT_EQ(model.step(), OnboardingStep::done);
    EXPECT_EQ(registration->calls.size(), 1u) << "saving again reuses the one registration";
    EXPECT_EQ(model.summary(),
              (OnboardingSummary{"wk_00112233aabbccdd", "https://coordinator.test"}));
    EXPECT_EQ(flushed, 2) << "pending settings are written once the credential is kept";
    ASSERT_EQ(credentials->tokens.size(), 1u);
    EXPECT_EQ(credentials->tokens.begin()->second, "wt-secret-123");
}

}  // namespace
}  // namespace corvane::testing
