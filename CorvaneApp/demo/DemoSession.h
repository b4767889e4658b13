#pragma once
// The sample session: the same model and screens as a real one, over stand-in sources chosen
// here once. The account comes from the sample account through a demo account API, settings stay
// in memory, the worker is the demo's fixed shard rhythm, and model downloads are simulated. No
// coordinator is contacted and no socket is opened.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "CorvaneApp/app/Session.h"
#include "CorvaneApp/demo/DemoCoordinatorAPI.h"
#include "CorvaneApp/demo/DemoCredentialStore.h"
#include "CorvaneApp/demo/DemoModelDownload.h"
#include "CorvaneApp/demo/DemoRegistrationClient.h"
#include "CorvaneApp/demo/DummyDataProvider.h"
#include "CorvaneApp/platform/BackgroundRunner.h"

namespace corvane {

class DemoSession final : public Session, public DemoTools {
  public:
    struct Options {
        std::string version;
        Date referenceDate = systemNow();  // the sample account reads as of this instant
        // Whisper "downloads" for a few seconds at launch; off, it is installed from the start.
        bool simulateModelDownload = true;
        bool startBackgroundTasks = true;
        NowFunction now = systemNow;
        // Seconds since the session began, which the shard rhythm follows; absent: a steady clock.
        std::function<double()> sessionElapsed;
        // Where the test notifications' attempts are logged; absent: Corvane's log folder.
        std::optional<NotificationEventLog::Options> notificationLog;
    };

    DemoSession(Executor& mainSequence, Options options);
    ~DemoSession() override;

    void launch() override;
    void terminate() override;
    AppModel& model() override { return *model_; }
    WorkerConfigStore& configStore() override { return *configStore_; }
    UserDefaults& userDefaults() override { return userDefaults_; }
    WorkerStatusRecord statusRecord() override;
    // Onboarding against the sample coordinator: registration, the credential and config.yaml
    // all stay in memory.
    std::unique_ptr<OnboardingViewModel> makeOnboarding(std::function<void()> onFinish) override;
    void finishOnboarding() override { enroll(); }
    DataMode dataMode() const override { return DataMode::dummy; }
    NotificationBridge& notifications() override { return *notifications_; }
    // In memory, as every setting of the sample session.
    bool launchesAtLogin() override { return launchesAtLogin_; }
    void setLaunchesAtLogin(bool enabled) override { launchesAtLogin_ = enabled; }
    // Signs the sample session out; nothing on this computer is removed.
    void uninstall(std::function<void(UninstallReport)> done) override;
    DemoTools* demoTools() override { return this; }
    void resetToFirstLaunchState() override;

    // The sample onboarding's end: the session is enrolled again.
    void enroll();
    // What this computer says of itself at the sample onboarding.
    static OnboardingMachineFacts onboardingMachine(const std::string& version);
    const DemoRegistrationClient& registration() const { return *registration_; }
    const DemoCredentialStore& credentials() const { return *credentials_; }
    // The config.yaml the sample onboarding wrote last; empty before.
    const std::string& configText() const { return *configText_; }
    // Pins the shard rhythm (screenshots show one moment); absent follows the clock again.
    void setSessionElapsedOverride(std::optional<double> seconds);
    const DummyDataProvider& provider() const { return *provider_; }
    EligibilityGate& eligibilityGate() { return *gate_; }
    // The version the sample coordinator publishes; the running one until a scene says otherwise.
    void publishVersion(std::string version) { *publishedVersion_ = std::move(version); }

  private:
    std::optional<WorkerControllerSnapshot> workerSnapshot() const;
    void applyDownload(const std::optional<ModelDownloadProgress>& progress,
                       const std::unordered_set<ModelIdentifier>& installed);

    Executor& main_;
    Options options_;
    std::shared_ptr<std::string> publishedVersion_ = std::make_shared<std::string>();
    std::shared_ptr<EligibilityGate> gate_;
    UserDefaults userDefaults_;  // in memory
    InlineBackgroundRunner runner_;
    std::unique_ptr<WorkerConfigStore> configStore_;
    std::shared_ptr<const DummyDataProvider> provider_;
    std::shared_ptr<DemoCoordinatorAPI> api_;
    std::shared_ptr<DemoRegistrationClient> registration_ =
        std::make_shared<DemoRegistrationClient>();
    std::shared_ptr<DemoCredentialStore> credentials_ = std::make_shared<DemoCredentialStore>();
    std::shared_ptr<std::string> configText_ = std::make_shared<std::string>();
    bool signedOut_ = false;
    std::optional<double> elapsedOverride_;
    DemoModelDownload download_;
    std::unique_ptr<AppModel> model_;
    std::unique_ptr<NotificationBridge> notifications_;
    bool launchesAtLogin_ = false;
};

}  // namespace corvane
