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
#include "CorvaneApp/config/WorkerConfigWriter.h"
#include "CorvaneApp/coordinator/CoordinatorAPI.h"
#include "CorvaneApp/coordinator/CoordinatorRegistrationClient.h"
#include "CorvaneApp/platform/BackgroundRunner.h"
#include "CorvaneApp/platform/Clock.h"
#include "CorvaneApp/platform/Executor.h"
#include "CorvaneApp/platform/Observers.h"

namespace corvane {

enum class OnboardingStep { welcome, connect, configure, done };

struct OnboardingSummary {
    std::string workerID;
    std::string coordinatorURL;
    bool operator==(const OnboardingSummary&) const = default;
};

// The four steps of enrolment as a window shows them. Lives on the main sequence; registration
// and the save run on the background runner, with `isWorking` set meanwhile, and land back on the
// main sequence. Observers are told after every change.
class OnboardingViewModel {
  public:
    struct Dependencies {
        Executor* mainSequence = nullptr;                    // required
        std::shared_ptr<BackgroundRunner> backgroundRunner;  // absent: one task per job
        std::shared_ptr<CoordinatorRegistering> registrationClient;
        std::shared_ptr<OnboardingCredentialStore> credentialStore;
        std::filesystem::path configPath;  // ~/.varnix-compute/config.yaml
        OnboardingMachineFacts machine;
        // Writes settings the owner changed but the store has not saved yet (optional).
        std::function<void()> flushPendingSettings;
        std::function<void()> onFinish;  // optional
        NowFunction now = systemNow;
        // The coordinator a new installation offers first.
        std::string defaultCoordinatorURL = CoordinatorAPI::defaultProductionURL;
        // Writes config.yaml (off the main sequence); absent: the writer writes `configPath`.
        // The sample session keeps the text in memory instead.
        std::function<void(const WorkerConfigWriter&)> writeConfig = nullptr;
    };

    explicit OnboardingViewModel(Dependencies dependencies);
    // Waits for registration or a save still under way (each has its own time-out).
    ~OnboardingViewModel();
    OnboardingViewModel(const OnboardingViewModel&) = delete;
    OnboardingViewModel& operator=(const OnboardingViewModel&) = delete;

    [[nodiscard]] Subscription observe(std::function<void()> onChange) {
        return observers_.subscribe(std::move(onChange));
    }

    // What the build can run, sent at registration.
    static const std::vector<std::string>& availableHandlers();
    static const std::vector<std::string>& availableModels();

    OnboardingStep step() const { return step_; }
    void advance();  // welcome -> connect, the user's own step
    void goBack();
    // Registers; on success moves to `configure`, else leaves the words in errorMessage(). Does
    // nothing while a request is under way. A registration already held for the same coordinator
    // (the owner went back a step) is kept, with no second request.
    void connect();
    // Stores the credential and writes config.yaml; on success moves to `done`. Either both are
    // in place afterwards or neither is (a credential stored for a config that could not be
    // written is taken back). Does nothing while a request is under way.
    void saveConfiguration();
    void finish();  // the `done` step's button

    void setMinIdleMinutes(int minutes);
    void setRequireACPower(bool required);
    void applySchedulePreset(OnboardingSchedulePreset preset);
    void updateCustomStart(Date time);
    void updateCustomEnd(Date time);
    // Today at `hour`:00, local time.
    Date makeTime(int hour) const;

    const std::string& coordinatorURL() const { return coordinatorURL_; }
    void setCoordinatorURL(std::string url);
    const std::string& enrollmentToken() const { return enrollmentToken_; }
    void setEnrollmentToken(std::string token);
    bool showAdvancedOptions() const { return showAdvancedOptions_; }
    void setShowAdvancedOptions(bool show);
    bool isWorking() const { return isWorking_; }
    const std::optional<std::string>& errorMessage() const { return errorMessage_; }
    const OnboardingConfiguration& configuration() const { return configuration_; }
    OnboardingConfiguration& mutableConfiguration() { return configuration_; }
    const std::optional<OnboardingSummary>& summary() const { return summary_; }
    const OnboardingMachineFacts& machine() const { return deps_.machine; }
    bool hasRegistrationResponse() const { return registrationResponse_.has_value(); }

    WorkerRegistrationRequest registrationRequest() const;

  private:
    void finishConnect(std::optional<WorkerRegistrationResponse> response, std::string url,
                       std::optional<CoordinatorRegistrationError> error,
                       std::optional<std::string> otherError, bool sentToken);
    void keepCredential(WorkerTokenKeychainRef stored);
    void finishSave(std::optional<std::string> failure);
    // Runs `work` on the main sequence while this model lives.
    std::function<void(std::function<void(OnboardingViewModel&)>)> poster();
    void changed() { observers_.notify(); }

    Dependencies deps_;
    ObserverList<> observers_;
    std::unique_ptr<BackgroundJob> job_;
    std::shared_ptr<OnboardingViewModel*> alive_;
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
