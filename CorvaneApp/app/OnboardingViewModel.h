#pragma once
// The logic of onboarding, without any window: register with the coordinator, then store the
// worker credential and write config.yaml. The desktop window and `corvane enroll` both drive it.
//
// Used on one thread (the main sequence); connect() blocks on the network.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/app/OnboardingCredentialStore.h"
#include "CorvaneApp/app/OnboardingMachineFacts.h"
#include "CorvaneApp/config/OnboardingConfiguration.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"
#include "CorvaneApp/platform/Clock.h"

namespace corvane {

enum class OnboardingStep { welcome, connect, configure, done };

struct OnboardingSummary {
    std::string workerID;
    std::string coordinatorURL;
    bool operator==(const OnboardingSummary&) const = default;
};

// The coordinator a new installation offers first.
inline constexpr const char* kDefaultCoordinatorURL = "https://coordinator.varnix.dev";

class OnboardingViewModel {
  public:
    struct Dependencies {
        std::shared_ptr<CoordinatorRegistering> registrationClient;
        std::shared_ptr<OnboardingCredentialStore> credentialStore;
        std::filesystem::path configPath;  // ~/.varnix-compute/config.yaml
        OnboardingMachineFacts machine;
        // Writes settings the owner changed but the store has not saved yet (optional).
        std::function<void()> flushPendingSettings;
        std::function<void()> onFinish;  // optional
        NowFunction now = systemNow;
        std::string defaultCoordinatorURL = kDefaultCoordinatorURL;
    };

    explicit OnboardingViewModel(Dependencies dependencies);

    // What the build can run, sent at registration.
    static const std::vector<std::string>& availableHandlers();
    static const std::vector<std::string>& availableModels();

    OnboardingStep step() const { return step_; }
    void advance();  // welcome -> connect, the user's own step
    void goBack();
    // Registers; on success moves to `configure`, else leaves the words in errorMessage().
    void connect();
    // Stores the credential and writes config.yaml; on success moves to `done`. Either both are
    // in place afterwards or neither is (a credential stored for a config that could not be
    // written is taken back).
    void saveConfiguration();
    void finish();  // the `done` step's button

    void applySchedulePreset(OnboardingSchedulePreset preset);
    void updateCustomStart(Date time);
    void updateCustomEnd(Date time);
    // Today at `hour`:00, local time.
    Date makeTime(int hour) const;

    const std::string& coordinatorURL() const { return coordinatorURL_; }
    void setCoordinatorURL(std::string url) { coordinatorURL_ = std::move(url); }
    const std::string& enrollmentToken() const { return enrollmentToken_; }
    void setEnrollmentToken(std::string token) { enrollmentToken_ = std::move(token); }
    bool showAdvancedOptions() const { return showAdvancedOptions_; }
    void setShowAdvancedOptions(bool show) { showAdvancedOptions_ = show; }
    bool isWorking() const { return isWorking_; }
    const std::optional<std::string>& errorMessage() const { return errorMessage_; }
    const OnboardingConfiguration& configuration() const { return configuration_; }
    OnboardingConfiguration& mutableConfiguration() { return configuration_; }
    const std::optional<OnboardingSummary>& summary() const { return summary_; }
    const OnboardingMachineFacts& machine() const { return deps_.machine; }
    bool hasRegistrationResponse() const { return registrationResponse_.has_value(); }

    WorkerRegistrationRequest registrationRequest() const;

  private:
    Dependencies deps_;
    OnboardingStep step_ = OnboardingStep::welcome;
    std::string coordinatorURL_;
    std::string enrollmentToken_;
    bool showAdvancedOptions_ = false;
    bool isWorking_ = false;
    std::optional<std::string> errorMessage_;
    OnboardingConfiguration configuration_;
    std::optional<OnboardingSummary> summary_;
    OnboardingConfiguration::Schedule lastCustomSchedule_;
    std::optional<WorkerRegistrationResponse> registrationResponse_;
    std::string registeredCoordinatorURL_;  // the trimmed URL the response belongs to
};

}  // namespace corvane
